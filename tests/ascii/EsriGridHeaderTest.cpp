// SPDX-License-Identifier: Apache-2.0
#include "ascii/EsriGridHeader.hpp"

#include "support/TemporaryFolder.hpp"

#include <fstream>
#include <limits>

#include <gtest/gtest.h>

namespace {

std::string textOf(const ExportLib::EsriGridHeader& header) {
    const Support::TemporaryFolder folder;
    {
        std::ofstream out(folder / "header");
        ConvLib::LineWriter lines(out, true);
        header.write(lines);
    }
    return Support::readBytes(folder / "header");
}

TEST(EsriGridHeader, SixLinesOfKeyBlankAndValue) {
    EXPECT_EQ(textOf({4, 3, 10, 20, 0.5}), "NCOLS 4\n"
                                           "NROWS 3\n"
                                           "XLLCENTER 10.000\n"
                                           "YLLCENTER 20.000\n"
                                           "CELLSIZE 0.500\n"
                                           "NODATA_VALUE -9999.\n");
}

TEST(EsriGridHeader, LengthsHaveThreeDecimalsWhateverTheirSize) {
    EXPECT_EQ(textOf({0, std::numeric_limits<std::uint64_t>::max(), -0.0004, 1e15, 0.00025}),
              "NCOLS 0\n"
              "NROWS 18446744073709551615\n"
              "XLLCENTER -0.000\n"
              "YLLCENTER 1000000000000000.000\n"
              "CELLSIZE 0.000\n"
              "NODATA_VALUE -9999.\n");
}

TEST(EsriGridHeader, LengthsThatAreNoNumbersAreWrittenAsWords) {
    constexpr double infinity = std::numeric_limits<double>::infinity();
    EXPECT_EQ(textOf({1, 1, infinity, -infinity, 1}), "NCOLS 1\n"
                                                      "NROWS 1\n"
                                                      "XLLCENTER inf\n"
                                                      "YLLCENTER -inf\n"
                                                      "CELLSIZE 1.000\n"
                                                      "NODATA_VALUE -9999.\n");
}

} // namespace
