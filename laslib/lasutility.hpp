// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "laspoint.hpp"
#include "mydefs.hpp"

#include <algorithm>

/// Statistics of a sequence of points: their number, counts by return, and extremes.
class LASinventory {
public:
    /// Points by return number: entries 1 to 15 count returns, entry 0 counts points without one.
    I64 extended_number_of_point_records = 0;
    I64 extended_number_of_points_by_return[16]{};
    /// Extremes of the stored integers; 0 while there is no point.
    I32 max_X = 0;
    I32 min_X = 0;
    I32 max_Y = 0;
    I32 min_Y = 0;
    I32 max_Z = 0;
    I32 min_Z = 0;

    BOOL add(const LASpoint* point) {
        ++extended_number_of_points_by_return[point->extended_point_type != 0 ? point->extended_return_number
                                                                              : point->return_number];
        if (extended_number_of_point_records++ == 0) {
            min_X = max_X = point->X;
            min_Y = max_Y = point->Y;
            min_Z = max_Z = point->Z;
            return true;
        }
        min_X = std::min(min_X, point->X);
        max_X = std::max(max_X, point->X);
        min_Y = std::min(min_Y, point->Y);
        max_Y = std::max(max_Y, point->Y);
        min_Z = std::min(min_Z, point->Z);
        max_Z = std::max(max_Z, point->Z);
        return true;
    }
};
