// SPDX-License-Identifier: Apache-2.0
#include "library/points/TileCreator.hpp"

#include "sheaf/MemArray.hpp"

#include <span>
#include <utility>

namespace Tidewatch {

TileCreator::TileCreator(std::shared_ptr<const TileData> data, const std::type_info& elementType,
                         std::size_t elementSize, std::size_t bytesBefore)
    : CachedCreator(elementType, Sheaf::Extents{data->points}),
      data_(std::move(data)),
      elementSize_(elementSize),
      bytesBefore_(bytesBefore) {}

TileCreator::~TileCreator() = default;

Sheaf::CachedCreator::Made TileCreator::make() const {
    Made made;
    Sheaf::visitElementType(elementType(), [&](auto tag) {
        using T = typename decltype(tag)::type;
        std::vector<T> elements(data_->points);
        std::span<T> rest = elements;
        for (const TileData::Block& block : data_->blocks) {
            const auto part = rest.first(block.points);
            data_->file->read(block.offset + block.points * bytesBefore_, std::as_writable_bytes(part));
            rest = rest.subspan(block.points);
        }
        made.array = Sheaf::makeArray(std::move(elements));
    });
    return made;
}

} // namespace Tidewatch
