// SPDX-License-Identifier: Apache-2.0
#include "laspoint.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <iterator>

LASpoint::LASpoint() {
    zero();
    extended_point_type = 0;
}

LASpoint::~LASpoint() {
    clean();
}

void LASpoint::clean() {
    zero();
    delete[] extra_bytes;
    extra_bytes = nullptr;
    extra_bytes_number = 0;
    delete[] items;
    items = nullptr;
    num_items = 0;
    quantizer = nullptr;
    attributer = nullptr;
    extended_point_type = 0;
}

void LASpoint::zero() {
    X = Y = Z = 0;
    intensity = 0;
    return_number = 1;
    number_of_returns = 1;
    scan_direction_flag = 0;
    edge_of_flight_line = 0;
    classification = 0;
    synthetic_flag = 0;
    keypoint_flag = 0;
    withheld_flag = 0;
    scan_angle_rank = 0;
    user_data = 0;
    point_source_ID = 0;
    extended_scan_angle = 0;
    extended_scanner_channel = 0;
    extended_classification_flags = 0;
    extended_classification = 0;
    extended_return_number = 1;
    extended_number_of_returns = 1;
    gps_time = 0;
    rgb[0] = rgb[1] = rgb[2] = rgb[3] = 0;
}

void LASpoint::copy_fields(const LASpoint& other) {
    X = other.X;
    Y = other.Y;
    Z = other.Z;
    intensity = other.intensity;
    return_number = other.return_number;
    number_of_returns = other.number_of_returns;
    scan_direction_flag = other.scan_direction_flag;
    edge_of_flight_line = other.edge_of_flight_line;
    classification = other.classification;
    synthetic_flag = other.synthetic_flag;
    keypoint_flag = other.keypoint_flag;
    withheld_flag = other.withheld_flag;
    scan_angle_rank = other.scan_angle_rank;
    user_data = other.user_data;
    point_source_ID = other.point_source_ID;
    extended_scan_angle = other.extended_scan_angle;
    extended_scanner_channel = other.extended_scanner_channel;
    extended_classification_flags = other.extended_classification_flags;
    extended_classification = other.extended_classification;
    extended_return_number = other.extended_return_number;
    extended_number_of_returns = other.extended_number_of_returns;
    gps_time = other.gps_time;
    std::copy(std::begin(other.rgb), std::end(other.rgb), std::begin(rgb));
    std::copy_n(other.extra_bytes, other.extra_bytes_number, extra_bytes);
}

BOOL LASpoint::init(const LASquantizer* pointQuantizer, U8 point_type, U16 point_size,
                    const LASattributer* pointAttributer) {
    clean();
    if (!LASzip().setup(&num_items, &items, point_type, point_size)) {
        std::fprintf(stderr, "ERROR: unknown point type %d with point size %d\n", int{point_type},
                     int{point_size});
        return false;
    }
    for (U16 i = 0; i < num_items; ++i) {
        if (items[i].type == LASitem::POINT14)
            extended_point_type = 1;
        if (items[i].type == LASitem::BYTE || items[i].type == LASitem::BYTE14) {
            // Padded to whole steps, so that a writer can copy step by step.
            constexpr std::size_t step = extraBytesStep;
            extra_bytes = new U8[(items[i].size + step - 1) / step * step]{};
            extra_bytes_number = items[i].size;
        }
    }
    quantizer = pointQuantizer;
    attributer = pointAttributer;
    return true;
}
