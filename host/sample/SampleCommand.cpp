// SPDX-License-Identifier: Apache-2.0
#include "host/sample/SampleCommand.hpp"

#include "host/bundle/BundleOutput.hpp"
#include "host/report/Report.hpp"

namespace Tidewatch {

int SampleRequest::run() const {
    Report out(report, "sample");
    BundleOutput file(output, overwrite, {});
    const auto bundle = makeSampleSurvey(survey);
    out.summary().files.push_back(file.write(*bundle, *out.bar()));
    file.commit();
    out.printSummary();
    return 0;
}

} // namespace Tidewatch
