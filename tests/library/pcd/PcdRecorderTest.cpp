// SPDX-License-Identifier: Apache-2.0
#include "library/pcd/PcdRecorder.hpp"

#include "pcd/ExportPointCloudToPCD.hpp"
#include "support/BundleBuilder.hpp"
#include "support/TemporaryFolder.hpp"

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

/// Records the share of the work that is done.
class Shares final : public Progress {
public:
    void begin(const std::string&, double total, const std::string&) override { total_ = total; }
    void piece(double done, double size) override {
        done_ = done;
        size_ = size;
        shares.push_back(done / total_);
    }
    void say(const std::string& text) override { texts.push_back(text); }
    void tick(const std::string&, double share) override {
        shares.push_back((done_ + share * size_) / total_);
    }

    std::vector<double> shares;
    std::vector<std::string> texts;

private:
    double total_ = 0;
    double done_ = 0;
    double size_ = 0;
};

TEST(PcdRecorder, ThinningAndWritingAdvanceTheProgressAfterReading) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    for (const char* const grid : {"a", "b"}) {
        std::vector<Geom::PhysicalSpace::point> points;
        for (int i = 0; i < 200'000; ++i)
            points.push_back({i % 1000 + 0.5, i / 1000 + 0.5, 1});
        Support::GridBuilder(*bundle, 0, grid).field("Positions", "", points);
    }
    const Support::TemporaryFolder folder;
    const auto progress = Anchor::makeStrong<Shares>();
    const auto recorder = Anchor::makeStrong<PcdRecorder>(RunScope{}, 400'000, progress);
    ExportLib::ExportPointCloudToPCD exporter;
    exporter.bundleptr = bundle;
    exporter.OutputPath = folder / "a.pcd";
    recorder->begin();
    recorder->follow(exporter);
    ASSERT_TRUE(exporter.Run());

    const auto& shares = progress->shares;
    EXPECT_TRUE(std::is_sorted(shares.begin(), shares.end()));
    EXPECT_GT(shares.size(), 40U);
    EXPECT_GT(shares.back(), 0.8);
    EXPECT_LT(shares.back(), 1);
    EXPECT_EQ(progress->texts, (std::vector<std::string>{"reading a", "thinning and writing a", "reading b",
                                                         "thinning and writing b"}));
}

} // namespace
} // namespace Tidewatch
