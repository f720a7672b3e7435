// SPDX-License-Identifier: Apache-2.0
#include "anchor/processMemory.hpp"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <unistd.h>

#include <sys/resource.h>

namespace Anchor {

namespace {

constexpr std::uint64_t unlimited = std::numeric_limits<std::uint64_t>::max();

/// The number that a file holds; `unlimited` for a text such as "max" and without a file.
std::uint64_t numberIn(const std::filesystem::path& path) {
    std::string text;
    std::ifstream(path) >> text;
    std::uint64_t number = unlimited;
    const auto end = std::from_chars(text.data(), text.data() + text.size(), number);
    return end.ec == std::errc() ? number : unlimited;
}

/// The least limit of a group and those above it.
std::uint64_t leastLimit(const std::filesystem::path& root, std::string_view group, const char* file) {
    std::filesystem::path folder = std::filesystem::path(group).relative_path();
    std::uint64_t least = numberIn(root / file);
    for (; !folder.empty(); folder = folder.parent_path())
        least = std::min(least, numberIn(root / folder / file));
    return least;
}

bool names(std::string_view controllers, std::string_view name) {
    while (!controllers.empty()) {
        const std::size_t end = std::min(controllers.find(','), controllers.size());
        if (controllers.substr(0, end) == name)
            return true;
        controllers.remove_prefix(std::min(end + 1, controllers.size()));
    }
    return false;
}

std::uint64_t machineMemory() {
    const long pages = ::sysconf(_SC_PHYS_PAGES);
    const long pageSize = ::sysconf(_SC_PAGE_SIZE);
    return pages > 0 && pageSize > 0
               ? static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageSize)
               : unlimited;
}

} // namespace

std::uint64_t groupMemory(std::string_view membership, const std::filesystem::path& root) {
    std::uint64_t least = unlimited;
    // Lines such as "4:memory:/batch/job" (version 1) and "0::/user.slice" (version 2).
    while (!membership.empty()) {
        const std::size_t end = std::min(membership.find('\n'), membership.size());
        const std::string_view line = membership.substr(0, end);
        membership.remove_prefix(std::min(end + 1, membership.size()));
        const std::size_t first = line.find(':');
        const std::size_t second = first == std::string_view::npos ? first : line.find(':', first + 1);
        if (second == std::string_view::npos)
            continue;
        const std::string_view controllers = line.substr(first + 1, second - first - 1);
        const std::string_view group = line.substr(second + 1);
        if (controllers.empty())
            least = std::min(least, leastLimit(root, group, "memory.max"));
        else if (names(controllers, "memory"))
            least = std::min(least, leastLimit(root / "memory", group, "memory.limit_in_bytes"));
    }
    return least;
}

std::uint64_t processMemory() {
    std::ifstream file("/proc/self/cgroup");
    const std::string membership{std::istreambuf_iterator<char>(file), {}};
    std::uint64_t least = std::min(machineMemory(), groupMemory(membership, "/sys/fs/cgroup"));
    rlimit addresses{};
    if (::getrlimit(RLIMIT_AS, &addresses) == 0 && addresses.rlim_cur != RLIM_INFINITY)
        least = std::min<std::uint64_t>(least, addresses.rlim_cur);
    return least;
}

} // namespace Anchor
