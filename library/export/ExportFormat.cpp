// SPDX-License-Identifier: Apache-2.0
#include "library/export/ExportFormat.hpp"

namespace Tidewatch {

namespace fs = std::filesystem;

fs::path ExportFormat::exporterOutput(const RunScope& scope) const {
    if (fillsFolder())
        return {};
    fs::path name = fs::path(scope.output).filename();
    if (!name.has_extension())
        name += extension();
    return name;
}

fs::path ExportFormat::placeOf(const RunScope& scope, const fs::path& written) const {
    const fs::path output = scope.output;
    if (fillsFolder())
        return output / written;
    return written == exporterOutput(scope) ? output : output.parent_path() / written;
}

} // namespace Tidewatch
