// SPDX-License-Identifier: Apache-2.0
#include "anchor/processLimits.hpp"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iterator>
#include <limits>
#include <sched.h>
#include <string>
#include <unistd.h>

#include <sys/resource.h>
#include <sys/sysinfo.h>

namespace Anchor {

namespace {

constexpr std::uint64_t unlimited = std::numeric_limits<std::uint64_t>::max();
constexpr unsigned anyCores = std::numeric_limits<unsigned>::max();

/// The next number of a file; `unlimited` for a text such as "max" or "-1" and without a file.
std::uint64_t numberIn(std::ifstream& file) {
    std::string text;
    file >> text;
    std::uint64_t number = unlimited;
    const auto end = std::from_chars(text.data(), text.data() + text.size(), number);
    return end.ec == std::errc() ? number : unlimited;
}

std::uint64_t numberIn(const std::filesystem::path& path) {
    std::ifstream file(path);
    return numberIn(file);
}

/// The least of what `limitOf` gives for the folder of a group and those above it.
template <class LimitOf>
auto leastLimit(const std::filesystem::path& root, std::string_view group, LimitOf limitOf) {
    std::filesystem::path folder = std::filesystem::path(group).relative_path();
    auto least = limitOf(root);
    for (; !folder.empty(); folder = folder.parent_path())
        least = std::min(least, limitOf(root / folder));
    return least;
}

/// Processors: a part of each period in which the group may run, as if on one processor.
unsigned coresFor(std::uint64_t quota, std::uint64_t period) {
    if (quota == unlimited || period == unlimited || period == 0)
        return anyCores;
    return static_cast<unsigned>(std::clamp<std::uint64_t>((quota + period - 1) / period, 1, anyCores));
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

namespace {

/// Calls use(controllers, group) for each group that the process belongs to. Lines are such as "4:memory:/batch/job"
/// (version 1) and "0::/user.slice" (version 2, without controllers).
template <class Use>
void forEachGroup(std::string_view membership, Use use) {
    while (!membership.empty()) {
        const std::size_t end = std::min(membership.find('\n'), membership.size());
        const std::string_view line = membership.substr(0, end);
        membership.remove_prefix(std::min(end + 1, membership.size()));
        const std::size_t first = line.find(':');
        const std::size_t second = first == std::string_view::npos ? first : line.find(':', first + 1);
        if (second != std::string_view::npos)
            use(line.substr(first + 1, second - first - 1), line.substr(second + 1));
    }
}

std::string ownMembership() {
    std::ifstream file("/proc/self/cgroup");
    return {std::istreambuf_iterator<char>(file), {}};
}

constexpr const char* groupRoot = "/sys/fs/cgroup";

} // namespace

std::uint64_t groupMemory(std::string_view membership, const std::filesystem::path& root) {
    std::uint64_t least = unlimited;
    const auto limitIn = [](const char* file) {
        return [file](const std::filesystem::path& folder) { return numberIn(folder / file); };
    };
    forEachGroup(membership, [&](std::string_view controllers, std::string_view group) {
        if (controllers.empty())
            least = std::min(least, leastLimit(root, group, limitIn("memory.max")));
        else if (names(controllers, "memory"))
            least = std::min(least, leastLimit(root / "memory", group, limitIn("memory.limit_in_bytes")));
    });
    return least;
}

unsigned groupCores(std::string_view membership, const std::filesystem::path& root) {
    unsigned least = anyCores;
    forEachGroup(membership, [&](std::string_view controllers, std::string_view group) {
        if (controllers.empty())
            least = std::min(least, leastLimit(root, group, [](const std::filesystem::path& folder) {
                                 std::ifstream file(folder / "cpu.max");
                                 const std::uint64_t quota = numberIn(file);
                                 return coresFor(quota, numberIn(file));
                             }));
        else if (names(controllers, "cpu"))
            least = std::min(least, leastLimit(root / "cpu", group, [](const std::filesystem::path& folder) {
                                 return coresFor(numberIn(folder / "cpu.cfs_quota_us"),
                                                 numberIn(folder / "cpu.cfs_period_us"));
                             }));
    });
    return least;
}

unsigned processCores() {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    // Fails on machines of more than 1024 processors; then all of them count.
    const int count =
        ::sched_getaffinity(0, sizeof allowed, &allowed) == 0 ? CPU_COUNT(&allowed) : ::get_nprocs();
    return std::clamp(groupCores(ownMembership(), groupRoot), 1U, static_cast<unsigned>(std::max(count, 1)));
}

std::uint64_t processMemory() {
    std::uint64_t least = std::min(machineMemory(), groupMemory(ownMembership(), groupRoot));
    rlimit addresses{};
    if (::getrlimit(RLIMIT_AS, &addresses) == 0 && addresses.rlim_cur != RLIM_INFINITY)
        least = std::min<std::uint64_t>(least, addresses.rlim_cur);
    return least;
}

} // namespace Anchor
