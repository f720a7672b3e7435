// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/Progress.hpp"
#include "library/input/Filters.hpp"
#include "library/input/Inputs.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Tidewatch {

/// What a page is to show.
struct TIDEWATCH_API ViewPageOptions {
    static constexpr std::uint64_t defaultPoints = 1'000'000;
    static constexpr std::uint64_t usualBytes = 25'000'000;

    Filters filters;
    /// The most points and places of lattices that the page holds; nothing stands for the default, of which there may be
    /// fewer so that the page has no more than `usualBytes`.
    std::optional<std::uint64_t> points;
    /// The heading.
    std::string title;
    /// Who makes the page: "tidewatch 1.0".
    std::string program;
};

/// A page, and what is to be said about it.
struct TIDEWATCH_API ViewPage {
    /// The page's text, in pieces that follow each other.
    std::vector<std::string> text;
    std::uint64_t points = 0;
    /// Points and places that the inputs hold.
    std::uint64_t of = 0;
    std::vector<std::string> notes;
};

/// Whether this build holds the page's script; it is bundled by npm's packages where these are there at build time.
[[nodiscard]] TIDEWATCH_API bool canMakeViewPages();

/// Makes a page. Reads each array once; holds three times as many points as the page. Throws Anchor::LimitError where
/// canMakeViewPages() is false, Anchor::ModelError where nothing was chosen that could be shown, and what creators and
/// the progress object throw.
[[nodiscard]] TIDEWATCH_API ViewPage makeViewPage(const Inputs& inputs, const ViewPageOptions& options,
                                                  Progress& progress);

} // namespace Tidewatch
