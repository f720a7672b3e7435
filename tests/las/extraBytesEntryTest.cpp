// SPDX-License-Identifier: Apache-2.0
#include "formats/las/extraBytesEntry.hpp"

#include "formats/las/records.hpp"
#include "sheaf/FieldEncoding.hpp"

#include <array>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>

#include <gtest/gtest.h>

namespace {

namespace Las = Formats::Las;
using Sheaf::FieldEncoding;
using Entry = std::array<std::uint8_t, 192>;

FieldEncoding decoded(const Entry& entry) {
    return Las::decodeExtraBytesEntry<FieldEncoding>(entry);
}

TEST(ExtraBytesEntry, EncodingOfEveryTypeComesBack) {
    for (unsigned type = 1; type <= 10; ++type) {
        FieldEncoding encoding{"name", "what it is", Las::extraBytesTypes.at(type - 1), 0.5, -25.0, 7.0L};
        const Entry entry = Las::encodeExtraBytesEntry(encoding);
        EXPECT_EQ(entry[2], type);
        EXPECT_EQ(entry[3], 1 | 8 | 16);
        const FieldEncoding back = decoded(entry);
        EXPECT_EQ(back.name, "name");
        EXPECT_EQ(back.description, "what it is");
        EXPECT_TRUE(*back.type == *encoding.type);
        EXPECT_EQ(back.scale, 0.5);
        EXPECT_EQ(back.offset, -25.0);
        EXPECT_EQ(back.noData, 7.0L);
        encoding.scale.reset();
        encoding.offset.reset();
        encoding.noData.reset();
        EXPECT_EQ(Las::encodeExtraBytesEntry(encoding)[3], 0);
        EXPECT_EQ(decoded(Las::encodeExtraBytesEntry(encoding)).scale, std::nullopt);
    }
}

TEST(ExtraBytesEntry, NoDataHoldsTheExtremesOfItsTypeAndNothingBeyond) {
    const auto stored = [](const std::type_info& type, long double number) {
        return decoded(Las::encodeExtraBytesEntry(FieldEncoding{"", "", &type, {}, {}, number})).noData;
    };
    using Unsigned = std::numeric_limits<std::uint64_t>;
    using Signed = std::numeric_limits<std::int64_t>;
    EXPECT_EQ(stored(typeid(unsigned long long), Unsigned::max()), static_cast<long double>(Unsigned::max()));
    EXPECT_EQ(stored(typeid(unsigned long long), -1), std::nullopt);
    EXPECT_EQ(stored(typeid(unsigned char), static_cast<long double>(Unsigned::max()) * 2), std::nullopt);
    EXPECT_EQ(stored(typeid(long long), Signed::min()), static_cast<long double>(Signed::min()));
    EXPECT_EQ(stored(typeid(short), static_cast<long double>(Signed::max()) * 2), std::nullopt);
    EXPECT_EQ(stored(typeid(double), -1.5L), -1.5L);
}

TEST(ExtraBytesEntry, TextsFillTheirFieldsWithoutATerminator) {
    const FieldEncoding encoding{std::string(40, 'n'), std::string(40, 'd'), &typeid(float), {}, {}, {}};
    const FieldEncoding back = decoded(Las::encodeExtraBytesEntry(encoding));
    EXPECT_EQ(back.name, std::string(32, 'n'));
    EXPECT_EQ(back.description, std::string(32, 'd'));
}

TEST(ExtraBytesEntry, UnknownTypesAreDoublesWithoutMeaning) {
    Entry entry = Las::encodeExtraBytesEntry(FieldEncoding{"a", "", &typeid(float), 2.0, {}, 1.0L});
    for (const int type : {0, 11, 30, 255}) {
        entry[2] = static_cast<std::uint8_t>(type);
        EXPECT_TRUE(*decoded(entry).type == typeid(double)) << type;
        EXPECT_EQ(decoded(entry).scale, std::nullopt) << type;
    }
}

TEST(LasRecords, ThoseThatTellOfPointsAreBoundToTheirFile) {
    EXPECT_TRUE(Las::isBoundToItsFile("LASF_Spec", 4));
    EXPECT_TRUE(Las::isBoundToItsFile("LASF_Spec", 7));
    EXPECT_TRUE(Las::isBoundToItsFile("LASF_Spec", 100));
    EXPECT_TRUE(Las::isBoundToItsFile("LASF_Spec", 354));
    EXPECT_TRUE(Las::isBoundToItsFile("LASF_Spec", 65535));
    EXPECT_TRUE(Las::isBoundToItsFile("laszip encoded", 22204));
    EXPECT_TRUE(Las::isBoundToItsFile("copc", 1000));
    EXPECT_TRUE(Las::isBoundToItsFile("LAStools", 30));
    EXPECT_FALSE(Las::isBoundToItsFile("LAStools", 10));
    EXPECT_FALSE(Las::isBoundToItsFile("LASF_Spec", 0));
    EXPECT_FALSE(Las::isBoundToItsFile("LASF_Spec", 355));
    EXPECT_FALSE(Las::isBoundToItsFile("LASF_Projection", 2112));
    EXPECT_TRUE(Las::isOfReferenceSystem("LASF_Projection", 2111));
    EXPECT_TRUE(Las::isOfReferenceSystem("LASF_Projection", 34737));
    EXPECT_FALSE(Las::isOfReferenceSystem("LASF_Projection", 1));
    EXPECT_FALSE(Las::isOfReferenceSystem("Somebody", 2112));
}

} // namespace
