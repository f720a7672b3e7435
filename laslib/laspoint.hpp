// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "LittleEndian.hpp"
#include "lasattributer.hpp"
#include "lasquantizer.hpp"
#include "laszip.hpp"
#include "mydefs.hpp"

/// One point as passed to a writer; reused for the next point.
///
/// Fields come in two ranges: those of the older formats (0 to 5), and the wider extended ones of formats 6
/// and up. A writer uses those that its format has. The order of the fields up to the second return numbers
/// is that of the compressor's own point.
class LASpoint {
public:
    LASpoint();
    ~LASpoint();
    LASpoint(const LASpoint&) = delete;
    LASpoint& operator=(const LASpoint&) = delete;

    I32 X;
    I32 Y;
    I32 Z;
    U16 intensity;
    U8 return_number : 3;
    U8 number_of_returns : 3;
    U8 scan_direction_flag : 1;
    U8 edge_of_flight_line : 1;
    U8 classification : 5;
    U8 synthetic_flag : 1;
    U8 keypoint_flag : 1;
    U8 withheld_flag : 1;
    I8 scan_angle_rank;
    U8 user_data;
    U16 point_source_ID;
    I16 extended_scan_angle;
    U8 extended_point_type : 2;
    U8 extended_scanner_channel : 2;
    U8 extended_classification_flags : 4;
    U8 extended_classification;
    U8 extended_return_number : 4;
    U8 extended_number_of_returns : 4;
    F64 gps_time;
    U16 rgb[4];

    /// Bytes after the fields of the format; null if the records have none. The memory is padded to a
    /// multiple of extraBytesStep.
    U8* extra_bytes = nullptr;
    I32 extra_bytes_number = 0;

    static constexpr I32 extraBytesStep = 8;

    const LASquantizer* quantizer = nullptr;
    const LASattributer* attributer = nullptr;

    LASitem* items = nullptr;
    U16 num_items = 0;

    /// Prepares the point for records of a format and length: all fields and extra bytes zero, return 1 of 1.
    /// False, with a message on standard error, for an unknown format. The quantizer and attributer are
    /// referenced, not copied.
    BOOL init(const LASquantizer* quantizer, U8 point_type, U16 point_size,
              const LASattributer* attributer = nullptr);

    /// Resets to the state of a new point: no items, no extra bytes.
    void clean();

    /// Sets all fields to zero, but return 1 of 1.
    void zero();

    /// Not in LASlib: takes over all fields and extra bytes of a point that was prepared for the same records.
    void copy_fields(const LASpoint& other);

    /// Stores the value of an attribute that starts at `start` in the extra bytes; nothing is checked.
    // Changes data behind a pointer. NOLINTNEXTLINE(readability-make-member-function-const)
    void set_attribute(I32 start, U16 value) {
        LittleEndianWriter(reinterpret_cast<char*>(extra_bytes) + start).put(value);
    }
};
