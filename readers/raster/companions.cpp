// SPDX-License-Identifier: Apache-2.0
#include "readers/raster/companions.hpp"

#include "anchor/Error.hpp"
#include "anchor/printable.hpp"

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>
#include <system_error>

#include <fmt/format.h>

namespace Tidewatch::Raster {

namespace {

/// GDAL ignores the case of ASCII letters in names, so the list of its files must, too.
bool isSame(std::string_view a, std::string_view b) {
    const auto lower = [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    };
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [&](char one, char other) { return lower(one) == lower(other); });
}

/// Whether GDAL may read a file with the raster's name and this extension.
bool isKnownEnding(const std::string& ending) {
    constexpr std::array plain{".hdr", ".prj", ".clr", ".stx", ".sta", ".wld"};
    if (std::any_of(plain.begin(), plain.end(), [&](const char* known) { return isSame(ending, known); }))
        return true;
    // World files: ".tfw", ".tifw", ".pgw" and the like.
    return ending.starts_with('.') && ending.size() >= 4 && ending.size() <= 6 &&
           (ending.back() == 'w' || ending.back() == 'W');
}

} // namespace

std::vector<std::string> companionsOf(const std::string& path) {
    const std::filesystem::path raster = std::filesystem::absolute(path);
    const std::string own = raster.filename().string();
    const std::string stem = raster.stem().string();
    std::vector<std::string> list;
    std::error_code error;
    std::filesystem::directory_iterator entry(raster.parent_path(), error);
    for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (std::error_code unknown; name == own || !entry->is_regular_file(unknown))
            continue;
        if (isSame(name, own + ".msk") || isSame(name, own + ".aux.xml") || isSame(name, own + "w") ||
            (name.size() > stem.size() && isSame(name.substr(0, stem.size()), stem) &&
             isKnownEnding(name.substr(stem.size()))))
            list.push_back(name);
    }
    if (error)
        throw Anchor::FileError(
            fmt::format("{}: cannot list its folder: {}", Anchor::printable(path), error.message()));
    return list;
}

} // namespace Tidewatch::Raster
