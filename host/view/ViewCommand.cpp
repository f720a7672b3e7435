// SPDX-License-Identifier: Apache-2.0
#include "host/view/ViewCommand.hpp"

#include "anchor/Error.hpp"
#include "host/view/openInBrowser.hpp"
#include "library/ProgressParts.hpp"
#include "library/output/endsIn.hpp"
#include "library/report/UsageError.hpp"
#include "library/view/ViewFile.hpp"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <utility>
#include <vector>

namespace Tidewatch {

namespace fs = std::filesystem;

namespace {

/// The path of a page in the user's cache (XDG Base Directory Specification).
std::string cachePath(const std::vector<std::string>& files) {
    const char* const cache = std::getenv("XDG_CACHE_HOME");
    fs::path folder;
    if (cache != nullptr && fs::path(cache).is_absolute()) {
        folder = cache;
    } else {
        const char* const home = std::getenv("HOME");
        if (home == nullptr || *home == '\0')
            throw UsageError(
                "HOME is not set, so there is no cache folder for the page; name a file with -o");
        folder = fs::path(home) / ".cache";
    }
    return (folder / "tidewatch" / (fs::path(files.front()).filename().string() + ".html")).string();
}

int makePicture(const ViewRequest& request, Report& out, const Inputs& inputs, ViewFile& file,
                std::string title) {
    ViewPictureOptions options;
    options.filters = request.filters;
    options.title = std::move(title);
    options.size = request.size.value_or(options.size);
    options.colors = request.color.value_or(options.colors);
    const ViewPicture picture = makeViewPicture(inputs, options, *out.bar());
    const std::string pieces[] = {pngBytes(picture.image)};
    ExportReport done;
    done.files.push_back(file.place(pieces, picture.points));
    out.bar()->end();
    out.printSummary(done);
    return 0;
}

int makePage(const ViewRequest& request, Report& out, const Inputs& inputs, ViewFile& file,
             std::string title) {
    ViewPageOptions options;
    options.filters = request.filters;
    options.points = request.points;
    options.title = std::move(title);
    options.program = "tidewatch " TIDEWATCH_VERSION;
    ViewPage page = makeViewPage(inputs, options, *out.bar());
    for (const std::string& note : page.notes)
        out.messages().note("tidewatch: " + note);
    ExportReport done;
    done.notes = page.notes;
    done.files.push_back(file.place(page.text, page.points));
    out.bar()->end();
    out.printSummary(done);
    if (!request.output && !openInBrowser(done.files.front().path))
        out.messages().warning("there is no xdg-open here; open " + done.files.front().path +
                               " in a browser");
    return 0;
}

} // namespace

bool isPicturePath(const std::string& path) {
    return endsIn(path, ".png");
}

int ViewRequest::run() const {
    const bool isPicture = output && isPicturePath(*output);
    if (output && !isPicture && !endsIn(*output, ".html") && !endsIn(*output, ".htm"))
        throw UsageError("--output: \"" + *output +
                         "\" ends neither in .html (a page) nor in .png (a picture)");
    if (isPicture && points)
        throw UsageError("--points is an option of pages");
    if (!isPicture && (size || color))
        throw UsageError("--size and --color are options of pictures");
    if (!isPicture && !canMakeViewPages())
        throw UsageError("this build cannot write pages, since npm's packages were not installed for it "
                         "(scripts/setup.sh installs them); -o FILE.png writes a picture");
    ViewRequest job = *this;
    selectInputs(job.inputs, job.filters);
    Report out(report, "view");
    const Inputs read(job.inputs, out.bar());
    // Points are chosen in proportion to their number.
    constexpr double counted = 0.3;
    if (read.isChosen()) {
        out.bar()->part(ProgressParts::opened, counted);
        read.countChosen(out.bar());
    }
    out.bar()->part(read.isChosen() ? counted : ProgressParts::opened, ProgressParts::worked);
    ViewFile file(output ? *output : cachePath(inputs.files), overwrite || !output, read.identities());
    return isPicture ? makePicture(job, out, read, file, viewTitle(inputs.files))
                     : makePage(job, out, read, file, viewTitle(inputs.files));
}

} // namespace Tidewatch
