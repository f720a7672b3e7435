// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "host/export/Export.hpp"

#include <map>
#include <string>

namespace Tidewatch {

/// `tidewatch las`: the settings are those of ExportLib::ExportPointCloudToLas, and so are their defaults.
struct LasRequest {
    LasRequest();

    ExportOptions common;
    int day;
    int year;
    /// The minor version: 2, 3 or 4.
    int version;
    bool tiles;
    /// Plain LAS; an OUTPUT that ends in ".las" asks for it, too.
    bool uncompressed;
    /// 0 to 65535.
    int pointSourceID;
    /// From fields to attributes of the exporter, its default entries included.
    std::map<std::string, std::string> renames;
    /// Decode every file before it is put in place, and compare.
    bool verify = false;

    /// Gives the exit status; see runExport().
    [[nodiscard]] int run() const;
};

} // namespace Tidewatch
