// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/ReadOptions.hpp"
#include "readers/bundle/hdf5/Dataset.hpp"
#include "readers/bundle/hdf5/OpenFile.hpp"
#include "sheaf/CachedCreator.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <typeinfo>
#include <utility>
#include <vector>

namespace Tidewatch {

/// An open bundle file and how it is to be read; shared by all creators of its arrays.
struct BundleSource {
    /// Opens the file; throws what Hdf5::OpenFile throws.
    BundleSource(const std::string& path, ConvLib::ReadOptions readOptions)
        : file(path),
          options(std::move(readOptions)) {}

    Hdf5::OpenFile file;
    ConvLib::ReadOptions options;

    /// Tells the host how far the array in hand is; the host may throw.
    void tick(double share) const {
        if (options.Tick)
            options.Tick(file.path(), share);
    }
};

/// The bytes of an array as a file states it, for comparison with ReadOptions::MaximumArrayBytes; nullopt
/// where they exceed 64 bits. An extent of 0 counts as 1: an array without elements takes no memory, but
/// going through its rows takes time, and text exporters write a line for each of them.
[[nodiscard]] std::optional<std::uint64_t> claimedBytes(const Sheaf::Extents& extents,
                                                        std::uint64_t elementSize);

/// Reads the array of one fragment from its dataset.
class BundleArrayCreator final : public Sheaf::CachedCreator {
public:
    /// Throws Anchor::FormatError when the dataset's numbers or extents do not go with the element type. Null
    /// as an element type stands for the dataset's own number type.
    [[nodiscard]] static Anchor::StrongPtr<BundleArrayCreator>
    make(std::shared_ptr<const BundleSource> source, const Hdf5::Dataset& dataset,
         const std::type_info* element);

    ~BundleArrayCreator() override;

protected:
    [[nodiscard]] Made make() const override;
    [[nodiscard]] std::uint64_t bytesToMake() const override { return bytes_; }

private:
    BundleArrayCreator(std::shared_ptr<const BundleSource> source, const Hdf5::Dataset& dataset,
                       const std::type_info& element, const Sheaf::Extents& extents, std::uint64_t bytes);

    [[nodiscard]] Hdf5::Dataset openAgain() const;

    std::shared_ptr<const BundleSource> source_;
    std::string path_;
    Hdf5::NumberType number_;
    std::vector<std::uint64_t> datasetExtents_;
    std::uint64_t bytes_;
};

} // namespace Tidewatch
