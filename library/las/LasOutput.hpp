// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace Tidewatch {

/// The paths of the files of a LAS export. The exporter replaces everything after the last dot; here only ".las" and
/// ".laz", in any case, count as an extension, so that "out/{time}" at 6.5 hours becomes out/6.5.laz.
class LasOutput {
public:
    /// `output` as the user gave it, with {grid} and {time} filled in. `hasExtension` is false if the extension is part
    /// of a grid's name.
    LasOutput(const std::filesystem::path& output, bool hasExtension, bool uncompressed);

    /// The one file of a run without tiles: a suitable extension keeps the user's spelling.
    [[nodiscard]] std::filesystem::path file() const { return tile(""); }

    /// The output name for the exporter, the same for all outputs.
    [[nodiscard]] std::filesystem::path exporterName() const;

    /// The destination of a file that the exporter wrote at `written`, which is relative to the folder of
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
