// SPDX-License-Identifier: Apache-2.0
#include "laswriter.hpp"

#include "laswriterlas.hpp"

#include <cstdio>
#include <memory>

LASwriter::~LASwriter() = default;

void LASwriteOpener::set_file_name(const CHAR* name) {
    name_ = name != nullptr ? name : "";
}

LASwriter* LASwriteOpener::open(const LASheader* header) {
    if (name_.empty()) {
        std::fprintf(stderr, "ERROR: no laswriter output specified\n");
        return nullptr;
    }
    auto writer = std::make_unique<LASwriterLAS>();
    const bool compressed = name_.ends_with(".laz") || name_.ends_with(".LAZ");
    if (!writer->open(name_.c_str(), *header, compressed)) {
        std::fprintf(stderr, "ERROR: cannot open laswriterlas with file name '%s'\n", name_.c_str());
        return nullptr;
    }
    return writer.release();
}
