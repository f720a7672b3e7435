// SPDX-License-Identifier: Apache-2.0
#include "readers/las/LazDescription.hpp"

#include "anchor/Error.hpp"
#include "support/LasFileBuilder.hpp"

#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

namespace {

using Support::append;
using Support::patch;
using ::testing::HasSubstr;
using Tidewatch::Las::LazDescription;

constexpr std::size_t firstItem = LazDescription::fixedSize;

/// The record of a file with that format and length, as LASzip writes it.
std::string payload(unsigned format, std::uint16_t recordLength) {
    std::string bytes;
    append(bytes, static_cast<std::uint16_t>(format >= 6 ? 3 : 2));
    append(bytes, std::uint16_t{0});
    bytes += std::string("\3\4\3\0\0\0\0\0", 8);
    append(bytes, std::uint32_t{50000});
    bytes += std::string(16, '\xFF');
    const auto items = LazDescription::itemsOf(format, recordLength);
    append(bytes, static_cast<std::uint16_t>(items.size()));
    for (const auto& item : items) {
        append(bytes, static_cast<std::uint16_t>(item.type));
        append(bytes, item.size);
        const bool isOnlyVersion1 = item.type == LazDescription::ItemType::WavePacket13;
        append(bytes, static_cast<std::uint16_t>(format >= 6 ? 3 : isOnlyVersion1 ? 1 : 2));
    }
    return bytes;
}

LazDescription parse(const std::string& bytes, unsigned format, std::uint16_t recordLength) {
    const std::vector<std::uint8_t> raw(bytes.begin(), bytes.end());
    return LazDescription::parse(raw, format, recordLength, "a.laz");
}

std::string refusal(const std::string& bytes, unsigned format = 3, std::uint16_t recordLength = 34) {
    try {
        static_cast<void>(parse(bytes, format, recordLength));
    } catch (const Anchor::FormatError& error) {
        EXPECT_THAT(error.what(), ::testing::StartsWith("a.laz: compression record: "));
        return error.what();
    }
    ADD_FAILURE() << "it is taken";
    return {};
}

TEST(LazDescription, EveryFormatWithAndWithoutExtraBytesIsRead) {
    // Streams of a layered chunk, extra bytes (one each) aside.
    const std::vector<std::size_t> layers{9, 10, 11, 10, 12};
    for (unsigned format = 0; format <= 10; ++format) {
        const auto natural = static_cast<std::uint16_t>(Support::LasParts(format).size());
        for (const int extra : {0, 1, 5}) {
            const auto length = static_cast<std::uint16_t>(natural + extra);
            const LazDescription description = parse(payload(format, length), format, length);
            EXPECT_EQ(description.isLayered(), format >= 6);
            EXPECT_EQ(description.chunkSize, 50000U);
            EXPECT_FALSE(description.hasVariableChunks());
            std::size_t size = 0;
            for (const auto& item : description.items)
                size += item.size;
            EXPECT_EQ(size, length);
            if (format >= 6) {
                EXPECT_EQ(description.layerCount(), layers[format - 6] + static_cast<std::size_t>(extra))
                    << format;
            }
        }
    }
}

TEST(LazDescription, OneStreamAndVariableChunksAreTold) {
    std::string bytes = payload(1, 28);
    patch(bytes, 0, std::uint16_t{1});
    patch(bytes, 12, std::uint32_t{0});
    EXPECT_FALSE(parse(bytes, 1, 28).hasChunks()) << "the chunk size has no meaning there";
    bytes = payload(6, 30);
    patch(bytes, 12, std::uint32_t{0xFFFFFFFF});
    EXPECT_TRUE(parse(bytes, 6, 30).hasVariableChunks());
}

TEST(LazDescription, RecordThatIsTooShortIsRefused) {
    const std::string bytes = payload(3, 34);
    for (std::size_t size = 0; size < bytes.size(); ++size)
        EXPECT_FALSE(refusal(bytes.substr(0, size)).empty());
    EXPECT_THAT(refusal(bytes + "x"), HasSubstr("lists 3 items in 53 bytes"));
}

TEST(LazDescription, UnknownCompressorsAndCodersAreRefused) {
    std::string bytes = payload(3, 34);
    for (const int compressor : {0, 4, 0xFFFF}) {
        patch(bytes, 0, static_cast<std::uint16_t>(compressor));
        EXPECT_THAT(refusal(bytes),
                    HasSubstr("the compressor " + std::to_string(compressor) + " is not known"));
    }
    bytes = payload(3, 34);
    patch(bytes, 2, std::uint16_t{1});
    EXPECT_THAT(refusal(bytes), HasSubstr("the coder 1 is not known"));
}

TEST(LazDescription, CompressorOfTheOtherFamilyOfFormatsIsRefused) {
    std::string bytes = payload(3, 34);
    patch(bytes, 0, std::uint16_t{3});
    EXPECT_THAT(refusal(bytes), HasSubstr("cannot be used with point format 3"));
    for (const int compressor : {1, 2}) {
        bytes = payload(6, 30);
        patch(bytes, 0, static_cast<std::uint16_t>(compressor));
        EXPECT_THAT(refusal(bytes, 6, 30), HasSubstr("cannot be used with point format 6"));
    }
}

TEST(LazDescription, ChunkSizeZeroIsRefused) {
    std::string bytes = payload(3, 34);
    patch(bytes, 12, std::uint32_t{0});
    EXPECT_THAT(refusal(bytes), HasSubstr("the chunk size is 0"));
}

TEST(LazDescription, ItemsOfAnotherFormatOrLengthAreRefused) {
    EXPECT_THAT(refusal(payload(1, 28)), HasSubstr("lists 2 items"));
    EXPECT_THAT(refusal(payload(3, 35)), HasSubstr("lists 4 items"));
    EXPECT_THAT(refusal(payload(3, 36), 3, 35), HasSubstr("item 3 is of type 0 with 2 bytes"));
    std::string bytes = payload(3, 34);
    patch(bytes, firstItem, std::uint16_t{10});
    EXPECT_THAT(refusal(bytes), HasSubstr("item 0 is of type 10"));
    bytes = payload(3, 34);
    patch(bytes, firstItem + 2, std::uint16_t{30});
    EXPECT_THAT(refusal(bytes), HasSubstr("item 0 is of type 6 with 30 bytes"));
    // The older item for plain bytes has no layers.
    bytes = payload(6, 31);
    patch(bytes, firstItem + 6, std::uint16_t{0});
    EXPECT_THAT(refusal(bytes, 6, 31), HasSubstr("item 1 is of type 0"));
}

TEST(LazDescription, UnknownItemVersionsAreRefused) {
    for (const int version : {0, 3, 4, 0xFFFF}) {
        std::string bytes = payload(3, 34);
        patch(bytes, firstItem + 4, static_cast<std::uint16_t>(version));
        EXPECT_THAT(refusal(bytes), HasSubstr("has the version " + std::to_string(version)));
    }
    for (const int version : {0, 1, 2, 5}) {
        std::string bytes = payload(6, 30);
        patch(bytes, firstItem + 4, static_cast<std::uint16_t>(version));
        EXPECT_THAT(refusal(bytes, 6, 30), HasSubstr("has the version " + std::to_string(version)));
    }
    std::string bytes = payload(4, 57);
    patch(bytes, firstItem + 2 * 6 + 4, std::uint16_t{2});
    EXPECT_THAT(refusal(bytes, 4, 57), HasSubstr("item 2 of type 9 has the version 2"));
}

} // namespace
