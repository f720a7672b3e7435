// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "readers/las/LasFile.hpp"
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

/// Collects the values of one field while points are being decoded.
class LasColumn {
public:
    virtual ~LasColumn() = default;

    /// Appends the values of a block of points.
    virtual void take(std::span<const Las::Point> points) = 0;

    /// The array of everything that was taken; the column is empty afterwards.
    [[nodiscard]] virtual Anchor::StrongPtr<Sheaf::MemBase> finish() = 0;
};

/// A field that a LAS file becomes: its name, its element type, and how its values are collected.
struct LasField {
    std::string name;
    const std::type_info* elementType;
    std::size_t elementSize; ///< bytes

    /// Makes a column for a number of points. Empty for the field of colours alone, whose values depend on
    /// the whole file.
    std::function<std::unique_ptr<LasColumn>(std::uint64_t points)> makeColumn;

    /// Whether it comes along with other fields only as far as the cache has room: what few programs ask for, and the
    /// extra bytes, of which there may be thousands.
    bool isMinor = false;

    /// How the file stores the values; nothing where the format of the points says so.
    std::optional<Sheaf::FieldEncoding> encoding = {};

    [[nodiscard]] bool isColours() const noexcept { return !makeColumn; }
};

/// The fields of a file: those of its point format, then one for each number of its described extra bytes.
/// Names are unique and fit to be names of fields.
[[nodiscard]] std::vector<LasField> lasFields(const Las::LasFile& file);

} // namespace Tidewatch
