// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/output/ScratchFile.hpp"
#include "sheaf/CachedCreator.hpp"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <typeinfo>
#include <vector>

namespace Tidewatch {

/// The points of one square in a scratch file: blocks, each with the values of some points, field by field.
struct TileData {
    struct Block {
        std::uint64_t offset;
        std::uint64_t points;
    };

    std::shared_ptr<const ScratchFile> file;
    std::uint64_t points = 0;
    std::vector<Block> blocks; // in the order of the points
};

/// Creates the array of one field of a square.
class TileCreator final : public Sheaf::CachedCreator {
public:
    /// `bytesBefore`: bytes of a point's values of the fields before this one.
    TileCreator(std::shared_ptr<const TileData> data, const std::type_info& elementType,
                std::size_t elementSize, std::size_t bytesBefore);
    ~TileCreator() override;

protected:
    [[nodiscard]] Made make() const override;
    [[nodiscard]] std::uint64_t bytesToMake() const override { return data_->points * elementSize_; }

private:
    std::shared_ptr<const TileData> data_;
    std::size_t elementSize_;
    std::size_t bytesBefore_;
};

} // namespace Tidewatch
