// SPDX-License-Identifier: Apache-2.0
#include "anchor/processLimits.hpp"

#include "support/TemporaryFolder.hpp"

#include <limits>
#include <unistd.h>

#include <gtest/gtest.h>

namespace {

constexpr std::uint64_t unlimited = std::numeric_limits<std::uint64_t>::max();

struct GroupLimits : ::testing::Test {
    void limit(const std::string& file, const std::string& text) {
        const std::filesystem::path path = root.path() / file;
        std::filesystem::create_directories(path.parent_path());
        Support::writeBytes(path, text);
    }
    [[nodiscard]] std::uint64_t of(std::string_view membership) const {
        return Anchor::groupMemory(membership, root.path());
    }
    Support::TemporaryFolder root;
};

TEST_F(GroupLimits, WithoutLimitsThereIsNone) {
    EXPECT_EQ(of(""), unlimited);
    EXPECT_EQ(of("0::/a/b\n"), unlimited);
    limit("a/b/memory.max", "max\n");
    EXPECT_EQ(of("0::/a/b\n"), unlimited);
    EXPECT_EQ(of("nonsense\n:\n"), unlimited);
}

TEST_F(GroupLimits, TheLeastOfAGroupAndThoseAboveItCounts) {
    limit("a/b/memory.max", "3000\n");
    limit("a/memory.max", "2000\n");
    EXPECT_EQ(of("0::/a/b\n"), 2000U);
    limit("memory.max", "1000\n");
    EXPECT_EQ(of("0::/a/b\n"), 1000U);
    EXPECT_EQ(of("0::/\n"), 1000U);
}

TEST_F(GroupLimits, InVersionOneTheMemoryControllerCounts) {
    limit("memory/job/memory.limit_in_bytes", "4096\n");
    limit("cpu/job/memory.limit_in_bytes", "1\n");
    EXPECT_EQ(of("5:cpu,cpuacct:/job\n4:pids,memory:/job\n0::/\n"), 4096U);
    EXPECT_EQ(of("5:cpu:/job\n"), unlimited);
}

TEST_F(GroupLimits, ProcessorsAreTheShareOfTimeRoundedUp) {
    const auto cores = [&](std::string_view membership) {
        return Anchor::groupCores(membership, root.path());
    };
    constexpr unsigned any = std::numeric_limits<unsigned>::max();
    EXPECT_EQ(cores("0::/a\n"), any);
    limit("a/cpu.max", "max 100000\n");
    EXPECT_EQ(cores("0::/a\n"), any);
    limit("a/cpu.max", "150000 100000\n");
    EXPECT_EQ(cores("0::/a/b\n"), 2U);
    limit("cpu.max", "50000 100000\n");
    EXPECT_EQ(cores("0::/a/b\n"), 1U);
    limit("cpu/job/cpu.cfs_quota_us", "-1\n");
    limit("cpu/job/cpu.cfs_period_us", "100000\n");
    EXPECT_EQ(cores("5:cpu,cpuacct:/job\n"), any);
    limit("cpu/job/cpu.cfs_quota_us", "400000\n");
    EXPECT_EQ(cores("5:cpu,cpuacct:/job\n"), 4U);
}

TEST(ProcessCores, AreAtLeastOneAndNoMoreThanTheMachineHas) {
    EXPECT_GE(Anchor::processCores(), 1U);
    EXPECT_LE(Anchor::processCores(), static_cast<unsigned>(::sysconf(_SC_NPROCESSORS_CONF)));
}

TEST(ProcessMemory, IsSomeMemory) {
    EXPECT_GT(Anchor::processMemory(), std::uint64_t{1} << 20);
}

} // namespace
