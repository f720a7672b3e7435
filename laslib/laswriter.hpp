// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "lasdefinitions.hpp"
#include "laspoint.hpp"
#include "lasquantizer.hpp"
#include "lasutility.hpp"
#include "laszip.hpp"
#include "mydefs.hpp"

#include <string>

/// Writes the points of one file.
///
/// An output error does not stop it: what follows is counted but no longer written, and every operation says
/// false from then on.
class LASwriter {
public:
    LASquantizer quantizer;
    /// The points that the header has been told of, and those that have been written.
    I64 npoints = 0;
    I64 p_count = 0;
    LASinventory inventory;

    LASwriter() = default;
    LASwriter(const LASwriter&) = delete;
    LASwriter& operator=(const LASwriter&) = delete;
    /// Closes the file where close() has not.
    virtual ~LASwriter();

    /// Writes a point that was prepared for the header's format and length.
    virtual BOOL write_point(const LASpoint* point) = 0;

    virtual void update_inventory(const LASpoint* point) { inventory.add(point); }

    /// Writes the counts and the extent of a header into the file, and with `update_extra_bytes` the content
    /// of its record of attributes. Counts of the inventory (`use_inventory`) are not supported: false.
    virtual BOOL update_header(const LASheader* header, BOOL use_inventory = false,
                               BOOL update_extra_bytes = false) = 0;

    /// Completes the file; with `update_npoints` its count becomes p_count where it was told another.
    ///
    /// Gives the bytes of the file, as a negative number when some of them did not arrive: the sign is how
    /// this library tells of an output error that no earlier call could see. 0 after the first call.
    virtual I64 close(BOOL update_npoints = true) = 0;
};

/// Opens files for writing.
class LASwriteOpener {
public:
    void set_file_name(const CHAR* name);

    /// Makes the file and writes the header: a compressed file where the name ends in ".laz", else a plain
    /// one. The caller deletes the writer. Null, with messages on standard error, where there is no name, the
    /// file cannot be made, or the header's sizes or point format are not possible.
    LASwriter* open(const LASheader* header);

private:
    std::string name_;
};
