// SPDX-License-Identifier: Apache-2.0
#include "library/points/pointTests.hpp"

#include "anchor/Error.hpp"
#include "library/report/Wording.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/TypedArray.hpp"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <type_traits>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using Point = Geom::PhysicalSpace::point;

/// An array used by a test, and its name in errors.
struct Deciding {
    Sheaf::Field::Creator data;
    std::string name;
};

class TestMaker {
public:
    TestMaker(const Sheaf::Representation& representation,
              const Anchor::StrongPtr<Sheaf::FragmentID>& fragment, const std::string& where,
              const std::function<void()>& mayGoOn)
        : representation_(representation),
          fragment_(fragment),
          where_(where),
          mayGoOn_(mayGoOn) {}

    [[nodiscard]] FragmentMask::Test forBox(const PointBox& box) const;
    [[nodiscard]] FragmentMask::Test forClasses(const std::set<std::uint8_t>& classes) const;
    [[nodiscard]] FragmentMask::Test forReturns(const PointChoice& choice) const;

private:
    [[nodiscard]] Deciding deciding(std::string_view field) const;
    [[nodiscard]] auto question() const {
        return [ask = mayGoOn_](std::size_t place) {
            constexpr std::size_t pointsBetweenQuestions = 65536;
            if (ask && place % pointsBetweenQuestions == 0)
                ask();
        };
    }

    const Sheaf::Representation& representation_;
    const Anchor::StrongPtr<Sheaf::FragmentID>& fragment_;
    const std::string& where_;
    const std::function<void()>& mayGoOn_;
};

bool isInteger(const std::type_info& type) {
    bool is = false;
    Sheaf::visitElementType(type, [&](auto tag) { is = std::is_integral_v<typename decltype(tag)::type>; });
    return is;
}

/// Throws for an array that differs from what its creator stated.
[[noreturn]] void refuse(const std::string& name) {
    throw Anchor::ModelError(name + " is not an array of the stated type and size");
}

/// Classes and return numbers in 16 bits, with one number for all other values.
using SmallNumbers = std::vector<std::uint16_t>;
constexpr std::uint16_t anyOther = std::numeric_limits<std::uint16_t>::max();

SmallNumbers smallNumbers(const Deciding& deciding, std::size_t size) {
    const auto made = deciding.data->create(false);
    SmallNumbers numbers;
    Sheaf::visitElementType(deciding.data->elementType(), [&](auto tag) {
        using T = typename decltype(tag)::type;
        if constexpr (std::is_integral_v<T>) {
            const auto array = Anchor::dynamicCast<Sheaf::TypedArray<T>>(made);
            if (!array)
                return;
            numbers.reserve(array->base_vector().size());
            for (const T value : array->base_vector())
                numbers.push_back(value >= T{0} && static_cast<unsigned long long>(value) < anyOther
                                      ? static_cast<std::uint16_t>(value)
                                      : anyOther);
        }
    });
    if (numbers.size() != size)
        refuse(deciding.name);
    return numbers;
}

Deciding TestMaker::deciding(std::string_view field) const {
    const auto& found = representation_.findField(std::string(field).c_str());
    const auto data = found ? found->getCreator(fragment_) : nullptr;
    Deciding deciding{data, fmt::format("{}: {}{}", where_, field,
                                        fragment_ ? " of fragment " + fragment_->name() : std::string())};
    if (!data)
        throw Anchor::ModelError(deciding.name + " is missing, and points are to be chosen by it");
    if (!isInteger(data->elementType()))
        throw Anchor::ModelError(fmt::format("{} holds {} values, and points are chosen by integers",
                                             deciding.name, Sheaf::elementTypeName(data->elementType())));
    const std::uint64_t points = statedElements(*representation_.Positions()->getCreator(fragment_));
    if (statedElements(*data) != points)
        throw Anchor::ModelError(fmt::format("{} has {} for {}", deciding.name,
                                             counted(statedElements(*data), "value"),
                                             counted(points, "point")));
    return deciding;
}

FragmentMask::Test TestMaker::forBox(const PointBox& box) const {
    return [box, positions = representation_.Positions()->getCreator(fragment_), goOn = question(),
            name = where_ + ": Positions"](ElementSet& chosen) {
        const auto array = Anchor::dynamicCast<Sheaf::TypedArray<Point>>(positions->create(false));
        if (!array || array->base_vector().size() != chosen.size())
            refuse(name);
        chosen.narrow([&, points = array->base_vector().data()](std::size_t i) {
            goOn(i);
            return box.contains(points[i]);
        });
    };
}

FragmentMask::Test TestMaker::forClasses(const std::set<std::uint8_t>& classes) const {
    return [classes, values = deciding(PointChoice::classField), goOn = question()](ElementSet& chosen) {
        std::vector<bool> isWanted(std::size_t{anyOther} + 1);
        for (const std::uint8_t number : classes)
            isWanted[number] = true;
        const SmallNumbers numbers = smallNumbers(values, chosen.size());
        chosen.narrow([&](std::size_t i) {
            goOn(i);
            return isWanted[numbers[i]];
        });
    };
}

FragmentMask::Test TestMaker::forReturns(const PointChoice& choice) const {
    // A field that is not needed may be missing.
    const std::set<std::string> read = choice.fieldsRead();
    const auto ifRead = [&](std::string_view field) {
        return read.contains(std::string(field)) ? deciding(field) : Deciding{};
    };
    return [returns = *choice.returns, number = ifRead(PointChoice::returnField),
            ofPulse = ifRead(PointChoice::returnsField), goOn = question()](ElementSet& chosen) {
        const auto numbersOf = [&](const Deciding& deciding) {
            return deciding.data ? smallNumbers(deciding, chosen.size())
                                 : SmallNumbers(chosen.size(), anyOther);
        };
        const SmallNumbers numbers = numbersOf(number);
        const SmallNumbers counts = numbersOf(ofPulse);
        chosen.narrow([&](std::size_t i) {
            goOn(i);
            return returns.contains(numbers[i], counts[i]);
        });
    };
}

} // namespace

std::vector<FragmentMask::Test> pointTests(const PointChoice& choice,
                                           const Sheaf::Representation& representation,
                                           const Anchor::StrongPtr<Sheaf::FragmentID>& fragment,
                                           const std::string& where, const std::function<void()>& mayGoOn) {
    const TestMaker maker(representation, fragment, where, mayGoOn);
    std::vector<FragmentMask::Test> tests;
    if (choice.box)
        tests.push_back(maker.forBox(*choice.box));
    if (!choice.classes.empty())
        tests.push_back(maker.forClasses(choice.classes));
    if (choice.returns)
        tests.push_back(maker.forReturns(choice));
    return tests;
}

std::uint64_t statedElements(const Sheaf::CreativeArrayBase& data) {
    const auto extents = data.extents();
    return extents ? extents->elementCount().value_or(0) : 0;
}

} // namespace Tidewatch
