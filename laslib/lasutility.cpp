// SPDX-License-Identifier: Apache-2.0
#include "lasutility.hpp"

BOOL LASinventory::add(const LASpoint* point) {
    const bool isFirst = extended_number_of_point_records == 0;
    ++extended_number_of_point_records;
    ++extended_number_of_points_by_return[point->extended_point_type != 0 ? point->extended_return_number
                                                                          : point->return_number];
    const auto widen = [isFirst](I32& low, I32& high, I32 value) {
        low = isFirst || value < low ? value : low;
        high = isFirst || value > high ? value : high;
    };
    widen(min_X, max_X, point->X);
    widen(min_Y, max_Y, point->Y);
    widen(min_Z, max_Z, point->Z);
    return true;
}
