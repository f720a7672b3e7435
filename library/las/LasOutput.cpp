// SPDX-License-Identifier: Apache-2.0
#include "library/las/LasOutput.hpp"

#include "library/output/endsIn.hpp"

#include <cstddef>
#include <utility>

namespace Tidewatch {

namespace {

constexpr std::string_view exporterStem = "cloud";
constexpr std::string_view plain = ".las";
constexpr std::string_view compressed = ".laz";

std::string_view extensionOf(bool uncompressed) {
    return uncompressed ? plain : compressed;
}

} // namespace

bool LasOutput::endsInExtension(std::string_view text) {
    return endsIn(text, plain) || endsIn(text, compressed);
}

bool LasOutput::endsInLas(std::string_view text) {
    return endsIn(text, plain);
}

LasOutput::LasOutput(const std::filesystem::path& output, bool hasExtension, bool uncompressed)
    : folder_(output.parent_path()),
      stem_(output.filename().string()),
      extension_(extensionOf(uncompressed)),
      uncompressed_(uncompressed) {
    if (!hasExtension)
        return;
    const std::size_t length = extension_.size();
    if (endsIn(stem_, extension_))
        extension_ = stem_.substr(stem_.size() - length);
    stem_.resize(stem_.size() - length);
}

std::filesystem::path LasOutput::tile(const std::string& suffix) const {
    return folder_ / (stem_ + suffix + extension_);
}

std::filesystem::path LasOutput::exporterName() const {
    return std::string(exporterStem) + std::string(extensionOf(uncompressed_));
}

std::filesystem::path LasOutput::placeOf(const std::filesystem::path& written) const {
    // Works for fragment names that contain a slash, too.
    const std::string name = written.string();
    const std::size_t ends = exporterStem.size() + extensionOf(uncompressed_).size();
    return tile(name.substr(exporterStem.size(), name.size() - ends));
}

} // namespace Tidewatch
