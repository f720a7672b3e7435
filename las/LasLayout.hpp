// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "las/LasPlan.hpp"
#include "sheaf/FieldEncoding.hpp"
#include "sheaf/FileRecord.hpp"
#include "sheaf/Grid.hpp"

#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace ExportLib {

/// The layout of the records of a grid's files, and what headers get from the grid. It depends only on names,
/// element types and statements; a run of the exporter and its plan share it.
struct LasLayout {
    unsigned pointFormat = 0;
    /// Bytes of a record.
    std::size_t recordLength = 0;
    bool hasColors = false;
    bool hasNearInfrared = false;
    /// Where the contract's attributes begin in the extra bytes; nothing without them.
    std::optional<std::size_t> amplitudeStart = {};
    std::optional<std::size_t> reflectanceStart = {};
    /// Other fields in the extra bytes.
    std::vector<LasPlan::ExtraBytes> extras = {};
    /// Fields that do not fit, with the reason.
    std::map<std::string, std::string> withoutRoom = {};
    /// Records of the grid that go into headers, and those that do not, with the reason.
    std::vector<Sheaf::FileRecord> records = {};
    std::vector<LasPlan::RecordLeftOut> recordsLeftOut = {};
    /// Notes for users on names.
    std::vector<std::string> notes = {};

    /// `renames` is the rename map in force, `useField` the exporter's question, called only if settings say
    /// that the grid is carried. Nothing for a version that is not supported.
    [[nodiscard]] static std::optional<LasLayout> of(const Sheaf::Grid& grid,
                                                     const Sheaf::Representation& reference,
                                                     const LasSettings& settings,
                                                     const std::map<std::string, std::string>& renames,
                                                     const std::function<bool(const std::string&)>& useField);
};

/// Whether a field named as one of the contract's extra bytes was read from extra bytes with another
/// encoding, which it keeps if the grid is carried.
[[nodiscard]] bool keepsOwnEncoding(const std::string& name, const Sheaf::Field& field);

/// The encodings of the contract's own extra bytes.
[[nodiscard]] Sheaf::FieldEncoding reflectanceEncoding();
[[nodiscard]] Sheaf::FieldEncoding amplitudeEncoding();

/// How one axis is stored.
struct LasAxis {
    double step;
    double offset;
};

/// How the axes of a file are stored for a box, x first; an axis on which the box is empty counts as 0 to 0.
/// The settings take precedence; then, if the grid is carried, what it states if the box fits, else a coarser
/// step that fits; otherwise steps of 0.00025 from the box's centre, rounded down to whole numbers.
[[nodiscard]] std::array<LasAxis, 3> axesFor(const std::array<double, 3>& lower,
                                             const std::array<double, 3>& upper, const LasSettings& settings,
                                             const Sheaf::FileStatement& statement);

/// Where a record goes in a file of a version: in the header, as an extended record behind the points (which
/// not all writers support), or nowhere.
enum class RecordPlace { Header, BehindPoints, Nowhere };
[[nodiscard]] RecordPlace placeOfRecord(const Sheaf::FileRecord& record, int version) noexcept;

} // namespace ExportLib
