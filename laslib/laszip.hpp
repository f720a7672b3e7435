// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mydefs.hpp"

/// A part of a point record that is stored and compressed as one.
class LASitem {
public:
    enum Type {
        BYTE = 0,
        POINT10 = 6,
        GPSTIME11 = 7,
        RGB12 = 8,
        POINT14 = 10,
        RGB14 = 11,
        RGBNIR14 = 12,
        BYTE14 = 14
    };

    Type type = BYTE;
    unsigned short size = 0;
    unsigned short version = 0;
};

/// The parts that records of a point format consist of.
class LASzip {
public:
    /// Lays out the records of a point format (0 to 3 and 6 to 8), `pointSize` bytes each; what exceeds the
    /// format's own size becomes extra bytes. A size that is too small is warned of on standard error and
    /// taken for the format's own.
    ///
    /// False for other formats, and nothing is stored. The items come from new[] and become the caller's.
    bool setup(unsigned short* numItems, LASitem** items, unsigned char pointType, unsigned short pointSize);
};
