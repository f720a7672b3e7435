// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "readers/las/LasFile.hpp"
#include "readers/las/Layer.hpp"
#include "readers/las/Point.hpp"
#include "sheaf/FieldEncoding.hpp"
#include "sheaf/MemBase.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <typeinfo>
#include <vector>

namespace Tidewatch {

/// Collects the values of one field while points are being decoded, possibly by several threads.
class LasColumn {
public:
    virtual ~LasColumn() = default;

    /// Allocates the memory of all values. To be called once, before the others.
    virtual void begin() = 0;

    /// Takes the values of a block of points, the first of which is value number `first`. Threads may take different
    /// blocks at the same time.
    virtual void take(std::uint64_t first, std::span<const Las::Point> points) = 0;

    /// The array of all values; the column is empty afterwards.
    [[nodiscard]] virtual Anchor::StrongPtr<Sheaf::MemBase> finish() = 0;
};

/// A field made from a LAS file: its name, its element type, and how its values are collected.
struct LasField {
    std::string name;
    const std::type_info* elementType;
    std::size_t elementSize; ///< bytes

    /// Creates a column for a number of points. Empty only for the field of colours, whose values depend on
    /// the whole file.
    std::function<std::unique_ptr<LasColumn>(std::uint64_t points)> makeColumn;

    /// Whether it is created along with other fields only as long as the cache has room: fields that few
    /// programs use, and extra bytes, of which there may be thousands.
    bool isMinor = false;

    /// What has to be decoded of points that are compressed in layers.
    Las::Layers layers = Las::allLayers;

    /// How the file stores the values; nothing for fields that the point format defines.
    std::optional<Sheaf::FieldEncoding> encoding = {};

    [[nodiscard]] bool isColours() const noexcept { return !makeColumn; }
};

/// The fields of a file: those of its point format, then one for each number of its described extra bytes.
/// Names are unique and valid as field names.
[[nodiscard]] std::vector<LasField> lasFields(const Las::LasFile& file);

} // namespace Tidewatch
