// SPDX-License-Identifier: Apache-2.0
#include "library/output/OutputPattern.hpp"

#include "anchor/Error.hpp"
#include "anchor/names.hpp"
#include "anchor/printable.hpp"
#include "library/report/UsageError.hpp"
#include "library/report/Wording.hpp"

#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

OutputPattern::OutputPattern(std::string text) : text_(std::move(text)) {
    if (text_.empty())
        throw UsageError("an empty OUTPUT");
    std::size_t place = 0;
    while (place < text_.size()) {
        const std::size_t open = text_.find('{', place);
        const std::size_t close = open == std::string::npos ? open : text_.find('}', open);
        if (close == std::string::npos) {
            if (open != std::string::npos &&
                (text_.compare(open, 5, "{grid") == 0 || text_.compare(open, 5, "{time") == 0 ||
                 text_.compare(open, 5, "{tile") == 0))
                throw UsageError(fmt::format("OUTPUT {}: \"{}\" has no \"}}\"", text_, text_.substr(open)));
            pieces_.push_back({Kind::Text, text_.substr(place)});
            return;
        }
        if (open > place)
            pieces_.push_back({Kind::Text, text_.substr(place, open - place)});
        const std::string name = text_.substr(open + 1, close - open - 1);
        if (name == "grid") {
            pieces_.push_back({Kind::Grid, {}});
            perGrid_ = true;
        } else if (name == "time") {
            pieces_.push_back({Kind::Time, {}});
            perTime_ = true;
        } else if (name == "tile") {
            pieces_.push_back({Kind::Tile, {}});
            perTile_ = true;
        } else {
            throw UsageError(fmt::format(
                "OUTPUT {}: {{{}}} is unknown; there are {{grid}}, {{time}} and {{tile}}", text_, name));
        }
        place = close + 1;
    }
}

std::string OutputPattern::fill(const std::string& grid, double time, const std::string& tile) const {
    if (const std::string_view fault = Anchor::nameFault(grid); perGrid_ && !fault.empty())
        throw Anchor::FormatError(
            fmt::format("{}: the name of a grid, \"{}\", {}, so it cannot be part of a file name", text_,
                        Anchor::printable(grid), fault));
    std::string path;
    for (const Piece& piece : pieces_) {
        switch (piece.kind) {
        case Kind::Text:
            path += piece.text;
            break;
        case Kind::Grid:
            path += grid;
            break;
        case Kind::Time:
            path += shortestText(time);
            break;
        case Kind::Tile:
            path += tile;
            break;
        }
    }
    return path;
}

std::filesystem::path OutputPattern::fixedFolder(bool isFolder) const {
    const bool isWhole = isFolder && !perGrid_ && !perTime_ && !perTile_;
    // The text between the last separator and the first brace is part of a name that varies.
    const std::string first =
        pieces_.empty() || pieces_.front().kind != Kind::Text ? "" : pieces_.front().text;
    const std::filesystem::path folder =
        isWhole ? std::filesystem::path(text_) : std::filesystem::path(first).parent_path();
    return folder.empty() ? "." : folder;
}

} // namespace Tidewatch
