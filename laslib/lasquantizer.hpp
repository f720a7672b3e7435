// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mydefs.hpp"

/// How the coordinates of a file are stored: coordinate = factor * integer + offset, axis by axis.
class LASquantizer {
public:
    F64 x_scale_factor = 0.01;
    F64 y_scale_factor = 0.01;
    F64 z_scale_factor = 0.01;
    F64 x_offset = 0;
    F64 y_offset = 0;
    F64 z_offset = 0;
};
