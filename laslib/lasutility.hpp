// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "laspoint.hpp"
#include "mydefs.hpp"

/// What a run of points comes to: how many there are, of which return, and how far they reach.
class LASinventory {
public:
    /// Points by return number: places 1 to 15 count returns, place 0 counts points without one.
    I64 extended_number_of_point_records = 0;
    I64 extended_number_of_points_by_return[16]{};
    /// Extremes of the stored integers; 0 while there is no point.
    I32 max_X = 0;
    I32 min_X = 0;
    I32 max_Y = 0;
    I32 min_Y = 0;
    I32 max_Z = 0;
    I32 min_Z = 0;

    BOOL add(const LASpoint* point);
};
