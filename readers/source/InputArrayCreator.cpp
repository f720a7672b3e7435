// SPDX-License-Identifier: Apache-2.0
#include "readers/source/InputArrayCreator.hpp"

#include "anchor/Error.hpp"
#include "anchor/printable.hpp"
#include "readers/source/claimedBytes.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/MemArray.hpp"

#include <algorithm>
#include <limits>
#include <new>
#include <span>
#include <stdexcept>
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
        std::vector<T> elements;
        const auto refuseForMemory = [&] {
            refuse(fmt::format("there is not enough memory for its {} bytes", bytes_));
        };
        try {
            const std::uint64_t count =
                shape.elementCount().value_or(std::numeric_limits<std::uint64_t>::max());
            elements.reserve(count);
            // The system provides memory as it is filled, gigabytes of it in seconds.
            constexpr std::uint64_t block = std::uint64_t{4} << 20;
            while (elements.size() < count) {
                elements.resize(std::min(count, elements.size() + block));
                input_->tick(0);
            }
        } catch (const std::bad_alloc&) {
            refuseForMemory();
        } catch (const std::length_error&) {
            refuseForMemory();
        }
        input_->read(array_, std::as_writable_bytes(std::span(elements)));
        made.array = Sheaf::makeArray(shape, std::move(elements));
    });
    input_->tick(1);
    return made;
}

} // namespace Tidewatch
