// SPDX-License-Identifier: Apache-2.0
//
// Writes seeds of CommandLineFuzz into the folder given: a line for each argument.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fputs("usage: seeds-CommandLine FOLDER\n", stderr);
        return 2;
    }
    const char* const seeds[] = {
        "las\nsurvey.laz\n-o\nout/{grid}-{time}.las\n--las-version\n1.2\n--rename\nEcho=UserData\n--scale\n0.01,0.01,0.001",
        "las\na.laz\nb.laz\n--merge\n--grid-name\nall\n-o\nc.laz\n--class\n2,9\n--returns\nfirst,3\n--box\n0,0,10,10,-5,5",
        "pcd\nsurvey.laz\n-o\na.pcd\n--cell-size\n0.5\n--precision\n6\n--time\n0:6\n--memory-limit\n2G",
        "pcd\n--output=a.pcd\n--no-thinning\n--exact-counts\n--\n-odd",
        "ascii\ndem.tif\n-o\ngrids\n--cell-types\n1:2,5\n--precision\n2\n--append\n--tile-suffix\n--ref-level\n-2",
        "bundle\na.laz\nb.laz\n--slice-time\n6,18\n-o\nday.h5\n--strict\n--accept\nrange,rounding",
        "info\na.h5\n--stats\n--json\n--crs\nEPSG:25832+5783",
        "check\na.laz\n--progress\nalways",
        "view\na.laz\n-o\na.png\n--size\n640x480\n--color\nheight",
        "sample\n--points\n100\n--seed\n7\n-o\na.h5",
        "--help",
        "las\n--help",
    };
    const std::filesystem::path folder = argv[1];
    std::filesystem::create_directories(folder);
    for (std::size_t seed = 0; seed < std::size(seeds); ++seed)
        std::ofstream(folder / std::to_string(seed), std::ios::binary) << seeds[seed];
    return 0;
}
