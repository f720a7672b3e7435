// SPDX-License-Identifier: Apache-2.0
#include "library/check/checkBundle.hpp"

#include "anchor/Error.hpp"
#include "anchor/printable.hpp"
#include "library/check/checkSystem.hpp"
#include "library/check/kinds.hpp"
#include "library/input/Filters.hpp"
#include "library/input/Inputs.hpp"
#include "library/report/Wording.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/MemArray.hpp"

#include <cmath>
#include <concepts>
#include <functional>
#include <optional>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

using Sheaf::FieldFragment;

void forEachFragment(const Sheaf::Bundle& bundle,
                     const std::function<void(const std::string& grid, const FieldFragment&)>& visit) {
    const Selection all(Filters{});
    all.forEachGrid(bundle, [&](double time, const std::string& name, const Sheaf::Grid& grid) {
        const std::string place = gridAtTime(Anchor::printable(name), time);
        grid.skeletons().iterate_all([&](const FieldFragment& at) {
            visit(place, at);
            return true;
        });
    });
}

std::optional<std::uint64_t> elementsOf(const Sheaf::CreativeArrayBase& data) {
    const auto extents = data.extents();
    return extents ? extents->elementCount() : std::nullopt;
}

/// The number of elements with a component that is not a finite number.
std::uint64_t notFinite(const Sheaf::MemBase& array) {
    std::uint64_t number = 0;
    Sheaf::visitElementType(array.elementType(), [&](auto tag) {
        using T = typename decltype(tag)::type;
        using Component = typename Sheaf::ElementTraits<T>::Component;
        if constexpr (std::floating_point<Component>) {
            const auto* const typed = dynamic_cast<const Sheaf::TypedArray<T>*>(&array);
            if (typed == nullptr)
                return;
            constexpr std::size_t components = Sheaf::ElementTraits<T>::componentCount;
            for (const T& element : typed->base_vector()) {
                const auto* const first = reinterpret_cast<const Component*>(&element);
                bool isFinite = true;
                for (std::size_t i = 0; i < components; ++i)
                    isFinite = isFinite && std::isfinite(first[i]);
                number += isFinite ? 0 : 1;
            }
        }
    });
    return number;
}

class BundleCheck {
public:
    BundleCheck(CheckReport& report, const Anchor::StrongPtr<Progress>& progress)
        : report_(report),
          progress_(progress) {}

    void run(const Sheaf::Bundle& bundle) {
        double total = 0;
        forEachFragment(bundle, [&](const std::string&, const FieldFragment& at) { total += sizeOf(at); });
        if (progress_)
            progress_->begin("checking " + report_.file(), total, "values");
        forEachFragment(bundle, [&](const std::string& grid, const FieldFragment& at) { check(grid, at); });
    }

private:
    [[nodiscard]] static double sizeOf(const FieldFragment& at) {
        return static_cast<double>(elementsOf(*at.data).value_or(0));
    }

    void check(const std::string& grid, const FieldFragment& at) {
        if (progress_)
            progress_->piece(done_, sizeOf(at));
        done_ += sizeOf(at);
        std::string place = fmt::format("{}: field \"{}\"", grid, Anchor::printable(at.id.name()));
        if (at.fragment)
            place += fmt::format(", fragment \"{}\"", Anchor::printable(at.fragment->name()));
        try {
            const auto made = at.data->create(false);
            const auto array = Anchor::dynamicCast<Sheaf::MemBase>(made);
            if (!array) {
                report_.note(Kind::array, place, "there is no array");
                return;
            }
            checkArray(place, at, *array);
        } catch (const Anchor::Error& error) {
            report_.fault(Kind::array, place, withoutFile(error.what()));
        }
    }

    void checkArray(const std::string& place, const FieldFragment& at, const Sheaf::MemBase& array) {
        if (const std::uint64_t number = notFinite(array); number != 0)
            report_.note(Kind::notFinite, place, "values that are not finite numbers", number);
        const auto& positions = at.representation.Positions();
        const auto placed = positions ? positions->getCreator(at.fragment) : Sheaf::Field::Creator();
        if (!placed)
            return;
        const std::uint64_t elements = array.extents().elementCount().value_or(0);
        const std::uint64_t points = elementsOf(*placed).value_or(elements);
        if (points != elements)
            report_.warning(
                Kind::arrayLength, place,
                fmt::format("it has {} for {}", counted(elements, "value"), counted(points, "point")));
    }

    [[nodiscard]] std::string withoutFile(const std::string& message) const {
        const std::string prefix = report_.file() + ": ";
        return message.starts_with(prefix) ? message.substr(prefix.size()) : message;
    }

    CheckReport& report_;
    const Anchor::StrongPtr<Progress>& progress_;
    double done_ = 0;
};

} // namespace

void checkBundle(CheckReport& report, const CheckOptions& options,
                 const Anchor::StrongPtr<Progress>& progress) {
    std::optional<Inputs> inputs;
    try {
        InputOptions read;
        read.files = {report.file()};
        read.memoryLimit = options.memoryLimit;
        read.requiresSandbox = options.requiresSandbox;
        inputs.emplace(read, progress);
    } catch (const Anchor::FormatError& error) {
        report.faultOf(Kind::structure, error.what());
        return;
    }
    report.setFormat(inputs->reports().front()->kind());
    checkSystems(report, *inputs->bundle());
    BundleCheck(report, progress).run(*inputs->bundle());
}

} // namespace Tidewatch
