// SPDX-License-Identifier: Apache-2.0
#include "library/export/ExportFormat.hpp"

#include "library/report/UsageError.hpp"

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

void ExportFormat::requirePositions(Selection& selection) {
    if (!selection.UseThisField("Positions"))
        throw UsageError(
            "--field leaves out Positions, without which there is no point to write; add --field Positions");
}

} // namespace Tidewatch
