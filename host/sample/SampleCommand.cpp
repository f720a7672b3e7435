// SPDX-License-Identifier: Apache-2.0
#include "host/sample/SampleCommand.hpp"

#include "library/ProgressParts.hpp"
#include "library/bundle/BundleExport.hpp"

namespace Tidewatch {

int SampleRequest::run() const {
    Report out(report, "sample");
    BundleExport file(output, overwrite, {});
    const auto bundle = makeSampleSurvey(survey);
    ExportReport done;
    out.bar()->part(0, ProgressParts::worked);
    done.files.push_back(file.write(*bundle, *out.bar()));
    out.bar()->part(ProgressParts::worked, 1);
    file.commit();
    out.bar()->end();
    out.printSummary(done);
    return 0;
}

} // namespace Tidewatch
