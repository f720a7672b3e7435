// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "lasattributer.hpp"
#include "lasquantizer.hpp"
#include "mydefs.hpp"

#include <utility>
#include <vector>

/// A variable length record of a file.
struct LASvlr {
    /// Bytes of a record's own header (LAS 1.4 R15, table 7).
    static constexpr std::size_t headerSize = 54;

    U16 reserved = 0;
    CHAR user_id[16]{};
    U16 record_id = 0;
    CHAR description[32]{};
    std::vector<U8> data;
};

/// The public header block of a file with its variable length records (LAS 1.4 R15, table 3).
///
/// A new header, including its sizes, is that of a LAS 1.2 file with point format 0 and no points; code that changes
/// the version or the format must set the sizes, too.
class LASheader : public LASquantizer, public LASattributer {
public:
    CHAR file_signature[4]{'L', 'A', 'S', 'F'};
    U16 file_source_ID = 0;
    U16 global_encoding = 0;
    U32 project_ID_GUID_data_1 = 0;
    U16 project_ID_GUID_data_2 = 0;
    U16 project_ID_GUID_data_3 = 0;
    U8 project_ID_GUID_data_4[8]{};
    U8 version_major = 1;
    U8 version_minor = 2;
    CHAR system_identifier[32]{};
    CHAR generating_software[32]{};
    U16 file_creation_day = 0;
    U16 file_creation_year = 0;
    U16 header_size = 227;
    U32 offset_to_point_data = 227;
    U32 number_of_variable_length_records = 0;
    U8 point_data_format = 0;
    U16 point_data_record_length = 20;
    U32 number_of_point_records = 0;
    U32 number_of_points_by_return[5]{};
    F64 max_x = 0;
    F64 min_x = 0;
    F64 max_y = 0;
    F64 min_y = 0;
    F64 max_z = 0;
    F64 min_z = 0;
    // LAS 1.3 and later.
    U64 start_of_waveform_data_packet_record = 0;
    // LAS 1.4.
    U64 start_of_first_extended_variable_length_record = 0;
    U32 number_of_extended_variable_length_records = 0;
    U64 extended_number_of_point_records = 0;
    U64 extended_number_of_points_by_return[15]{};

    std::vector<LASvlr> vlrs;
    /// Extended records, which follow the points; see add_trailing_record().
    std::vector<LASvlr> trailingRecords;

    /// Adds a record, whose user id and description are cut at 16 and 31 bytes. `data` comes from new[] and
    /// becomes the header's. Without `keep_existing` it replaces one with the same ids, whose description
    /// `keep_description` retains. Without a description it gets LASlib's default. Updates the count of
    /// records and the offset to the points. Always true.
    BOOL add_vlr(const CHAR* user_id, U16 record_id, U16 record_length, U8* data,
                 BOOL keep_description = false, const CHAR* description = nullptr,
                 BOOL keep_existing = false);

    /// Adds an extended record, for LAS 1.4 only; LASlib has no such function.
    void add_trailing_record(LASvlr record) { trailingRecords.push_back(std::move(record)); }

    /// Updates the record that describes the attributes; creates it with the first attribute. Adjusts the number of
    /// records and the offset to the points. Always true.
    BOOL update_extra_bytes_vlr();
};
