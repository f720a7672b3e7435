// SPDX-License-Identifier: Apache-2.0
//
// LAS files by way of a bundle file: what `las` writes of it is what it writes of the files themselves.
#include "library/bundle/BundleExport.hpp"
#include "library/crs/GeoKeys.hpp"
#include "library/input/Inputs.hpp"
#include "library/las/exportLas.hpp"
#include "readers/registerReaders.hpp"
#include "support/GeoKeyBuilder.hpp"
#include "support/LasFileBuilder.hpp"
#include "support/TemporaryFolder.hpp"
#include "support/WrittenLas.hpp"
#include "support/sharedData.hpp"
#include "support/testName.hpp"

#include <map>
#include <ostream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace Tidewatch {
namespace {

using Support::LasFileBuilder;
using Support::WrittenLas;

Inputs inputsOf(const std::vector<std::string>& files) {
    InputOptions options;
    options.files = files;
    options.fragmentPoints = 1000;
    return Inputs(options);
}

/// Points of a format with all that files may state: descriptions of extra bytes, records, a system of a kind, and
/// numbers in the header that nobody else has. Texts are Latin-1.
std::string varied(unsigned format, bool hasKeys, std::uint16_t sourceId = 47, bool hasOwnKeys = false) {
    LasFileBuilder file;
    file.minor = format >= 6 ? 4 : 2;
    file.format = format;
    file.globalEncoding = hasKeys ? 1 : format >= 6 ? 17 : 0;
    file.scale = {0.01, 0.001, 0.25};
    file.offset = {-7, 1e5, 0};
    file.extraByteCount = 2 + 8 + 4 + 1 + 6;
    std::string scaled =
        LasFileBuilder::attribute(4, "H\xf6he, in a name of 32 bytes. ****", 8 | 16 | 1, 0.01, 5);
    Support::patch(scaled, 40, std::int64_t{-32768});
    scaled.replace(160, 3, "[m]");
    file.describe(scaled + LasFileBuilder::attribute(7, "a/b") + LasFileBuilder::attribute(9, "Reflectance") +
                  LasFileBuilder::attribute(1, "Amplitude") +
                  LasFileBuilder::attribute(23, "Triple with a name of 32 bytes.."));
    file.vlrs.push_back({"Somebody", 1, "first"});
    file.vlrs.push_back({"Vermesser \xfc", 1, ""});
    if (hasOwnKeys) {
        for (const Sheaf::FileRecord& record : Support::GeoKeyBuilder::ownProjection().records())
            file.vlrs.push_back({record.userId, record.recordId, {record.bytes.begin(), record.bytes.end()}});
    } else if (hasKeys) {
        const auto keys = GeoKeys::write(ReferenceSystem::fromCode("EPSG:25832+5783"));
        file.vlrs.push_back({keys->userId, keys->recordId, {keys->bytes.begin(), keys->bytes.end()}});
    } else if (format >= 6) {
        file.vlrs.push_back({"LASF_Projection", 2112, "LOCAL_CS[\"site\",UNIT[\"metre\",1]]"});
        file.evlrs.push_back({"Somebody", 2, std::string(70'000, 'x')});
    } else {
        const std::string text = *ReferenceSystem::fromCode("EPSG:2994").ogcText();
        file.vlrs.push_back({"LASF_Projection", 2112, text + '\0'});
    }
    file.addVariedPoints(2500);
    std::string bytes = file.build();
    Support::patch(bytes, 4, sourceId);
    bytes.replace(26, 9, "Fl\xfcgel 47");
    return bytes;
}

struct Trip {
    std::string
        file; ///< a public sample, or "formatN", "formatNkeys", "formatNOwnKeys": points of that format
    int version;

    // Else names of tests would show addresses.
    friend void PrintTo(const Trip& one, std::ostream* out) { *out << one.file << " to 1." << one.version; }
};

class BundleTrip : public ::testing::TestWithParam<Trip> {
protected:
    void SetUp() override { registerReaders(); }

    /// Writes LAS files of some inputs; gives their bytes, without the day, by name.
    std::map<std::string, std::string> write(const std::vector<std::string>& files, const std::string& folder,
                                             int version) {
        const Inputs inputs = inputsOf(files);
        LasOptions options;
        options.output = OutputPattern(folder_ / (folder + "-{grid}.las"));
        options.version = version;
        std::map<std::string, std::string> written;
        for (const auto& file : exportLas(inputs, options).files) {
            WrittenLas las = WrittenLas::read(file.path);
            las.bytes.replace(90, 4, 4, '\0');
            written[file.path.substr(file.path.rfind('-'))] = las.bytes;
        }
        return written;
    }

    /// The same by way of a bundle file.
    std::map<std::string, std::string> writeByBundle(const std::vector<std::string>& files, int version) {
        const auto progress = Anchor::makeStrong<Progress>();
        const std::string bundle = folder_ / "all.h5";
        {
            const Inputs inputs = inputsOf(files);
            BundleExport out(bundle, true, {});
            static_cast<void>(out.write(*inputs.bundle(), *progress));
            out.commit();
        }
        return write({bundle}, "bundled", version);
    }

    Support::TemporaryFolder folder_;
};

TEST_P(BundleTrip, GivesTheSameBytesAsTheFileItself) {
    std::string source = folder_ / "in.las";
    const std::string& file = GetParam().file;
    if (file.starts_with("format")) {
        Support::writeBytes(source, varied(static_cast<unsigned>(std::stoul(file.substr(6))),
                                           file.ends_with("keys"), 47, file.ends_with("OwnKeys")));
    } else {
        TIDEWATCH_NEED_SHARED(sample, file);
        source = sample;
    }
    const auto direct = write({source}, "direct", GetParam().version);
    ASSERT_EQ(direct.size(), 1U);
    EXPECT_TRUE(writeByBundle({source}, GetParam().version) == direct);
    // Nothing of this is so by chance: the file differs from one of points alone.
    if (file.starts_with("format")) {
        const WrittenLas las{direct.begin()->second};
        EXPECT_EQ(las.at<std::uint16_t>(4), 47);
        EXPECT_EQ(las.text(26, 32), "Fl\xfcgel 47");
        EXPECT_EQ(las.scale(2), 0.25);
        EXPECT_THAT(las.bytes, ::testing::HasSubstr("Vermesser \xfc"));
    }
}

std::vector<Trip> trips() {
    std::vector<Trip> list;
    for (const char* const file :
         {"format0", "format1keys", "format3", "format7", "format8keys", "format0OwnKeys",
          "1.2-with-color.las", "epsg_4326.las", "extrabytes.las", "test1_4.las", "autzen_trim.laz"}) {
        for (const int version : {2, 4})
            list.push_back({file, version});
    }
    return list;
}

INSTANTIATE_TEST_SUITE_P(, BundleTrip, ::testing::ValuesIn(trips()), [](const auto& one) {
    return Support::testName(one.param.file) + "ToVersion" + std::to_string(one.param.version);
});

class BundleOfSeveral : public BundleTrip {};

TEST_P(BundleOfSeveral, KeepsWhatEachFileStates) {
    const std::vector<std::string> files{folder_ / "first.las", folder_ / "second.las",
                                         folder_ / "third.las"};
    Support::writeBytes(files[0], varied(1, true, 1));
    Support::writeBytes(files[1], varied(6, false, 2));
    Support::writeBytes(files[2], varied(3, false, 3));
    const auto direct = write(files, "direct", GetParam().version);
    ASSERT_EQ(direct.size(), 3U);
    EXPECT_TRUE(writeByBundle(files, GetParam().version) == direct);
    EXPECT_EQ(Support::number<std::uint16_t>(direct.at("-second.las"), 4), 2);
}

INSTANTIATE_TEST_SUITE_P(, BundleOfSeveral, ::testing::Values(Trip{"", 2}, Trip{"", 4}),
                         [](const auto& one) { return "ToVersion" + std::to_string(one.param.version); });

} // namespace
} // namespace Tidewatch
