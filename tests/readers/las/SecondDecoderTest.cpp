// SPDX-License-Identifier: Apache-2.0
//
// The decoder compared with another one, laz-perf running on Node, which shares no code with it.
#include "support/LazAssembly.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/decodeLas.hpp"
#include "support/lazPerf.hpp"
#include "support/sharedData.hpp"

#include <string>

#include <gtest/gtest.h>

namespace {

using Support::LasFileBuilder;
using Support::LasRecord;

class SecondDecoder : public ::testing::Test {
protected:
    void SetUp() override {
        if (const std::string reason = Support::lazPerfMissing(); !reason.empty())
            GTEST_SKIP() << reason;
    }

    /// Compares both decoders on a file.
    void compare(const std::string& path) {
        const Tidewatch::Las::LasFile file(path);
        const unsigned format = file.header().pointFormat;
        const std::size_t length = file.header().recordLength;
        const auto ours = Support::decodeLas(path);
        const std::string theirs = Support::decodeWithLazPerf(path);
        ASSERT_EQ(theirs.size(), ours.size() * length);
        ASSERT_FALSE(ours.empty());
        for (std::size_t i = 0; i < ours.size(); ++i)
            ASSERT_EQ(LasFileBuilder::encode(ours[i], format), theirs.substr(i * length, length))
                << "point " << i;
    }

    void compareBytes(const std::string& bytes) {
        Support::writeBytes(folder_ / "a.laz", bytes);
        compare(folder_ / "a.laz");
    }

    static LasFileBuilder varied(unsigned format, std::size_t extraByteCount) {
        LasFileBuilder builder;
        builder.minor = 4;
        builder.format = format;
        builder.extraByteCount = extraByteCount;
        builder.addVariedPoints(3000);
        return builder;
    }

private:
    Support::TemporaryFolder folder_;
};

TEST_F(SecondDecoder, GivesTheSameRecordsOfTheSharedFile) {
    TIDEWATCH_NEED_SHARED(path, "autzen_trim.laz");
    compare(path);
}

// Formats with wave packets are unknown to the other decoder.

TEST_F(SecondDecoder, GivesTheSameRecordsOfOldFormats) {
    for (unsigned format = 0; format <= 3; ++format) {
        compareBytes(Support::compressLas(varied(format, 0), 700));
        compareBytes(Support::compressLas(varied(format, 5)));
    }
}

TEST_F(SecondDecoder, GivesTheSameRecordsOfLayeredFormats) {
    for (unsigned format = 6; format <= 8; ++format) {
        compareBytes(Support::compressLas(varied(format, 0), 700));
        compareBytes(Support::compressLas(varied(format, 5)));
    }
}

TEST_F(SecondDecoder, GivesTheSameRecordsOfChunksOfVariableSize) {
    for (const unsigned format : {3U, 7U})
        compareBytes(Support::LazAssembly::make(varied(format, 2), {1, 1000, 1999}).buildVariable());
}

} // namespace
