// SPDX-License-Identifier: Apache-2.0
//
// LASpoint::init() comes here, so that it may end the process too. The layout is that of laslib/, whose class
// is compiled under another name.
#include "standin.hpp"

#define LASzip PlainLASzip
#include "laslib/laszip.cpp" // NOLINT(bugprone-suspicious-include)
#undef LASzip

class LASzip {
public:
    bool setup(unsigned short* numItems, LASitem** items, unsigned char pointType, unsigned short pointSize);
};

bool LASzip::setup(unsigned short* numItems, LASitem** items, unsigned char pointType,
                   unsigned short pointSize) {
    Standin::endWhileHalting();
    return PlainLASzip().setup(numItems, items, pointType, pointSize);
}
