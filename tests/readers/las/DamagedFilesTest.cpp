// SPDX-License-Identifier: Apache-2.0
//
// Small valid files, damaged in every place: what comes out is a clear error, or values that the bytes in
// fact state.
#include "anchor/Error.hpp"
#include "support/AllocationWatch.hpp"
#include "support/decodeLas.hpp"
#include "support/smallLasFiles.hpp"

#include <random>
#include <string>

#include <gtest/gtest.h>

namespace {

using Support::LasFileBuilder;
using Support::LasRecord;
using Support::number;

/// What a plain file holds, taken from its bytes in the simplest way. Throws std::out_of_range when it ends
/// early.
std::vector<std::string> statedRecords(const std::string& bytes, std::size_t pointOffset) {
    const auto format = number<std::uint8_t>(bytes, 104);
    const auto length = number<std::uint16_t>(bytes, 105);
    std::uint64_t count = number<std::uint32_t>(bytes, 107);
    if (bytes[25] == 4 && number<std::uint64_t>(bytes, 247) != 0)
        count = number<std::uint64_t>(bytes, 247);
    std::vector<std::string> records;
    for (std::uint64_t i = 0; i < count; ++i) {
        LasRecord record = LasFileBuilder::decode(bytes, pointOffset + i * length, format, length);
        record.wavePacket = {};
        records.push_back(LasFileBuilder::encode(record, format));
    }
    return records;
}

class DamagedFile : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override { good_ = Support::smallLasFiles().at(GetParam()); }

    /// Decodes the bytes completely. Only an Anchor::Error may come out, or points that the bytes state.
    void decode(const std::string& bytes, const std::string& what) {
        const Support::MemoryFile memory(bytes);
        const Support::AllocationWatch watch;
        try {
            const auto file = std::make_shared<Tidewatch::Las::LasFile>(memory.path());
            const auto& header = file->header();
            Tidewatch::Las::PointDecoder decoder(file);
            std::vector<LasRecord> records;
            std::uint64_t count = 0;
            decoder.decode(0, header.pointCount, [&](std::span<const Tidewatch::Las::Point> points) {
                count += points.size();
                // A damaged count may make a compressed file long; its beginning is enough to keep.
                for (const auto& point : points) {
                    if (records.size() < 1000)
                        records.push_back(Support::record(point, header.extraByteCount()));
                }
            });
            ++taken_;
            ASSERT_EQ(count, header.pointCount) << what;
            if (!file->compression()) {
                const auto stated = statedRecords(bytes, header.pointOffset);
                ASSERT_EQ(stated.size(), records.size()) << what;
                for (std::size_t i = 0; i < stated.size(); ++i)
                    ASSERT_EQ(LasFileBuilder::encode(records[i], header.pointFormat), stated[i]) << what;
            }
        } catch (const Anchor::Error& error) {
            ++refused_;
            ASSERT_EQ(std::string(error.what()).rfind(memory.path() + ": ", 0), 0U) << error.what();
        }
        ASSERT_LT(watch.largest(), std::size_t{4} << 20) << what;
    }

    std::string good_;
    std::size_t taken_ = 0;
    std::size_t refused_ = 0;
};

TEST_P(DamagedFile, AsItWasIsRead) {
    ASSERT_LE(good_.size(), 4096U);
    decode(good_, "undamaged");
    EXPECT_EQ(taken_, 1U);
}

TEST_P(DamagedFile, EachByteFlippedIsRefusedOrReadAsItStands) {
    for (std::size_t place = 0; place < good_.size(); ++place) {
        std::string bytes = good_;
        bytes[place] = static_cast<char>(~bytes[place]);
        decode(bytes, "all bits of byte " + std::to_string(place));
        if (HasFatalFailure())
            return;
    }
    EXPECT_GT(taken_, 0U);
    EXPECT_GT(refused_, 0U);
}

TEST_P(DamagedFile, EachByteWithBitsFlippedIsRefusedOrReadAsItStands) {
    // Every bit of a plain file; of a compressed one, which takes longer to decode, two of each byte in turn.
    const bool isCompressed = (static_cast<unsigned char>(good_[104]) & 0x80U) != 0;
    for (std::size_t place = 0; place < good_.size(); ++place) {
        for (std::size_t turn = 0; turn < (isCompressed ? 2 : 8); ++turn) {
            const auto bit = static_cast<unsigned>((place + 3 * turn) % 8);
            std::string bytes = good_;
            bytes[place] = static_cast<char>(static_cast<unsigned char>(bytes[place]) ^ (1U << bit));
            decode(bytes, "bit " + std::to_string(bit) + " of byte " + std::to_string(place));
            if (HasFatalFailure())
                return;
        }
    }
}

TEST_P(DamagedFile, EachTruncationIsRefusedOrReadAsItStands) {
    for (std::size_t size = 0; size < good_.size(); ++size) {
        decode(good_.substr(0, size), "cut to " + std::to_string(size));
        if (HasFatalFailure())
            return;
    }
    EXPECT_GT(refused_, 227U - 1U);
}

TEST_P(DamagedFile, SeveralRandomBytesAreRefusedOrReadAsTheyStand) {
    std::mt19937 random(17);
    for (unsigned round = 0; round < 1500; ++round) {
        std::string bytes = good_;
        for (unsigned i = 0; i < 1 + round % 6; ++i) {
            // Interesting numbers more often than others, and the header as often as the rest.
            const std::size_t place = random() % (random() % 2 == 0 ? 375 : bytes.size()) % bytes.size();
            constexpr unsigned char favourites[] = {0, 1, 127, 128, 255};
            bytes[place] = static_cast<char>(random() % 2 == 0 ? favourites[random() % 5] : random() % 256);
        }
        decode(bytes, "round " + std::to_string(round));
        if (HasFatalFailure())
            return;
    }
}

std::vector<std::string> names() {
    std::vector<std::string> list;
    for (const auto& [name, bytes] : Support::smallLasFiles())
        list.push_back(name);
    return list;
}

INSTANTIATE_TEST_SUITE_P(Small, DamagedFile, ::testing::ValuesIn(names()),
                         [](const auto& test) { return test.param; });

TEST(RandomBytes, AreRefused) {
    std::mt19937 random(23);
    for (int round = 0; round < 5000; ++round) {
        std::string bytes(random() % 1200, '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(random() % 256);
        if (round % 2 == 0)
            bytes.replace(0, 4, "LASF");
        // Past the first checks now and then.
        if (round % 4 == 0 && bytes.size() > 110) {
            bytes[24] = 1;
            bytes[25] = static_cast<char>(random() % 5);
            Support::patch(bytes, 94, static_cast<std::uint16_t>(375));
            bytes[104] = static_cast<char>(random() % 11 + (random() % 2) * 128);
        }
        EXPECT_FALSE(Support::failureOfLas<Anchor::FormatError>(bytes).empty());
    }
}

} // namespace
