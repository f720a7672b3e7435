// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "lasdefinitions.hpp"
#include "laspoint.hpp"
#include "lasquantizer.hpp"
#include "lasutility.hpp"
#include "laszip.hpp"
#include "mydefs.hpp"

#include <cstddef>
#include <functional>
#include <string>

/// Calls its second argument with 0 to pieces - 1, once each, on any threads; returns when all calls have. The second
/// argument does not throw.
using RunPieces = std::function<void(std::size_t pieces, const std::function<void(std::size_t)>& piece)>;

/// Writes the points of one file.
///
/// An output error does not stop it: further data is counted but no longer written, and every operation
/// returns false from then on.
class LASwriter {
public:
    LASquantizer quantizer;
    /// The number of points in the header, and the number that has been written.
    I64 npoints = 0;
    I64 p_count = 0;
    LASinventory inventory;

    LASwriter() = default;
    LASwriter(const LASwriter&) = delete;
    LASwriter& operator=(const LASwriter&) = delete;
    /// Closes the file unless close() already has.
    virtual ~LASwriter();

    /// Not in LASlib, where this macro is missing: from now on `run`, which calls so many pieces at the same time, does
    /// what can be done side by side. Only before the first point. The file has the same bytes.
#define TIDEWATCH_LASLIB_SIDE_BY_SIDE
    virtual void work_side_by_side(std::size_t /*workers*/, RunPieces /*run*/) {}

    /// Writes a point that was prepared for the header's format and length.
    virtual BOOL write_point(const LASpoint* point) = 0;

    using PutPoint = std::function<void(const LASpoint& point)>;
    /// Passes the points `begin` to before `end` to `put`, one after the other. Called for several ranges at the same
    /// time, on any threads. A std::bad_alloc that it throws is an output error.
    using MakePoints = std::function<void(std::size_t begin, std::size_t end, const PutPoint& put)>;

    /// Not in LASlib: writes `count` points, numbered from 0, each of which `make` makes once. After work_side_by_side().
    virtual BOOL write_points(std::size_t count, const MakePoints& make) {
        bool accepted = true;
        make(0, count, [&](const LASpoint& point) { accepted = write_point(&point) && accepted; });
        return accepted;
    }

    virtual void update_inventory(const LASpoint* point) {
        inventory.add(point);
    }

    /// Writes the counts and the extent of a header into the file, and with `update_extra_bytes` the content
    /// of its record of attributes. Counts of the inventory (`use_inventory`) are not supported: false.
    virtual BOOL update_header(const LASheader* header, BOOL use_inventory = false,
                               BOOL update_extra_bytes = false) = 0;

    /// Completes the file; with `update_npoints` the header's count becomes p_count if it differs.
    ///
    /// Returns the size of the file in bytes, negated if some of them could not be written: the sign reports
    /// an output error that no earlier call could detect. 0 after the first call.
    virtual I64 close(BOOL update_npoints = true) = 0;
};

/// Opens files for writing.
class LASwriteOpener {
public:
    void set_file_name(const CHAR* name);

    /// Creates the file and writes the header: a compressed file if the name ends in ".laz", else a plain
    /// one. The caller deletes the writer. Null, with messages on standard error, if there is no name, the
    /// file cannot be created, or the header's sizes or point format are invalid.
    LASwriter* open(const LASheader* header);

private:
    std::string name_;
};
