// SPDX-License-Identifier: Apache-2.0
#include "library/ascii/exportAscii.hpp"

#include "anchor/Cache.hpp"
#include "library/BuildingReader.hpp"
#include "support/BundleBuilder.hpp"
#include "support/ConsoleCapture.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using ::testing::ElementsAre;
using ::testing::UnorderedElementsAre;

/// By field: the fields that were expected when one of its arrays was asked for.
using Expected = std::map<std::string, std::set<std::string>>;

/// Notes what is expected whenever its array is asked for.
class NotingCreator final : public Sheaf::CreativeArrayBase {
public:
    NotingCreator(std::string field, Anchor::StrongPtr<Sheaf::CreativeArrayBase> data,
                  std::function<bool(const std::string&)> isWanted, Expected& expected)
        : field_(std::move(field)),
          data_(std::move(data)),
          isWanted_(std::move(isWanted)),
          expected_(expected) {}

    [[nodiscard]] Anchor::StrongPtr<Anchor::Cacheable> create(bool anew) const override {
        for (const char* const other : {"Positions", "Height", "Label", "CellType", "Unknown"}) {
            if (isWanted_(other))
                expected_[field_].insert(other);
        }
        return data_->create(anew);
    }
    [[nodiscard]] const std::type_info& elementType() const noexcept override { return data_->elementType(); }
    [[nodiscard]] std::optional<Sheaf::Extents> extents() const override { return data_->extents(); }
    [[nodiscard]] Anchor::StrongPtr<Anchor::Cacheable> available() const override { return {}; }

private:
    std::string field_;
    Anchor::StrongPtr<Sheaf::CreativeArrayBase> data_;
    std::function<bool(const std::string&)> isWanted_;
    Expected& expected_;
};

/// Any file is a grid of three fields in two fragments.
class NotingReader final : public ConvLib::Reader {
public:
    explicit NotingReader(Expected& expected) : expected_(expected) {}
    std::string name() const override { return "noting reader"; }
    bool recognises(const std::string&, std::span<const std::byte>) const override { return true; }
    Anchor::StrongPtr<ConvLib::InputReport> read(Sheaf::Bundle& bundle, const std::string& path,
                                                 const ConvLib::ReadOptions& options) const override {
        Support::GridBuilder grid(bundle, 0, "g");
        const auto add = [&](const std::string& field, const std::string& fragment, auto values) {
            grid.field(field, fragment,
                       Anchor::makeStrong<NotingCreator>(field, Support::held(std::move(values)),
                                                         options.IsWanted, expected_));
        };
        for (const char* const fragment : {"a", "b"}) {
            add("Positions", fragment, Support::Points{{1, 2, 3}, {4, 5, 6}});
            add("Height", fragment, std::vector<double>{1, 2});
            add("Label", fragment, std::vector<int>{7, 8});
        }
        return Anchor::makeStrong<BuiltReport>(path, std::vector<std::string>{});
    }

private:
    Expected& expected_;
};

class ExportAscii : public ::testing::Test {
protected:
    ~ExportAscii() override {
        ConvLib::unregisterReader("noting reader");
        Anchor::Cache::MemCache().setLimit(Anchor::Cache::defaultLimit);
    }

    /// What is expected while an input is written with a memory limit of that many bytes.
    Expected expectedWithin(std::uint64_t limit) {
        const Support::ConsoleCapture quiet;
        const Support::TemporaryFolder folder;
        Support::writeBytes(folder / "input", "x");
        Expected expected;
        ConvLib::registerReader(Anchor::makeStrong<NotingReader>(expected));
        InputOptions what;
        what.files = {folder / "input"};
        what.memoryLimit = limit;
        AsciiOptions options;
        options.output = OutputPattern(folder / "out");
        const ExportReport report = exportAscii(Inputs(what), options);
        EXPECT_EQ(report.files.size(), 6U);
        EXPECT_EQ(Support::readBytes(folder / "out/Label/b.asc"), " 7\n 8\n");
        ConvLib::unregisterReader("noting reader");
        return expected;
    }
};

TEST_F(ExportAscii, AllFieldsAreExpectedWhileTheCacheHoldsThem) {
    // Two fragments of two points: 24 bytes of positions, 8 of height, 4 of label.
    for (const auto& [field, expected] : expectedWithin(2 * 2 * (24 + 8 + 4)))
        EXPECT_THAT(expected, ElementsAre("CellType", "Height", "Label", "Positions")) << field;
}

TEST_F(ExportAscii, OneFieldIsExpectedAfterTheOtherWhereTheCacheCannotHoldAll) {
    const Expected expected = expectedWithin(2 * 2 * (24 + 8 + 4) - 1);
    EXPECT_THAT(expected.at("Height"), UnorderedElementsAre("Positions", "Height", "CellType"));
    EXPECT_THAT(expected.at("Label"), UnorderedElementsAre("Positions", "Label", "CellType"));
}

} // namespace
} // namespace Tidewatch
