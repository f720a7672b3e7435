// SPDX-License-Identifier: Apache-2.0
#include "readers/source/InputArrayCreator.hpp"

#include "anchor/Error.hpp"
#include "anchor/printable.hpp"
#include "readers/source/claimedBytes.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/MemArray.hpp"

#include <algorithm>
#include <functional>
#include <limits>
#include <new>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace Tidewatch {

namespace {

std::uint64_t sizeOf(const std::type_info& element) {
    std::uint64_t size = 0;
    Sheaf::visitElementType(element, [&](auto tag) { size = sizeof(typename decltype(tag)::type); });
    return size;
}

/// The elements of an array.
template <class T>
class Elements final : public ArrayMemory {
public:
    /// `refuse` throws an error for a reason.
    Elements(std::uint64_t count, std::uint64_t bytes, std::function<void(const std::string&)> refuse)
        : count_(count),
          bytes_(bytes),
          refuse_(std::move(refuse)) {
        require([&] { elements_.reserve(count_); });
    }

    [[nodiscard]] std::uint64_t size() const override { return count_ * sizeof(T); }

    bool provideMore() override {
        constexpr std::uint64_t block = std::uint64_t{4} << 20;
        if (elements_.size() < count_)
            require([&] { elements_.resize(std::min(count_, elements_.size() + block / sizeof(T))); });
        return elements_.size() < count_;
    }

    [[nodiscard]] std::span<std::byte> piece(std::uint64_t begin, std::uint64_t count,
                                             const std::function<void()>& between) override {
        while (elements_.size() * sizeof(T) < begin + count) {
            static_cast<void>(provideMore());
            between();
        }
        return std::as_writable_bytes(std::span(elements_)).subspan(begin, count);
    }

    [[nodiscard]] std::vector<T> release() { return std::move(elements_); }

private:
    void require(const std::function<void()>& provide) {
        const auto refuseForMemory = [&] {
            refuse_(fmt::format("there is not enough memory for its {} bytes", bytes_));
        };
        try {
            provide();
        } catch (const std::bad_alloc&) {
            refuseForMemory();
        } catch (const std::length_error&) {
            refuseForMemory();
        }
    }

    std::uint64_t count_;
    std::uint64_t bytes_;
    std::function<void(const std::string&)> refuse_;
    std::vector<T> elements_;
};

} // namespace

InputArrayCreator::InputArrayCreator(std::shared_ptr<Input> input, const Structure::Array& array,
                                     const std::type_info& element)
    : CachedCreator(element, Sheaf::Extents(array.extents)),
      input_(std::move(input)),
      array_(array),
      bytes_(
          claimedBytes(array.extents, sizeOf(element)).value_or(std::numeric_limits<std::uint64_t>::max())) {}

InputArrayCreator::~InputArrayCreator() = default;

void InputArrayCreator::refuse(const std::string& why) const {
    throw Anchor::LimitError(
        fmt::format("{}: {}: {}", Anchor::printable(input_->path()), Anchor::printable(array_.object), why));
}

Sheaf::CachedCreator::Made InputArrayCreator::make() const {
    input_->tick(0);
    if (const std::uint64_t most = input_->options().MaximumArrayBytes; bytes_ > most)
        refuse(fmt::format(
            fmt::runtime(extents()->elementCount() == 0
                             ? "has no elements, and yet extents that stand for {} bytes, and {} are allowed"
                             : "needs {} bytes of memory, and {} are allowed"),
            bytes_, most));
    Made made;
    Sheaf::visitElementType(elementType(), [&](auto tag) {
        using T = typename decltype(tag)::type;
        const Sheaf::Extents shape = *extents();
        const std::uint64_t count = shape.elementCount().value_or(std::numeric_limits<std::uint64_t>::max());
        Elements<T> elements(count, bytes_, [this](const std::string& why) { refuse(why); });
        input_->read(array_, elements);
        made.array = Sheaf::makeArray(shape, elements.release());
    });
    input_->tick(1);
    return made;
}

} // namespace Tidewatch
