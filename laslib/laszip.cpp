// SPDX-License-Identifier: Apache-2.0
#include "laszip.hpp"

#include <algorithm>
#include <cstdio>
#include <vector>

bool LASzip::setup(unsigned short* numItems, LASitem** items, unsigned char pointType,
                   unsigned short pointSize) {
    const bool isExtended = pointType >= 6 && pointType <= 8;
    if (pointType > 3 && !isExtended)
        return false;
    std::vector<LASitem> parts;
    if (isExtended) {
        parts.push_back({LASitem::POINT14, 30});
        if (pointType == 7)
            parts.push_back({LASitem::RGB14, 6});
        if (pointType == 8)
            parts.push_back({LASitem::RGBNIR14, 8});
    } else {
        parts.push_back({LASitem::POINT10, 20});
        if (pointType == 1 || pointType == 3)
            parts.push_back({LASitem::GPSTIME11, 8});
        if (pointType == 2 || pointType == 3)
            parts.push_back({LASitem::RGB12, 6});
    }
    int extra = pointSize;
    for (const LASitem& part : parts)
        extra -= part.size;
    if (extra > 0) {
        parts.push_back({isExtended ? LASitem::BYTE14 : LASitem::BYTE, static_cast<unsigned short>(extra)});
    } else if (extra < 0) {
        std::fprintf(
            stderr,
            "WARNING: point size %d too small by %d bytes for point type %d. assuming point_size of %d\n",
            int{pointSize}, -extra, int{pointType}, pointSize - extra);
    }
    *numItems = static_cast<unsigned short>(parts.size());
    *items = new LASitem[parts.size()];
    std::copy(parts.begin(), parts.end(), *items);
    return true;
}
