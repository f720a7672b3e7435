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

/// What a page shows.
struct TIDEWATCH_API ViewPageOptions {
    static constexpr std::uint64_t defaultPoints = 1'000'000;
    static constexpr std::uint64_t usualBytes = 25'000'000;

    Filters filters;
    /// The max number of points and lattice places of the page; nothing stands for the default, reduced if
    /// necessary so that the page has no more than `usualBytes`.
    std::optional<std::uint64_t> points;
    /// The heading.
    std::string title;
    /// The program that creates the page: "tidewatch 1.0".
    std::string program;
};

/// A page, with notes for users.
struct TIDEWATCH_API ViewPage {
    /// The page's text, in consecutive pieces.
    std::vector<std::string> text;
    std::uint64_t points = 0;
    /// The number of points and places in the inputs.
    std::uint64_t of = 0;
    std::vector<std::string> notes;
};

/// The heading of a view of files: their names, three at most.
[[nodiscard]] TIDEWATCH_API std::string viewTitle(const std::vector<std::string>& files);

/// Whether this build contains the page's script, which is bundled if npm's packages are installed at build
/// time.
[[nodiscard]] TIDEWATCH_API bool canMakeViewPages();

/// Creates a page. Reads each array once; holds three times as many points as the page, which are taken off the
/// limit of the memory cache meanwhile. Throws
/// Anchor::LimitError if canMakeViewPages() is false, Anchor::ModelError if there is nothing to show, and
/// what creators and the progress object throw.
[[nodiscard]] TIDEWATCH_API ViewPage makeViewPage(const Inputs& inputs, const ViewPageOptions& options,
                                                  Progress& progress);

} // namespace Tidewatch
