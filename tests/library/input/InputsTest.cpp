// SPDX-License-Identifier: Apache-2.0
#include "library/input/Inputs.hpp"

#include "convlib/Reader.hpp"
#include "support/TemporaryFolder.hpp"

#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

/// Keeps the options that it is called with.
class KeepingReader final : public ConvLib::Reader {
public:
    explicit KeepingReader(ConvLib::ReadOptions& kept) : kept_(kept) {}
    std::string name() const override { return "kept file"; }
    bool recognises(const std::string& path, std::span<const std::byte>) const override {
        return path.ends_with(".kept");
    }
    Anchor::StrongPtr<ConvLib::InputReport> read(Sheaf::Bundle&, const std::string&,
                                                 const ConvLib::ReadOptions& options) const override {
        kept_ = options;
        return nullptr;
    }

private:
    ConvLib::ReadOptions& kept_;
};

TEST(Inputs, ReadersLearnWhichFieldsAreExpectedEvenAfterTheInputsAreGone) {
    const Support::TemporaryFolder folder;
    Support::writeBytes(folder / "a.kept", "");
    ConvLib::ReadOptions options;
    ConvLib::registerReader(Anchor::makeStrong<KeepingReader>(options));
    {
        InputOptions what;
        what.files = {folder / "a.kept"};
        const Inputs inputs(what);
        EXPECT_TRUE(options.IsWanted("Positions"));
        EXPECT_TRUE(options.IsWanted("Intensity"));
        inputs.expectFields({"Positions"});
        EXPECT_TRUE(options.IsWanted("Positions"));
        EXPECT_FALSE(options.IsWanted("Intensity"));
    }
    EXPECT_FALSE(options.IsWanted("Intensity"));
    ConvLib::unregisterReader("kept file");
}

} // namespace
} // namespace Tidewatch
