// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mydefs.hpp"

/// A part of a point record that is stored and compressed as a unit.
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

/// The parts of the records of a point format.
class LASzip {
public:
    /// Lays out the records of a point format (0 to 3 and 6 to 8), `pointSize` bytes each; bytes beyond the
    /// format's own size become extra bytes. A size that is too small causes a warning on standard error and
    /// is replaced by the format's own.
    ///
    /// False for other formats, and nothing is stored. The items are allocated with new[]; the caller owns
    /// them.
    bool setup(unsigned short* numItems, LASitem** items, unsigned char pointType, unsigned short pointSize);
};
