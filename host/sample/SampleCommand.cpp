// SPDX-License-Identifier: Apache-2.0
#include "host/sample/SampleCommand.hpp"

#include "library/bundle/BundleExport.hpp"

namespace Tidewatch {

int SampleRequest::run() const {
    Report out(report, "sample");
    BundleExport file(output, overwrite, {});
    const auto bundle = makeSampleSurvey(survey);
    ExportReport done;
    done.files.push_back(file.write(*bundle, *out.bar()));
    file.commit();
    out.printSummary(done);
    return 0;
}

} // namespace Tidewatch
