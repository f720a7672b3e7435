// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace Tidewatch {

/// Where the files of a LAS export go. The exporter replaces what it takes for an extension; here only ".las"
/// and ".laz" count as one, whatever their case, so that "out/{time}" at 6.5 hours becomes out/6.5.laz.
class LasOutput {
public:
    /// `output` as the user gave it, {grid} and {time} filled in. `hasExtension` says whether its extension
    /// is one; a grid's name that ends in ".las" has none.
    LasOutput(const std::filesystem::path& output, bool hasExtension, bool uncompressed);

    /// The one file of a run without tiles: the user's own spelling of the extension stays where it is right.
    [[nodiscard]] std::filesystem::path file() const { return tile(""); }

    /// The name that the exporter gets, which is the same for all outputs.
    [[nodiscard]] std::filesystem::path exporterName() const;

    /// The place of a file that the exporter writes under a name that it makes itself, relative to the folder of
    /// exporterName().
    [[nodiscard]] std::filesystem::path placeOf(const std::filesystem::path& written) const;

    /// Whether a text ends in ".las" or ".laz".
    [[nodiscard]] static bool endsInExtension(std::string_view text);
    /// Whether a text ends in ".las".
    [[nodiscard]] static bool endsInLas(std::string_view text);

private:
    [[nodiscard]] std::filesystem::path tile(const std::string& suffix) const;

    std::filesystem::path folder_;
    std::string stem_;
    std::string extension_;
    bool uncompressed_;
};

} // namespace Tidewatch
