// SPDX-License-Identifier: Apache-2.0
#include "readers/las/LazChunkCheck.hpp"

#include "anchor/Error.hpp"
#include "support/LazAssembly.hpp"
#include "support/TemporaryFolder.hpp"

#include <string>

#include <gmock/gmock.h>

namespace {

using Support::LasFileBuilder;
using Support::LazAssembly;
using Support::patch;
using ::testing::HasSubstr;
using Tidewatch::Las::LasFile;

class LazChunkCheckTest : public ::testing::Test {
protected:
    static LazAssembly two(unsigned format, std::size_t extraByteCount = 0) {
        LasFileBuilder builder;
        builder.minor = 4;
        builder.format = format;
        builder.extraByteCount = extraByteCount;
        builder.addVariedPoints(20);
        return LazAssembly::make(builder, {10, 10});
    }

    /// Checks the second chunk; the message of the refusal, or nothing.
    std::string check(const LazAssembly& assembly) {
        Support::writeBytes(folder_ / "a.laz", assembly.build(LazAssembly::table(assembly.entries(), false)));
        const LasFile file(folder_ / "a.laz");
        try {
            checkLazChunk(file.open(), file.header(), *file.compression(), 1);
        } catch (const Anchor::FormatError& error) {
            EXPECT_THAT(error.what(), HasSubstr("a.laz: chunk 1: "));
            return error.what();
        }
        return {};
    }

    static constexpr std::size_t firstPoint6 = 30;

private:
    Support::TemporaryFolder folder_;
};

TEST_F(LazChunkCheckTest, ChunksThatLaszipWritesPass) {
    for (unsigned format = 0; format <= 10; ++format) {
        for (const std::size_t extraByteCount : {0U, 3U})
            EXPECT_EQ(check(two(format, extraByteCount)), "") << format;
    }
}

TEST_F(LazChunkCheckTest, LayerSizesThatOverflow32BitsAreRefused) {
    // 0x80000000 twice and the others as they were: the sum in 32 bits is right.
    LazAssembly assembly = two(6);
    for (const std::size_t layer : {1U, 4U}) {
        const std::size_t place = firstPoint6 + 4 + 4 * layer;
        patch(assembly.chunks[1].bytes, place,
              Support::number<std::uint32_t>(assembly.chunks[1].bytes, place) + 0x80000000U);
    }
    EXPECT_THAT(check(assembly), HasSubstr("layer 1 is to have 2147"));
}

TEST_F(LazChunkCheckTest, LayerSizesThatDoNotFillTheChunkAreRefused) {
    const auto changed = [](std::uint32_t by) {
        LazAssembly assembly = two(6);
        const std::size_t last = firstPoint6 + 4 + 4 * 8;
        patch(assembly.chunks[1].bytes, last,
              Support::number<std::uint32_t>(assembly.chunks[1].bytes, last) + by);
        return assembly;
    };
    EXPECT_THAT(check(changed(1)), HasSubstr("layer 8 is to have"));
    EXPECT_THAT(check(changed(0xFFFFFFFF)), HasSubstr("its layers end at"));
}

TEST_F(LazChunkCheckTest, LayersTooSmallForADecoderAreRefused) {
    LazAssembly assembly = two(6);
    patch(assembly.chunks[1].bytes, firstPoint6 + 4, std::uint32_t{0});
    EXPECT_THAT(check(assembly), HasSubstr("layer 0 is to have 0 bytes"));
    patch(assembly.chunks[1].bytes, firstPoint6 + 4, std::uint32_t{3});
    EXPECT_THAT(check(assembly), HasSubstr("layer 0 is to have 3 bytes"));
}

TEST_F(LazChunkCheckTest, PointCountOfAChunkThatContradictsTheTableIsRefused) {
    LazAssembly assembly = two(6);
    patch(assembly.chunks[1].bytes, firstPoint6, std::uint32_t{11});
    EXPECT_THAT(check(assembly), HasSubstr("it states 11 points, the chunk table 10"));
}

TEST_F(LazChunkCheckTest, StreamsThatBeginWithAnImpossibleCodeAreRefused) {
    LazAssembly assembly = two(1);
    assembly.chunks[1].bytes.replace(28, 4, "\xFF\xFF\xFF\xFF");
    EXPECT_THAT(check(assembly), HasSubstr("begins with an impossible code"));

    const LazAssembly layered = two(7, 2);
    const std::size_t head = 36 + 2 + 4;
    const std::size_t layers = 9 + 1 + 2;
    std::size_t place = head + 4 * layers;
    for (std::size_t layer = 0; layer < layers; ++layer) {
        const auto size = Support::number<std::uint32_t>(layered.chunks[1].bytes, head + 4 * layer);
        if (size == 0)
            continue;
        LazAssembly damaged = layered;
        damaged.chunks[1].bytes.replace(place, 4, "\xFF\xFF\xFF\xFF");
        EXPECT_THAT(check(damaged), HasSubstr("begins with an impossible code")) << layer;
        place += size;
    }
    EXPECT_EQ(place, layered.chunks[1].bytes.size());
}

} // namespace
