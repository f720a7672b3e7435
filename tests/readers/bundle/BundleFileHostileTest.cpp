// SPDX-License-Identifier: Apache-2.0
#include "anchor/Error.hpp"
#include "readers/apart/ApartSource.hpp"
#include "readers/bundle/BundleFileReader.hpp"
#include "support/BundleSeeds.hpp"
#include "support/BundleText.hpp"
#include "support/Hdf5Checksums.hpp"
#include "support/Hdf5Craft.hpp"
#include "support/MemoryFile.hpp"
#include "support/Survivors.hpp"
#include "support/TemporaryFolder.hpp"

#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <tuple>
#include <vector>
#include <zlib.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using Support::TemporaryFolder;
using ::testing::AnyOf;
using ::testing::HasSubstr;
namespace Craft = Support::Craft;
using Form = Craft::File::Form;

/// Reads a file and all its arrays; gives what they hold.
std::string loadAll(const std::string& path, std::uint64_t most = std::uint64_t{16} << 20) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    ConvLib::ReadOptions options;
    options.MaximumArrayBytes = most;
    Tidewatch::BundleFileReader().read(*bundle, path, options);
    return Support::bundleText(*bundle);
}

const std::string skeleton = "/slices/t/grids/g/skeletons/s";

class HostileBundleFile : public ::testing::Test {
protected:
    /// Expects that the file, or one of its arrays, is refused with a message that names the file and says
    /// this, and that a bundle which it was to be read into is left as it was.
    /// `byLibrary` is what some releases of HDF5 say before we do.
    template <class Kind = Anchor::FormatError>
    void expectRefused(const std::string& what, const std::string& byLibrary = {}) {
        const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
        bundle->makeSlice(0)->makeGrid("before");
        const std::string before = Support::bundleText(*bundle);
        ConvLib::ReadOptions options;
        options.MaximumArrayBytes = std::uint64_t{16} << 20;
        bool isRead = false;
        try {
            Tidewatch::BundleFileReader().read(*bundle, file_, options);
            isRead = true;
            ADD_FAILURE() << "accepted:\n" << Support::bundleText(*bundle).substr(0, 2000);
        } catch (const Kind& error) {
            EXPECT_THAT(error.what(),
                        AnyOf(HasSubstr(what), HasSubstr(byLibrary.empty() ? what : byLibrary)));
            EXPECT_THAT(error.what(), HasSubstr(file_));
        }
        if (!isRead) {
            EXPECT_EQ(Support::bundleText(*bundle), before);
        }
    }

    /// Makes a bundle file with one grid, changed by a function, and expects that it is refused.
    template <class Kind = Anchor::FormatError>
    void expectRefused(const std::string& what, const std::function<void(const Craft::File&)>& change) {
        {
            const Craft::File file(file_);
            file.bundle().grid();
            change(file);
        }
        expectRefused<Kind>(what);
    }

    TemporaryFolder folder_;
    std::string file_ = folder_ / "hostile.h5";
    const std::vector<double> numbers_{1, 2, 3, 4, 5, 6};
};

// The file as a whole.

TEST_F(HostileBundleFile, NotHdf5IsRefused) {
    Support::writeBytes(file_, "a text");
    expectRefused("cannot be opened as an HDF5 file");
    Support::writeBytes(file_, "");
    expectRefused("cannot be opened as an HDF5 file");
}

TEST_F(HostileBundleFile, NoFormatOrAnotherIsRefused) {
    { const Craft::File file(file_); }
    expectRefused("not a bundle file");
    Craft::File(file_).text("/", "format", "something else").number("/", "version", 1);
    expectRefused("something else");
    Craft::File(file_).number("/", "format", 1).number("/", "version", 1);
    expectRefused("attribute \"format\" is not a text");
}

TEST_F(HostileBundleFile, VersionNewerMissingOrNoneIsRefused) {
    const auto craft = [&](const auto& version) {
        Craft::File file(file_);
        file.text("/", "format", "tidewatch-bundle").group("/slices");
        version(file);
    };
    craft([](const Craft::File& file) { file.number("/", "version", 2); });
    expectRefused("version 2, which is newer");
    craft([](const Craft::File& file) { file.number("/", "version", 0); });
    expectRefused("does not exist");
    craft([](const Craft::File&) {});
    expectRefused("attribute \"version\" is missing");
    craft([](const Craft::File& file) { file.text("/", "version", "1"); });
    expectRefused("attribute \"version\" is not an integer");
    craft([](const Craft::File& file) { file.number("/", "version", 1.0); });
    expectRefused("attribute \"version\" is not an integer");
    craft([](const Craft::File& file) { file.numbers("/", "version", std::vector<std::int32_t>{1, 1}); });
    expectRefused("attribute \"version\" is not one integer");
}

TEST_F(HostileBundleFile, SlicesMissingOrNoGroupIsRefused) {
    Craft::File(file_).text("/", "format", "tidewatch-bundle").number("/", "version", 1);
    expectRefused("no member \"slices\"");
    Craft::File(file_)
        .text("/", "format", "tidewatch-bundle")
        .number("/", "version", 1)
        .dataset("/slices", H5T_STD_I8LE, H5T_NATIVE_DOUBLE, {6}, numbers_.data());
    expectRefused("/slices: is not a group");
}

TEST_F(HostileBundleFile, GroupThatIsADatasetIsRefused) {
    for (const std::string path :
         {"/slices/x", "/slices/t/grids/x", "/slices/t/grids/g/skeletons/x", "/slices/t/grids/g/charts",
          "/slices/t/grids/g/fragments", "/slices/t/grids/g/skeletons/s/representations/C"}) {
        expectRefused(path + ": ", [&](const Craft::File& file) {
            file.dataset(path, H5T_STD_I8LE, H5T_NATIVE_DOUBLE, {6}, numbers_.data());
        });
    }
}

// What files state of grids and fields.

const std::string grid = "/slices/t/grids/g";

TEST_F(HostileBundleFile, StatementsOfAWrongKindAreRefused) {
    const auto expect = [&](const std::string& what, const std::function<void(const Craft::File&)>& change) {
        expectRefused(grid + ": " + what, change);
    };
    expect("attribute \"step\" is not three finite numbers", [](const Craft::File& file) {
        file.numbers(grid, "step", std::vector<double>{1, 2});
    });
    expect("has a step of coordinates that is not a finite number above 0", [](const Craft::File& file) {
        file.numbers(grid, "step", std::vector<double>{1, 0, 1});
    });
    expect("attribute \"offset\" is not three finite numbers", [](const Craft::File& file) {
        file.numbers(grid, "offset", std::vector<double>{1, 2, std::nan("")});
    });
    expect("attribute \"offset\" is not a number",
           [](const Craft::File& file) { file.text(grid, "offset", "0"); });
    expect("attribute \"gps_time\" is neither",
           [](const Craft::File& file) { file.text(grid, "gps_time", "month"); });
    expect("attribute \"gps_time\" is not a text",
           [](const Craft::File& file) { file.number(grid, "gps_time", 1); });
    expect("attribute \"file_source_id\" is out of range: 65536",
           [](const Craft::File& file) { file.number(grid, "file_source_id", 65536); });
    expect("attribute \"file_source_id\" is not an integer",
           [](const Craft::File& file) { file.number(grid, "file_source_id", 1.5); });
    expect("attribute \"file_source_id\" is not one integer", [](const Craft::File& file) {
        file.numbers(grid, "file_source_id", std::vector<std::int32_t>{1, 2});
    });
    expect("attribute \"system_identifier\" is too long", [](const Craft::File& file) {
        file.longText(grid, "system_identifier", std::string(65'537, 'a'));
    });
}

TEST_F(HostileBundleFile, TextThatClaimsToBeUtf8AndIsNotIsRefused) {
    const auto utf8 = [](const Craft::File& file, const std::string& object, const char* name,
                         const std::string& value, bool isLong) {
        const hid_t type = Craft::need(H5Tcopy(H5T_C_S1), "type");
        Craft::need(H5Tset_size(type, isLong ? H5T_VARIABLE : value.size()), "size");
        Craft::need(H5Tset_cset(type, H5T_CSET_UTF8), "characters");
        const char* const characters = value.data();
        file.attribute(object, name, type, type, {},
                       isLong ? static_cast<const void*>(&characters) : characters);
        H5Tclose(type);
    };
    for (const std::string text :
         {"\xff", "a\x80", "\xc3", "\xc3(", "\xc0\x80", "\xe0\x80\x80", "\xed\xa0\x80", "\xf0\x80\x80\x80",
          "\xf4\x90\x80\x80", "\xf5\x80\x80\x80", "\xe2\x82"}) {
        for (const bool isLong : {false, true}) {
            expectRefused(
                grid + ": attribute \"system_identifier\" is not UTF-8",
                [&](const Craft::File& file) { utf8(file, grid, "system_identifier", text, isLong); });
        }
    }
    expectRefused(grid + "/charts/C: attribute \"crs\" is not UTF-8", [&](const Craft::File& file) {
        file.group(grid + "/charts/C");
        utf8(file, grid + "/charts/C", "crs", "LOCAL_CS[\"\xfc\"]", false);
    });
    // All that UTF-8 has, and what says nothing of its bytes, is read.
    for (const std::string text : {"a", "\xc2\x80", "\xdf\xbf", "\xe0\xa0\x80", "\xed\x9f\xbf",
                                   "\xef\xbf\xbf", "\xf0\x90\x80\x80", "\xf4\x8f\xbf\xbf"}) {
        {
            const Craft::File file(file_);
            utf8(file.bundle().grid(), grid, "system_identifier", text, false);
        }
        EXPECT_THAT(loadAll(file_), HasSubstr("system [" + text + "]"));
    }
    Craft::File(file_).bundle().grid().text(grid, "system_identifier", "\xff");
    EXPECT_THAT(loadAll(file_), HasSubstr("system [\xff]"));
}

TEST_F(HostileBundleFile, ReferenceSystemOfAWrongKindIsRefused) {
    const std::string chart = grid + "/charts/C";
    expectRefused(chart + ": attribute \"crs\" is not a text",
                  [&](const Craft::File& file) { file.group(chart).number(chart, "crs", 25832); });
    expectRefused(chart + ": attribute \"crs\" is too long", [&](const Craft::File& file) {
        file.group(chart).longText(chart, "crs", std::string((std::size_t{1} << 20) + 1, 'a'));
    });
}

TEST_F(HostileBundleFile, InvalidRecordsAreRefused) {
    const std::string record = grid + "/records/000000";
    const auto expect = [&](const std::string& what, hid_t type, const std::vector<hsize_t>& extents,
                            const std::function<void(const Craft::File&)>& change) {
        expectRefused(record + ": " + what, [&](const Craft::File& file) {
            file.dataset(record, type, H5T_NATIVE_DOUBLE, extents, numbers_.data());
            change(file);
        });
    };
    const auto stated = [&](const Craft::File& file) {
        file.text(record, "user_id", "Somebody").number(record, "record_id", 1);
    };
    expect("is a record without a user id or a record id", H5T_STD_U8LE, {6}, [](const Craft::File&) {});
    expect("is a record without a user id or a record id", H5T_STD_U8LE, {6},
           [&](const Craft::File& file) { file.text(record, "user_id", "Somebody"); });
    expect("attribute \"record_id\" is out of range: -1", H5T_STD_U8LE, {6}, [&](const Craft::File& file) {
        file.text(record, "user_id", "Somebody").number(record, "record_id", -1);
    });
    expect("attribute \"user_id\" is not a text", H5T_STD_U8LE, {6},
           [&](const Craft::File& file) { file.number(record, "user_id", 1); });
    expect("is not a list of bytes", H5T_STD_U8LE, {2, 3}, stated);
    expect("its numbers are int8", H5T_STD_I8LE, {6}, stated);
    expect("is not a list of bytes", H5T_STD_U16LE, {6}, stated);
    expectRefused(grid + "/records: is not a group", [](const Craft::File& file) {
        const double one = 1;
        file.dataset(grid + "/records", H5T_STD_U8LE, H5T_NATIVE_DOUBLE, {1}, &one);
    });
    expectRefused(record + ": ", [&](const Craft::File& file) { stated(file.group(record)); });
}

TEST_F(HostileBundleFile, MoreRecordsOrBytesThanAreReadAreRefused) {
    const auto emptyRecord = [](const Craft::File& file, const std::string& path, hsize_t bytes,
                                hid_t properties) {
        file.dataset(path, H5T_STD_U8LE, H5T_NATIVE_UCHAR, {bytes}, nullptr, properties);
        file.text(path, "user_id", "a").number(path, "record_id", 1);
    };
    expectRefused(grid + "/records: has more than 10000 records", [&](const Craft::File& file) {
        emptyRecord(file, grid + "/records/a", 1, H5P_DEFAULT);
        for (int i = 0; i < 10'001; ++i) {
            const std::string name = grid + "/records/r" + std::to_string(i);
            Craft::need(H5Lcreate_hard(file.id(), (grid + "/records/a").c_str(), file.id(), name.c_str(),
                                       H5P_DEFAULT, H5P_DEFAULT),
                        "link");
        }
    });
    // Nothing is stored of a chunk of zeros, whatever the number of bytes it stands for.
    expectRefused(
        "has more reference systems, records and the like than are read", [&](const Craft::File& file) {
            Craft::Properties properties;
            emptyRecord(file, grid + "/records/000000", hsize_t{1} << 40U, properties.chunk({1 << 20}).id());
        });
    // One text that hangs in many places counts as often.
    expectRefused("has more reference systems, records and the like than are read",
                  [&](const Craft::File& file) {
                      const std::string first = grid + "/charts/a";
                      file.group(first).longText(first, "crs", std::string(std::size_t{1} << 20, 'a'));
                      for (int i = 0; i < 128; ++i)
                          Craft::need(H5Lcreate_hard(file.id(), first.c_str(), file.id(),
                                                     (grid + "/charts/b" + std::to_string(i)).c_str(),
                                                     H5P_DEFAULT, H5P_DEFAULT),
                                      "link");
                  });
}

TEST_F(HostileBundleFile, InvalidDescriptionsOfFieldsAreRefused) {
    const std::string field = Craft::fields + "Height";
    const auto expect = [&](const std::string& what, const std::vector<std::int32_t>& bytes) {
        expectRefused(field + ": attribute \"las_attribute\" " + what, [&](const Craft::File& file) {
            file.group(field).numbers(field, "las_attribute", bytes);
        });
    };
    std::vector<std::int32_t> entry(192);
    entry[2] = 4;
    expect("is not the 192 bytes of a description",
           std::vector<std::int32_t>(entry.begin(), entry.end() - 1));
    expect("is not the 192 bytes of a description", std::vector<std::int32_t>(193));
    expect("has too many values", std::vector<std::int32_t>(5000));
    for (const std::int32_t type : {0, 11, 255}) {
        entry[2] = type;
        expect("does not describe a number", entry);
    }
    entry[2] = 4;
    entry[5] = 256;
    expect("is out of range: 256", entry);
    entry[5] = 0;
    // A scale of 0, which is stated, and an offset that is infinite.
    entry[3] = 8;
    expect("says that it is stored with a scale or an offset that makes no value", entry);
    entry[3] = 16;
    entry[136 + 6] = 0xf0;
    entry[136 + 7] = 0x7f;
    expect("says that it is stored with a scale or an offset that makes no value", entry);
    expectRefused(field + ": attribute \"las_attribute\" is not an integer", [&](const Craft::File& file) {
        file.group(field).text(field, "las_attribute", std::string(192, 'a'));
    });
}

// Attributes.

TEST_F(HostileBundleFile, TimeMissingMistypedOrNotFiniteIsRefused) {
    const auto craft = [&](const auto& time) {
        Craft::File file(file_);
        file.bundle().group("/slices/t");
        time(file);
    };
    craft([](const Craft::File&) {});
    expectRefused("/slices/t: attribute \"time\" is missing");
    craft([](const Craft::File& file) { file.text("/slices/t", "time", "noon"); });
    expectRefused("attribute \"time\" is not a number");
    craft([](const Craft::File& file) { file.numbers("/slices/t", "time", std::vector<double>{1, 2}); });
    expectRefused("attribute \"time\" is not one finite number");
    for (const double time :
         {std::nan(""), std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity()}) {
        craft([&](const Craft::File& file) { file.number("/slices/t", "time", time); });
        expectRefused("attribute \"time\" is not one finite number");
    }
}

TEST_F(HostileBundleFile, TwoSlicesOfOneTimeAreRefused) {
    Craft::File(file_)
        .bundle()
        .group("/slices/a")
        .group("/slices/b")
        .number("/slices/a", "time", 0.0)
        .number("/slices/b", "time", -0.0);
    expectRefused("/slices/b: two slices have the same time");
}

TEST_F(HostileBundleFile, SkeletonsTwiceOrWithWrongAttributesAreRefused) {
    expectRefused("two skeletons of dimension 0", [](const Craft::File& file) {
        file.group("/slices/t/grids/g/skeletons/z").number("/slices/t/grids/g/skeletons/z", "dimension", 0);
    });
    expectRefused("attribute \"dimension\" is missing",
                  [](const Craft::File& file) { file.group("/slices/t/grids/g/skeletons/z"); });
    expectRefused("attribute \"dimension\" is out of range", [](const Craft::File& file) {
        const std::int64_t dimension = std::int64_t{1} << 40;
        file.group("/slices/t/grids/g/skeletons/z")
            .attribute("/slices/t/grids/g/skeletons/z", "dimension", H5T_STD_I64LE, H5T_NATIVE_INT64, {},
                       &dimension);
    });
    expectRefused("attribute \"refinement\" is not an integer",
                  [](const Craft::File& file) { file.number(skeleton, "refinement", 1.0); });
    expectRefused("attribute \"refinement\" is out of range", [](const Craft::File& file) {
        file.numbers(skeleton, "refinement", std::vector<std::uint64_t>{1, std::uint64_t{1} << 63});
    });
    expectRefused("attribute \"refinement\" has too many values", [](const Craft::File& file) {
        file.numbers(skeleton, "refinement", std::vector<std::int32_t>(5000));
    });
    expectRefused("attribute \"excluded\" is not an integer",
                  [](const Craft::File& file) { file.text(skeleton, "excluded", "no"); });
}

TEST_F(HostileBundleFile, OverlapThatIsNotThreeCountsIsRefused) {
    const std::string fragment = "/slices/t/grids/g/fragments/a";
    expectRefused("attribute \"overlap_low\" is not three counts", [&](const Craft::File& file) {
        file.group(fragment).numbers(fragment, "overlap_low", std::vector<std::uint64_t>{1, 2});
    });
    expectRefused("attribute \"overlap_high\" is out of range", [&](const Craft::File& file) {
        file.group(fragment).numbers(fragment, "overlap_high", std::vector<std::int32_t>{1, 2, -1});
    });
}

// Names.

TEST_F(HostileBundleFile, NamesUnfitForPathsAreRefusedAndCannotSteerTheTerminal) {
    for (const std::string& name : {std::string(".."), std::string("a\\b"), std::string("a\nb"),
                                    std::string("\x1b[2J"), std::string("x\x7f")}) {
        for (const std::string& parent :
             {std::string("/slices/t/grids/"), std::string("/slices/t/grids/g/charts/"),
              std::string("/slices/t/grids/g/fragments/"), skeleton + "/representations/", Craft::fields,
              Craft::fields + "Field/"}) {
            expectRefused("name \"", [&](const Craft::File& file) { file.group(parent + name); });
            try {
                loadAll(file_);
            } catch (const Anchor::Error& error) {
                for (const char character : std::string(error.what())) {
                    EXPECT_GE(static_cast<unsigned char>(character), 0x20);
                    EXPECT_NE(character, '\x7f');
                }
            }
        }
    }
}

// Links.

TEST_F(HostileBundleFile, SoftExternalAndUserDefinedLinksAreRefusedWhereverTheyAre) {
    const std::string other = folder_ / "other.h5";
    Craft::File(other).bundle().grid().dataset("/data", H5T_STD_I8LE, H5T_NATIVE_DOUBLE, {6},
                                               numbers_.data());
    for (const std::string& path :
         {std::string("/slices/x"), std::string("/slices/t/grids/x"), std::string("/slices/t/grids/g/charts"),
          std::string("/slices/t/grids/g/charts/x"), std::string("/slices/t/grids/g/fragments/x"),
          std::string("/slices/t/grids/g/skeletons/x"), skeleton + "/representations/x", Craft::fields + "x",
          Craft::fields + "Field/x"}) {
        const auto prepare = [&](const Craft::File& file) {
            if (path.find("charts/") != std::string::npos)
                file.group("/slices/t/grids/g/charts");
            if (path.find("fragments/") != std::string::npos)
                file.group("/slices/t/grids/g/fragments");
            file.group(Craft::fields + "Field");
        };
        expectRefused(path + ": is not a hard link", [&](const Craft::File& file) {
            prepare(file);
            Craft::need(H5Lcreate_soft("/slices/t", file.id(), path.c_str(), H5P_DEFAULT, H5P_DEFAULT),
                        "link");
        });
        expectRefused(path + ": is not a hard link", [&](const Craft::File& file) {
            prepare(file);
            Craft::need(H5Lcreate_external(other.c_str(), "/slices/t", file.id(), path.c_str(), H5P_DEFAULT,
                                           H5P_DEFAULT),
                        "link");
        });
    }
    expectRefused("/slices/x: is not a hard link", [](const Craft::File& file) {
        const H5L_class_t kind{
            H5L_LINK_CLASS_T_VERS,
            static_cast<H5L_type_t>(H5L_TYPE_UD_MIN + 9),
            "test",
            nullptr,
            nullptr,
            nullptr,
            [](const char*, hid_t, const void*, std::size_t, hid_t, hid_t) -> hid_t { return -1; },
            nullptr,
            nullptr};
        Craft::need(H5Lregister(&kind), "kind of link");
        Craft::need(H5Lcreate_ud(file.id(), "/slices/x", kind.id, "x", 1, H5P_DEFAULT, H5P_DEFAULT), "link");
        H5Lunregister(kind.id);
    });
}

TEST_F(HostileBundleFile, SoftLinkToTheSlicesIsRefused) {
    {
        const Craft::File file(file_);
        file.text("/", "format", "tidewatch-bundle").number("/", "version", 1).group("/elsewhere");
        Craft::need(H5Lcreate_soft("/elsewhere", file.id(), "/slices", H5P_DEFAULT, H5P_DEFAULT), "link");
    }
    expectRefused("/slices: is not a hard link");
}

TEST_F(HostileBundleFile, GroupThatIsItsOwnAncestorEndsAtTheFixedDepth) {
    expectRefused("/slices/t/grids/loop/", [](const Craft::File& file) {
        // Wherever the loop is entered, what is needed at the next level is missing there.
        Craft::need(
            H5Lcreate_hard(file.id(), "/", file.id(), "/slices/t/grids/loop", H5P_DEFAULT, H5P_DEFAULT),
            "link");
        Craft::need(H5Lcreate_hard(file.id(), "/slices", file.id(), "/skeletons", H5P_DEFAULT, H5P_DEFAULT),
                    "link");
    });
}

TEST_F(HostileBundleFile, GroupsThatHangInEachOtherManyTimesAreRefusedLongBeforeAllAreVisited) {
    {
        // Each level has so many links to one group of the next level: their product is 10^12.
        const Craft::File file(file_, Form::Version18);
        file.bundle().grid().group(Craft::fields + "0");
        const auto multiply = [&](const std::string& path) {
            const std::string parent = path.substr(0, path.rfind('/') + 1);
            for (int i = 0; i < 100; ++i)
                Craft::need(H5Lcreate_hard(file.id(), path.c_str(), file.id(),
                                           (parent + "n" + std::to_string(i)).c_str(), H5P_DEFAULT,
                                           H5P_DEFAULT),
                            "link");
        };
        multiply(Craft::fields + "0");
        multiply(Craft::fields.substr(0, Craft::fields.size() - 1));
        multiply("/slices/t/grids/g");
    }
    // The walk asks whether to go on every so many links, so that the work may be counted by that.
    const std::uintmax_t most = std::filesystem::file_size(file_) / 64;
    std::uintmax_t ticks = 0;
    ConvLib::ReadOptions options;
    options.Tick = [&](const std::string&, double) {
        if (++ticks > most)
            throw std::runtime_error("more links have been followed than the file has room for");
    };
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    try {
        Tidewatch::BundleFileReader().read(*bundle, file_, options);
        ADD_FAILURE() << "accepted";
    } catch (const Anchor::FormatError& error) {
        EXPECT_THAT(error.what(), HasSubstr("more links than a file of this size can hold"));
    }
    EXPECT_GT(ticks, 0u);
    EXPECT_EQ(Support::bundleText(*bundle), "");
}

// Fields and their types.

TEST_F(HostileBundleFile, ElementTypeUnknownOrNoTextIsRefused) {
    expectRefused("element type that is not supported: \"float16\"", [](const Craft::File& file) {
        file.group(Craft::fields + "F").text(Craft::fields + "F", "element", "float16");
    });
    expectRefused("attribute \"element\" is not a text", [](const Craft::File& file) {
        file.group(Craft::fields + "F").number(Craft::fields + "F", "element", 3);
    });
}

TEST_F(HostileBundleFile, NumberTypeThatCannotHoldTheElementTypeIsRefused) {
    const std::vector<std::pair<hid_t, const char*>> misfits{
        {H5T_STD_I8LE, "uint16"},    {H5T_STD_U8LE, "int8"},    {H5T_STD_I16LE, "uint16"},
        {H5T_STD_U64LE, "int64"},    {H5T_STD_I64LE, "uint64"}, {H5T_STD_I64LE, "float32"},
        {H5T_IEEE_F32LE, "float64"}, {H5T_IEEE_F32LE, "int32"}, {H5T_IEEE_F64LE, "float80"},
        {H5T_IEEE_F64LE, "int64"},   {H5T_IEEE_F32LE, "point"}, {H5T_STD_I8LE, "rgb8"},
        {H5T_STD_U8LE, "bivector3f"}};
    for (const auto& misfit : misfits) {
        expectRefused("cannot hold every " + std::string(misfit.second), [&](const Craft::File& file) {
            file.dataset(Craft::fields + "F/a", misfit.first, H5T_NATIVE_DOUBLE, {2, 3}, numbers_.data())
                .text(Craft::fields + "F", "element", misfit.second);
        });
    }
}

TEST_F(HostileBundleFile, DatasetThatHoldsNoNumbersOfAKnownTypeIsRefused) {
    const auto expectType = [&](hid_t type) {
        expectRefused("of a type that is not supported", [&](const Craft::File& file) {
            file.dataset(Craft::fields + "F", type, type, {2}, nullptr);
        });
    };
    const hid_t text = H5Tcopy(H5T_C_S1);
    H5Tset_size(text, 4);
    expectType(text);
    H5Tset_size(text, H5T_VARIABLE);
    expectType(text);
    const hid_t compound = H5Tcreate(H5T_COMPOUND, 8);
    H5Tinsert(compound, "x", 0, H5T_IEEE_F64LE);
    expectType(compound);
    const hsize_t three = 3;
    expectType(H5Tarray_create2(H5T_IEEE_F64LE, 1, &three));
    expectType(H5Tvlen_create(H5T_IEEE_F64LE));
    const hid_t enumeration = H5Tenum_create(H5T_STD_I8LE);
    const signed char value = 1;
    H5Tenum_insert(enumeration, "one", &value);
    expectType(enumeration);
    expectType(H5T_STD_B8LE);
    expectType(H5T_STD_REF_OBJ);
    const hid_t oddInteger = H5Tcopy(H5T_STD_I32LE);
    H5Tset_precision(oddInteger, 20);
    expectType(oddInteger);
    const hid_t half = H5Tcopy(H5T_IEEE_F32LE);
    H5Tset_fields(half, 15, 10, 5, 0, 10);
    H5Tset_precision(half, 16);
    H5Tset_size(half, 2);
    H5Tset_ebias(half, 15);
    expectType(half);
}

TEST_F(HostileBundleFile, ValueOutsideTheElementTypesRangeIsRefusedWhenItIsRead) {
    struct Case {
        hid_t type;
        const char* element;
        double value;
    };
    const std::vector<Case> cases{{H5T_STD_I32LE, "uint8", 256},
                                  {H5T_STD_I16BE, "uint8", -1},
                                  {H5T_STD_I32LE, "int16", 40'000},
                                  {H5T_STD_I64LE, "int32", -3e9},
                                  {H5T_IEEE_F64LE, "float32", 1e39},
                                  {H5T_IEEE_F64LE, "float32", -1e39},
                                  {H5T_IEEE_F64LE, "int32", 0.5},
                                  {H5T_IEEE_F64BE, "int32", 3e9},
                                  {H5T_IEEE_F64LE, "uint8", std::nan("")},
                                  {H5T_IEEE_F32LE, "uint16", std::numeric_limits<double>::infinity()},
                                  {H5T_NATIVE_LDOUBLE, "uint64", -1},
                                  {H5T_NATIVE_LDOUBLE, "int64", 1e19}};
    for (const Case& one : cases) {
        for (const bool isChunked : {false, true}) {
            {
                const std::vector<double> values{1, 2, one.value, 4};
                const Craft::File file(file_);
                Craft::Properties properties;
                if (isChunked)
                    properties.chunk({3}).filters(true, 1, false);
                file.bundle().grid().dataset(Craft::fields + "F", one.type, H5T_NATIVE_DOUBLE, {4},
                                             values.data(), properties.id());
                file.text(Craft::fields + "F", "element", one.element);
            }
            try {
                ADD_FAILURE() << one.element << " from " << one.value << ":\n" << loadAll(file_);
            } catch (const Anchor::FormatError& error) {
                EXPECT_THAT(error.what(), HasSubstr("value that does not fit " + std::string(one.element)));
            }
        }
    }
}

TEST_F(HostileBundleFile, FragmentsOfDifferentTypesWithoutAStatedOneAreRefused) {
    expectRefused("different number types", [&](const Craft::File& file) {
        file.dataset(Craft::fields + "F/a", H5T_STD_I8LE, H5T_NATIVE_DOUBLE, {6}, numbers_.data())
            .dataset(Craft::fields + "F/b", H5T_STD_I16LE, H5T_NATIVE_DOUBLE, {6}, numbers_.data());
    });
}

TEST_F(HostileBundleFile, GroupWhereDataShouldBeIsRefused) {
    expectRefused("F/a: is a group without the attribute \"kind\"",
                  [](const Craft::File& file) { file.group(Craft::fields + "F/a"); });
    expectRefused("is of a kind that is not supported: \"spiral\"", [](const Craft::File& file) {
        file.group(Craft::fields + "F").text(Craft::fields + "F", "kind", "spiral");
    });
}

// Extents.

TEST_F(HostileBundleFile, ExtentsThatNoArrayCouldHaveAreRefused) {
    const auto expectShape = [&](const std::string& what, const std::vector<hsize_t>& extents,
                                 const char* element) {
        std::size_t count = 1;
        for (const hsize_t extent : extents)
            count *= extent;
        const std::vector<double> values(count);
        expectRefused(what, [&](const Craft::File& file) {
            file.dataset(Craft::fields + "F/a", H5T_IEEE_F64LE, H5T_NATIVE_DOUBLE, extents, values.data())
                .text(Craft::fields + "F", "element", element);
        });
    };
    expectShape("no extents that an array could have", {}, "float64");
    expectShape("no extents that an array of float64 could have", {1, 2, 1, 2, 1}, "float64");
    expectShape("no extents that an array could have", {1, 1, 1, 1, 1, 3}, "point");
    expectShape("its last extent is 2", {3, 2}, "point");
    expectShape("its last extent is 4", {4}, "vector");
    expectShape("no extents that an array of point could have", {3}, "point");
}

TEST_F(HostileBundleFile, ExtentsThatOverflowAreRefused) {
    expectRefused("exceeds 64 bits", [](const Craft::File& file) {
        Craft::Properties properties;
        properties.chunk({1, 1, 1});
        const hsize_t large = hsize_t{1} << 21;
        file.dataset(Craft::fields + "F", H5T_STD_I8LE, H5T_NATIVE_INT8, {large, large, hsize_t{1} << 20},
                     nullptr, properties.id());
    });
}

TEST_F(HostileBundleFile, ExtentsBeyondTheirMaximumAreRefused) {
    Craft::Properties properties;
    properties.chunk({3});
    {
        const Craft::File file(file_);
        file.bundle().grid().growingDataset(Craft::fields + "F", {6}, {7}, numbers_.data(), properties.id());
    }
    std::string bytes = Support::readBytes(file_);
    std::size_t changed = 0;
    // The extent, and its maximum behind it.
    for (std::size_t place = 0; place + 16 <= bytes.size(); ++place) {
        if (Support::Detail::numberAt(bytes, place, 8) == 6 &&
            Support::Detail::numberAt(bytes, place + 8, 8) == 7) {
            bytes[place] = 9;
            ++changed;
        }
    }
    ASSERT_EQ(changed, 1u);
    Support::repairChecksums(bytes);
    Support::writeBytes(file_, bytes);
    // HDF5 1.14.4 and later refuse it themselves.
    expectRefused("F: has extents beyond what it says is their maximum", "is greater than maxdim size");
}

TEST_F(HostileBundleFile, MoreChunksThanTheFileCanHoldAreRefused) {
    expectRefused("more chunks than a file of this size can hold", [](const Craft::File& file) {
        Craft::Properties properties;
        properties.chunk({1});
        file.dataset(Craft::fields + "F", H5T_STD_I8LE, H5T_NATIVE_INT8, {hsize_t{1} << 32}, nullptr,
                     properties.id());
    });
}

TEST_F(HostileBundleFile, UniformPositionsThatAreNoneAreRefused) {
    const std::string field = Craft::fields + "Positions";
    const auto expectUniform = [&](const std::string& what,
                                   const std::function<void(const Craft::File&)>& fill) {
        expectRefused(what, [&](const Craft::File& file) {
            file.group(field).text(field, "kind", "uniform");
            fill(file);
        });
    };
    constexpr double infinity = std::numeric_limits<double>::infinity();
    const std::vector<double> three{1, 2, 3};
    const std::vector<std::uint64_t> counts{1, 2, 3};
    expectUniform("attribute \"origin\" is missing", [](const Craft::File&) {});
    expectUniform("attribute \"spacing\" is missing",
                  [&](const Craft::File& file) { file.numbers(field, "origin", three); });
    expectUniform("attribute \"extents\" is missing", [&](const Craft::File& file) {
        file.numbers(field, "origin", three).numbers(field, "spacing", three);
    });
    expectUniform("attribute \"origin\" is not three finite numbers", [&](const Craft::File& file) {
        file.numbers(field, "origin", std::vector<double>{1, 2});
    });
    expectUniform("attribute \"origin\" is not three finite numbers", [&](const Craft::File& file) {
        file.numbers(field, "origin", std::vector<double>{1, 2, std::nan("")});
    });
    expectUniform("attribute \"origin\" is not three finite numbers", [&](const Craft::File& file) {
        file.numbers(field, "origin", std::vector<double>{1, infinity, 3});
    });
    for (const double wrong : {std::nan(""), infinity, -infinity}) {
        expectUniform("attribute \"spacing\" is not three finite numbers", [&](const Craft::File& file) {
            file.numbers(field, "origin", three).numbers(field, "spacing", std::vector<double>{1, 2, wrong});
        });
    }
    for (const std::vector<double>& spacing :
         std::vector<std::vector<double>>{{0, 1, 1}, {1, -0.0, 1}, {1, 1, 0}, {-1, 1, 1}, {1, -1e-300, 1}}) {
        expectUniform("Positions: attribute \"spacing\" is not above 0 in every direction",
                      [&](const Craft::File& file) {
                          file.numbers(field, "origin", three)
                              .numbers(field, "spacing", spacing)
                              .numbers(field, "extents", counts);
                      });
    }
    expectUniform("attribute \"extents\" is not an integer", [&](const Craft::File& file) {
        file.numbers(field, "origin", three)
            .numbers(field, "spacing", three)
            .numbers(field, "extents", three);
    });
    expectUniform("exceeds 64 bits", [&](const Craft::File& file) {
        file.numbers(field, "origin", three)
            .numbers(field, "spacing", three)
            .numbers(field, "extents", std::vector<std::uint64_t>{1u << 31, 1u << 31, 8});
    });
    expectUniform("gives uniform positions to a field of float32", [&](const Craft::File& file) {
        file.numbers(field, "origin", three)
            .numbers(field, "spacing", three)
            .numbers(field, "extents", counts)
            .text(field, "element", "float32");
    });
    expectRefused<Anchor::LimitError>("bytes of positions", [&](const Craft::File& file) {
        file.group(field)
            .text(field, "kind", "uniform")
            .numbers(field, "origin", three)
            .numbers(field, "spacing", three)
            .numbers(field, "extents", std::vector<std::uint64_t>{100'000, 100'000, 1});
    });
}

TEST_F(HostileBundleFile, UniformPositionsWithoutPlacesAndWithCountlessRowsAreRefused) {
    const std::string field = Craft::fields + "Positions";
    const auto craft = [&](const std::vector<std::uint64_t>& extents) {
        return [&field, extents](const Craft::File& file) {
            file.group(field)
                .text(field, "kind", "uniform")
                .numbers(field, "origin", std::vector<double>{1, 2, 3})
                .numbers(field, "spacing", std::vector<double>{1, 2, 3})
                .numbers(field, "extents", extents);
        };
    };
    expectRefused("exceeds 64 bits", craft({0, 1'000'000'000'000'000'000, 1}));
    expectRefused<Anchor::LimitError>("stands for 24000000000 bytes of positions",
                                      craft({0, 1'000'000'000, 1}));
}

TEST_F(HostileBundleFile, ArrayWithoutElementsAndWithCountlessRowsIsALimitErrorWhenItIsAskedFor) {
    const auto craft = [&](const std::vector<hsize_t>& extents, bool isPoint) {
        const Craft::File file(file_);
        file.bundle().grid().dataset(Craft::fields + "F", H5T_IEEE_F64LE, H5T_NATIVE_DOUBLE, extents,
                                     nullptr);
        file.text(Craft::fields + "F", "element", isPoint ? "point" : "float64");
    };
    const auto expectLimit = [&](const std::string& bytes) {
        try {
            ADD_FAILURE() << loadAll(file_, 1'000'000);
        } catch (const Anchor::LimitError& error) {
            EXPECT_EQ(error.what(), file_ + ": " + Craft::fields +
                                        "F: has no elements, and yet extents that stand for " + bytes +
                                        " bytes, and 1000000 are allowed");
        }
    };
    craft({1'000'000'000'000'000'000, 0}, false);
    expectLimit("8000000000000000000");
    craft({125'001, 0}, false);
    expectLimit("1000008");
    craft({50'000, 0, 3}, true);
    expectLimit("1200000");
    craft({125'000, 0}, false);
    EXPECT_NO_THROW(loadAll(file_, 1'000'000));

    craft({1'000'000'000'000'000'000, 0, 3}, true);
    expectRefused("exceeds 64 bits");
}

// Storage.

TEST_F(HostileBundleFile, ExternalStorageIsRefused) {
    const std::string other = folder_ / "raw";
    Support::writeBytes(other, std::string(48, 'x'));
    expectRefused("external storage", [&](const Craft::File& file) {
        Craft::Properties properties;
        Craft::need(H5Pset_external(properties.id(), other.c_str(), 0, 48), "external storage");
        file.dataset(Craft::fields + "F", H5T_IEEE_F64LE, H5T_NATIVE_DOUBLE, {6}, nullptr, properties.id());
    });
}

TEST_F(HostileBundleFile, VirtualDatasetIsRefused) {
    const std::string other = folder_ / "source.h5";
    Craft::File(other).dataset("/data", H5T_IEEE_F64LE, H5T_NATIVE_DOUBLE, {6}, numbers_.data());
    {
        const Craft::File file(file_, Form::Latest);
        file.bundle().grid();
        const hsize_t six = 6;
        const hid_t space = H5Screate_simple(1, &six, nullptr);
        Craft::Properties properties;
        Craft::need(H5Pset_virtual(properties.id(), space, other.c_str(), "/data", space), "virtual");
        file.dataset(Craft::fields + "F", H5T_IEEE_F64LE, H5T_NATIVE_DOUBLE, {6}, nullptr, properties.id());
        H5Sclose(space);
    }
    expectRefused("virtual dataset");
}

TEST_F(HostileBundleFile, FilterThatIsNotBuiltInIsRefusedByItsName) {
    const auto pass = [](unsigned, std::size_t, const unsigned*, std::size_t bytes, std::size_t*,
                         void**) -> std::size_t { return bytes; };
    const H5Z_class2_t kind{H5Z_CLASS_T_VERS, 32099, 1, 1, "squeeze", nullptr, nullptr, pass};
    Craft::need(H5Zregister(&kind), "filter");
    expectRefused("F: its data is filtered by \"squeeze\" (filter 32099), which is not one of HDF5's own",
                  [&](const Craft::File& file) {
                      Craft::Properties properties;
                      properties.chunk({3});
                      Craft::need(H5Pset_filter(properties.id(), 32099, 0, 0, nullptr), "filter");
                      file.dataset(Craft::fields + "F", H5T_IEEE_F64LE, H5T_NATIVE_DOUBLE, {6},
                                   numbers_.data(), properties.id());
                  });
    H5Zunregister(32099);
}

TEST_F(HostileBundleFile, PlainDataBeyondTheFileIsRefused) {
    // Never written, so it takes no room in the file; but plain data could not be larger than its file.
    expectRefused("more bytes than the file has", [](const Craft::File& file) {
        file.dataset(Craft::fields + "F", H5T_IEEE_F64LE, H5T_NATIVE_DOUBLE, {hsize_t{1} << 40}, nullptr);
    });

    haddr_t address = HADDR_UNDEF;
    {
        const Craft::File file(file_);
        file.bundle().grid().dataset(Craft::fields + "F", H5T_IEEE_F64LE, H5T_NATIVE_DOUBLE, {6},
                                     numbers_.data());
        const hid_t dataset = H5Dopen2(file.id(), (Craft::fields + "F").c_str(), H5P_DEFAULT);
        address = H5Dget_offset(dataset);
        H5Dclose(dataset);
    }
    std::string bytes = Support::readBytes(file_);
    std::size_t changed = 0;
    for (std::size_t i = 0; i + 16 <= bytes.size(); ++i) {
        // The address of the data, and its size behind it.
        if (Support::Detail::numberAt(bytes, i, 8) == address &&
            Support::Detail::numberAt(bytes, i + 8, 8) == 48) {
            const std::uint64_t wrong = bytes.size() - 47;
            for (std::size_t k = 0; k < 8; ++k)
                bytes[i + k] = static_cast<char>(wrong >> (8 * k));
            ++changed;
        }
    }
    ASSERT_EQ(changed, 1u);
    Support::writeBytes(file_, bytes);
    expectRefused("beyond the end of the file", "invalid dataset size");
}

TEST_F(HostileBundleFile, ArrayAboveTheLimitIsALimitErrorWhenItIsAskedFor) {
    {
        const Craft::File file(file_);
        file.bundle().grid();
        Craft::Properties properties;
        properties.chunk({1000});
        file.dataset(Craft::fields + "F", H5T_IEEE_F64LE, H5T_NATIVE_DOUBLE, {1'000'000}, nullptr,
                     properties.id());
    }
    EXPECT_NO_THROW(loadAll(file_, 8'000'000));
    try {
        loadAll(file_, 7'999'999);
        ADD_FAILURE() << "no error";
    } catch (const Anchor::LimitError& error) {
        EXPECT_THAT(error.what(), HasSubstr("needs 8000000 bytes of memory, and 7999999 are allowed"));
    }
}

TEST_F(HostileBundleFile, ChunkAboveTheLimitIsALimitError) {
    {
        const Craft::File file(file_);
        file.bundle().grid();
        Craft::Properties properties;
        properties.chunk({1'000'000});
        file.growingDataset(Craft::fields + "F", {6}, {H5S_UNLIMITED}, numbers_.data(), properties.id());
    }
    EXPECT_THROW(loadAll(file_, 1000), Anchor::LimitError);
    EXPECT_NO_THROW(loadAll(file_, 4'000'000));
}

/// Bytes as zlib compresses them.
std::string deflated(const std::string& bytes) {
    std::string result(compressBound(bytes.size()), '\0');
    uLongf size = result.size();
    if (compress2(reinterpret_cast<Bytef*>(result.data()), &size,
                  reinterpret_cast<const Bytef*>(bytes.data()), bytes.size(), 9) != Z_OK)
        throw std::runtime_error("cannot compress");
    result.resize(size);
    return result;
}

TEST_F(HostileBundleFile, ChunkThatIsNotWhatItShouldBeIsRefused) {
    struct Case {
        const char* what;
        bool isDeflated;
        bool hasChecksum;
        std::string bytes;
    };
    const std::string right(24, 'a');
    const std::string checksum("\0\1\2\3", 4);
    const std::vector<Case> cases{
        {"has 25 bytes where 24 are needed", true, false, deflated(std::string(25, 'a'))},
        {"decompresses to more bytes than are needed", true, false, deflated(std::string(50'000'000, 'a'))},
        {"has 23 bytes where 24 are needed", true, false, deflated(std::string(23, 'a'))},
        {"has 0 bytes where 24 are needed", true, false, deflated("")},
        {"cannot be decompressed", true, false, "no zlib at all"},
        {"cannot be decompressed", true, false, deflated(right).substr(0, 6)},
        {"has 3 bytes where 24 are needed", false, false, "abc"},
        {"has 25 bytes where 24 are needed", false, false, right + "a"},
        {"does not match its checksum", false, true, right + checksum},
        {"too short for its checksum", false, true, "abc"}};
    for (const Case& one : cases) {
        {
            const Craft::File file(file_);
            file.bundle().grid();
            Craft::Properties properties;
            properties.chunk({3}).filters(false, one.isDeflated ? 6 : 0, one.hasChecksum);
            file.dataset(Craft::fields + "F", H5T_IEEE_F64LE, H5T_NATIVE_DOUBLE, {3}, nullptr,
                         properties.id());
            const hid_t dataset = H5Dopen2(file.id(), (Craft::fields + "F").c_str(), H5P_DEFAULT);
            const hsize_t start = 0;
            Craft::need(H5Dwrite_chunk(dataset, H5P_DEFAULT, 0, &start, one.bytes.size(), one.bytes.data()),
                        "chunk");
            H5Dclose(dataset);
        }
        try {
            ADD_FAILURE() << one.what << ":\n" << loadAll(file_);
        } catch (const Anchor::FormatError& error) {
            EXPECT_THAT(error.what(), HasSubstr(one.what));
            EXPECT_THAT(error.what(), HasSubstr(Craft::fields + "F"));
        }
    }
}

// Changes while the file is open.

class ChangedBundleFile : public HostileBundleFile {
protected:
    void SetUp() override {
        Support::Seeds::foreign(file_, Form::Oldest);
        bundle_ = Anchor::makeStrong<Sheaf::Bundle>();
        Tidewatch::BundleFileReader().read(*bundle_, file_, {});
    }

    void expectChanged() {
        try {
            ADD_FAILURE() << Support::bundleText(*bundle_);
        } catch (const Anchor::Error& error) {
            EXPECT_THAT(error.what(), HasSubstr("has been changed since"));
        }
    }

    Anchor::StrongPtr<Sheaf::Bundle> bundle_;
};

TEST_F(ChangedBundleFile, CutOffIsRefusedWhenArraysAreAskedFor) {
    std::filesystem::resize_file(file_, std::filesystem::file_size(file_) - 1);
    expectChanged();
}

TEST_F(ChangedBundleFile, WrittenIntoIsRefusedWhenArraysAreAskedFor) {
    const std::string bytes = Support::readBytes(file_);
    const auto before = std::filesystem::last_write_time(file_);
    // File systems differ in how finely they tell the time.
    do {
        std::fstream out(file_, std::ios::binary | std::ios::in | std::ios::out);
        out << bytes;
    } while (std::filesystem::last_write_time(file_) == before);
    expectChanged();
}

TEST_F(ChangedBundleFile, RemovedIsStillRead) {
    std::filesystem::remove(file_);
    EXPECT_THAT(Support::bundleText(*bundle_), HasSubstr("1 2 3 4 5 6"));
}

TEST_F(ChangedBundleFile, ReplacedByAnotherOfItsNameIsStillReadAsItWas) {
    Support::writeBytes(folder_ / "new", "something else");
    std::filesystem::rename(folder_ / "new", file_);
    EXPECT_THAT(Support::bundleText(*bundle_), HasSubstr("1 2 3 4 5 6"));
}

// Damage of every kind: a clear error, or the same values each time; never a crash, a hang or a heap of
// memory.

// Under AddressSanitizer what has been freed stays in memory for a while.
constexpr long mostMebibytes = 1024;

/// What is wrong with how a damaged file is taken; nothing when nothing is. A file that is accepted is read
/// twice.
std::string complaintAbout(const std::string& bytes) {
    const Support::MemoryFile file(bytes);
    std::string first;
    try {
        first = loadAll(file.path());
    } catch (const Anchor::Error& error) {
        const std::string message = error.what();
        if (message.find(file.path()) == std::string::npos)
            return "the message does not name the file: " + message;
        // Nor does it tell where in memory anything is.
        return message.find("0x") == std::string::npos ? "" : "the message has an address: " + message;
    }
    try {
        const std::string second = loadAll(file.path());
        return first == second ? "" : "two readings differ:\n" + first + "\n" + second;
    } catch (const Anchor::Error& error) {
        return "accepted once, and then: " + std::string(error.what());
    }
}

/// Every kind of damage at every place takes many minutes, so a sample of it is taken unless this is asked
/// for.
bool isThorough() {
    return std::getenv("TIDEWATCH_THOROUGH") != nullptr;
}

// Each test takes one byte of so many, so that they run beside each other.
constexpr std::size_t partCount = 4;

// Of those, one in so many is tried: a process has to be forked for each reading.
std::size_t stride() {
    return isThorough() ? 1 : 16;
}

class DamagedBundleFile : public HostileBundleFile,
                          public ::testing::WithParamInterface<std::tuple<std::string, std::size_t>> {
protected:
    void SetUp() override {
        const std::string& seed = std::get<0>(GetParam());
        if (seed == "written")
            Support::Seeds::written(file_);
        else if (seed == "stated")
            Support::Seeds::writtenStated(file_);
        else if (seed == "uniform")
            Support::Seeds::writtenUniform(file_);
        else
            Support::Seeds::foreign(file_, seed == "oldest"      ? Form::Oldest
                                           : seed == "version18" ? Form::Version18
                                                                 : Form::Latest);
        good_ = Support::readBytes(file_);
        ASSERT_FALSE(loadAll(file_).empty());
        ASSERT_LE(good_.size(), 8192u);
    }

    /// What survivors() says of a call for each place in the file that is this test's. Its lines begin with
    /// the number of the place.
    std::string survivorsOfPlaces(const std::function<std::string(std::size_t place)>& call) const {
        const std::size_t first = std::get<1>(GetParam());
        const std::size_t step = partCount * stride();
        const std::size_t count = (good_.size() - first + step - 1) / step;
        return Support::survivors(
            count, mostMebibytes, [&](std::size_t i) { return call(first + i * step); },
            [&](std::size_t i) { return first + i * step; });
    }

    /// Flips bits of each byte in turn; with the checksums made to fit again, or as they are.
    void flipAll(bool repairs) {
        const std::string complaints = survivorsOfPlaces([&](std::size_t place) {
            const std::array<unsigned, 3> variants{0xff, 0x80, 1u << (place * 5 % 7)};
            for (std::size_t variant = 0; variant < variants.size(); ++variant) {
                if (!isThorough() && variant != place % variants.size())
                    continue;
                std::string bytes = good_;
                bytes[place] =
                    static_cast<char>(static_cast<unsigned char>(bytes[place]) ^ variants[variant]);
                if (repairs)
                    Support::repairChecksums(bytes);
                const std::string complaint = complaintAbout(bytes);
                if (!complaint.empty())
                    return "with bits " + std::to_string(variants[variant]) + " flipped: " + complaint;
            }
            return std::string();
        });
        EXPECT_EQ(complaints, "");
    }

    std::string good_;
};

TEST_P(DamagedBundleFile, EachByteFlippedIsAnErrorOrSteadyValues) {
    flipAll(false);
}

TEST_P(DamagedBundleFile, CutOffAtEachByteIsAnError) {
    const std::string complaints = survivorsOfPlaces([&](std::size_t size) {
        const Support::MemoryFile file(good_.substr(0, size));
        try {
            return "accepted: " + loadAll(file.path());
        } catch (const Anchor::Error&) {
            return std::string();
        }
    });
    EXPECT_EQ(complaints, "");
}

constexpr auto damagedName = [](const auto& param) {
    return std::get<0>(param.param) + std::to_string(std::get<1>(param.param));
};

INSTANTIATE_TEST_SUITE_P(Forms, DamagedBundleFile,
                         ::testing::Combine(::testing::Values("written", "stated", "uniform", "oldest",
                                                              "version18", "latest"),
                                            ::testing::Range<std::size_t>(0, partCount)),
                         damagedName);

/// The oldest form of the format has no checksums.
class RepairedBundleFile : public DamagedBundleFile {};

TEST_P(RepairedBundleFile, EachByteFlippedAndChecksumsRepairedIsAnErrorOrSteadyValues) {
    std::string same = good_;
    Support::repairChecksums(same);
    ASSERT_TRUE(same == good_);
    flipAll(true);
}

INSTANTIATE_TEST_SUITE_P(Forms, RepairedBundleFile,
                         ::testing::Combine(::testing::Values("written", "stated", "uniform", "version18",
                                                              "latest"),
                                            ::testing::Range<std::size_t>(0, partCount)),
                         damagedName);

class MangledBundleFile : public HostileBundleFile,
                          public ::testing::WithParamInterface<std::tuple<Form, std::size_t>> {};

TEST_P(MangledBundleFile, SomeBytesAtRandomIsAnErrorOrSteadyValues) {
    const auto [form, part] = GetParam();
    Support::Seeds::large(file_, form);
    const std::string good = Support::readBytes(file_);
    ASSERT_FALSE(loadAll(file_).empty());
    const std::size_t count = isThorough() ? 1000 : 25;
    const std::size_t first = part * count;
    const std::string complaints = Support::survivors(
        count, mostMebibytes,
        [&](std::size_t i) {
            std::mt19937_64 random(first + i);
            std::string bytes = good;
            constexpr std::array<unsigned char, 10> telling{0, 1, 2, 4, 8, 16, 64, 127, 128, 255};
            for (std::size_t left = 1 + random() % 4; left > 0; --left) {
                const std::size_t place = random() % bytes.size();
                bytes[place] =
                    static_cast<char>(random() % 2 != 0 ? random() : telling[random() % telling.size()]);
            }
            if (i % 2 != 0)
                Support::repairChecksums(bytes);
            return complaintAbout(bytes);
        },
        [&](std::size_t i) { return first + i; });
    EXPECT_EQ(complaints, "");
}

INSTANTIATE_TEST_SUITE_P(Forms, MangledBundleFile,
                         ::testing::Combine(::testing::Values(Form::Oldest, Form::Version18, Form::Latest),
                                            ::testing::Range<std::size_t>(0, partCount)),
                         [](const auto& param) {
                             return Craft::File::nameOf(std::get<0>(param.param)) +
                                    std::to_string(std::get<1>(param.param));
                         });

TEST_F(HostileBundleFile, RandomBytesBehindTheSignatureAreRefused) {
    const std::string complaints =
        Support::survivors(isThorough() ? 2000 : 200, mostMebibytes, [&](std::size_t i) {
            std::mt19937_64 random(i);
            std::string bytes = "\x89HDF\r\n\x1a\n";
            // A plausible beginning now and then.
            if (i % 3 == 1)
                bytes += std::string("\0\0\0\0\0\10\10\0\4\0\20\0", 12);
            if (i % 3 == 2)
                bytes += std::string("\2\10\10\0", 4);
            for (std::size_t count = random() % 2000; count > 0; --count)
                bytes += static_cast<char>(random() % 4 == 0 ? random() : 0);
            if (i % 2 != 0)
                Support::repairChecksums(bytes);
            const Support::MemoryFile file(bytes);
            try {
                return "accepted: " + loadAll(file.path());
            } catch (const Anchor::FormatError&) {
                return std::string();
            }
        });
    EXPECT_EQ(complaints, "");
}

TEST_F(HostileBundleFile, FlippedByteOfPlainDataChangesThatValueAlone) {
    Support::Seeds::written(file_);
    const std::string before = loadAll(file_);
    std::string bytes = Support::readBytes(file_);
    const std::string intensities("\1\0\2\0", 4);
    const std::size_t place = bytes.rfind(intensities);
    ASSERT_NE(place, std::string::npos);
    bytes[place + 1] = 1;
    Support::writeBytes(file_, bytes);
    std::string expected = before;
    const std::size_t text = expected.find("uint16 (2 ) 1 2 ");
    ASSERT_NE(text, std::string::npos);
    expected.replace(text, 16, "uint16 (2 ) 257 2 ");
    EXPECT_EQ(loadAll(file_), expected);
}

// Found by damaging files: what some of these make the library do ends the process that reads them, which is an
// error like others.

TEST_F(HostileBundleFile, TextLongerThanItsHeapObjectIsRefused) {
    Support::Seeds::foreign(file_, Form::Oldest);
    std::string bytes = Support::readBytes(file_);
    const std::size_t heap = bytes.find("GCOL");
    ASSERT_NE(heap, std::string::npos);
    // The attribute's data: length, address of the heap, number of the object.
    std::size_t changed = 0;
    for (std::size_t i = 4; i + 12 <= bytes.size(); ++i) {
        if (Support::Detail::numberAt(bytes, i, 8) == heap &&
            Support::Detail::numberAt(bytes, i - 4, 4) == 5) {
            bytes[i - 3] = 1;
            ++changed;
        }
    }
    ASSERT_EQ(changed, 1u);
    Support::writeBytes(file_, bytes);
    expectRefused("not in the file's heap");
}

class AttributeWithoutItsData : public HostileBundleFile, public ::testing::WithParamInterface<Form> {
protected:
    /// Expects that an attribute is refused when its extents, or the bytes of its text, are made to be more
    /// than the file stores for it. Looks for a number of 4 bytes behind the attribute's name and makes it
    /// larger, wherever it is there.
    void expectRefusedWhenEnlarged(const std::string& name, std::uint64_t from, char to) {
        std::string bytes = Support::readBytes(file_);
        const std::size_t start = bytes.find(name + '\0');
        ASSERT_NE(start, std::string::npos);
        const std::size_t head = start + name.size() + 1;
        std::size_t changed = 0;
        for (std::size_t place = head; place < head + 48 && place + 4 <= bytes.size(); ++place) {
            if (Support::Detail::numberAt(bytes, place, 4) == from) {
                bytes[place] = to;
                ++changed;
            }
        }
        ASSERT_GT(changed, 0u);
        Support::repairChecksums(bytes);
        Support::writeBytes(file_, bytes);
        expectRefused("is cut off");
    }
};

TEST_P(AttributeWithoutItsData, IntegersAreRefused) {
    {
        const Craft::File file(file_, GetParam());
        file.bundle().grid().numbers(skeleton, "refinement", std::vector<std::int32_t>{7, 7});
    }
    expectRefusedWhenEnlarged("refinement", 2, 4);
}

TEST_P(AttributeWithoutItsData, NumbersAreRefused) {
    {
        const Craft::File file(file_, GetParam());
        file.bundle().group("/slices/u").numbers("/slices/u", "time", std::vector<double>{7});
    }
    expectRefusedWhenEnlarged("time", 1, 3);
}

TEST_P(AttributeWithoutItsData, TextIsRefused) {
    {
        const Craft::File file(file_, GetParam());
        file.bundle().grid().group(Craft::fields + "F").text(Craft::fields + "F", "element", "float32");
    }
    expectRefusedWhenEnlarged("element", 7, 17);
}

INSTANTIATE_TEST_SUITE_P(Forms, AttributeWithoutItsData,
                         ::testing::Values(Form::Oldest, Form::Version18, Form::Latest),
                         [](const auto& form) { return Craft::File::nameOf(form.param); });

class DataLayout : public HostileBundleFile, public ::testing::WithParamInterface<Form> {
protected:
    void SetUp() override {
        {
            const Craft::File file(file_, GetParam());
            Craft::Properties properties;
            properties.chunk({3});
            const std::vector<double> values(6, 9);
            file.bundle().grid().dataset(Craft::fields + "F", H5T_STD_I32LE, H5T_NATIVE_DOUBLE, {6},
                                         values.data(), properties.id());
        }
        good_ = Support::readBytes(file_);
        // The extent of the chunks and the size of an element, in version 4 behind the size of the two.
        isNew_ = GetParam() == Form::Latest;
        const std::string extents = isNew_ ? std::string("\1\3\4") : std::string("\3\0\0\0\4\0\0\0", 8);
        const std::size_t place = good_.find(extents);
        ASSERT_NE(place, std::string::npos);
        ASSERT_EQ(good_.find(extents, place + 1), std::string::npos);
        layout_ = place - (isNew_ ? 4 : 11);
        ASSERT_EQ(good_.substr(layout_, 2), isNew_ ? "\4\2" : "\3\2");
    }

    /// Expects that the file, with other bytes at a place of the layout message, is refused or gives the values that
    /// are in it; the library may also divide by 0.
    void expectNothingFalseWith(std::size_t offset, const std::string& bytes) {
        Support::writeBytes(file_, good_);
        const std::string sound = loadAll(file_);
        std::string changed = good_;
        changed.replace(layout_ + offset, bytes.size(), bytes);
        Support::repairChecksums(changed);
        Support::writeBytes(file_, changed);
        try {
            EXPECT_EQ(loadAll(file_), sound);
        } catch (const Anchor::FormatError& error) {
            EXPECT_THAT(error.what(), HasSubstr(file_));
        }
    }

    std::string good_;
    std::size_t layout_ = 0;
    bool isNew_ = false;
};

TEST_P(DataLayout, ChunksWithoutAxesGiveNothingFalse) {
    for (const char axes : {'\0', '\1', '\xff'})
        expectNothingFalseWith(isNew_ ? 3 : 2, {axes});
}

TEST_P(DataLayout, ChunksWithoutAnExtentOrAnElementSizeGiveNothingFalse) {
    expectNothingFalseWith(isNew_ ? 5 : 11, {'\0'});
    expectNothingFalseWith(isNew_ ? 6 : 15, {'\0'});
    if (isNew_) {
        expectNothingFalseWith(4, {'\0'});
        expectNothingFalseWith(4, {'\11'});
    }
}

TEST_P(DataLayout, OldVersionsGiveNothingFalse) {
    for (const char version : {'\0', '\1', '\2'})
        expectNothingFalseWith(0, {version});
    // As the old libraries wrote it: version, axes, class, padding, address, extents. The extent is 0.
    if (!isNew_) {
        const std::string address = good_.substr(layout_ + 3, 8);
        for (const char version : {'\1', '\2'})
            expectNothingFalseWith(0, std::string{version, '\2', '\2', '\0', '\0', '\0', '\0', '\0'} +
                                          address + std::string("\0\0\0\0\4\0\0\0", 8));
    }
}

INSTANTIATE_TEST_SUITE_P(Forms, DataLayout, ::testing::Values(Form::Oldest, Form::Version18, Form::Latest),
                         [](const auto& form) { return Craft::File::nameOf(form.param); });

TEST_F(HostileBundleFile, IndexOfMoreChunksThanTheFileHasIsRefused) {
    Support::Seeds::foreign(file_, Form::Latest);
    std::string bytes = Support::readBytes(file_);
    const std::size_t index = bytes.find("FAHD");
    ASSERT_NE(index, std::string::npos);
    bytes[index + 8 + 5] = 1; // the number of entries
    Support::repairChecksums(bytes);
    Support::writeBytes(file_, bytes);
    expectRefused("the place of a chunk cannot be read");
}

TEST_F(HostileBundleFile, ScalarThatHasExtentsIsRefused) {
    Support::Seeds::foreign(file_, Form::Latest);
    std::string bytes = Support::readBytes(file_);
    std::size_t changed = 0;
    for (std::size_t place = 0; place + 12 < bytes.size(); ++place) {
        // Version 2, two axes, flags, extents of the simple kind; the first of them.
        if (bytes[place] == 2 && bytes[place + 1] == 2 && bytes[place + 3] == 1 &&
            Support::Detail::numberAt(bytes, place + 4, 8) == 2) {
            bytes[place + 3] = 0;
            ++changed;
        }
    }
    ASSERT_GT(changed, 0u);
    Support::repairChecksums(bytes);
    Support::writeBytes(file_, bytes);
    expectRefused("N: ");
}

TEST_F(HostileBundleFile, HeaderLargerThanTheFileIsRefused) {
    Support::Seeds::foreign(file_, Form::Oldest);
    std::string bytes = Support::readBytes(file_);
    // The address of the root group's header stands in the superblock (version 1).
    const std::uint64_t root = Support::Detail::numberAt(bytes, 68, 8);
    ASSERT_LT(root, bytes.size());
    ASSERT_EQ(bytes[root], 1);
    bytes[root + 8 + 1] = '\x7f'; // the size of its messages
    Support::writeBytes(file_, bytes);
    expectRefused("cannot be opened as an HDF5 file");
    bytes[root + 8 + 3] = '\x7f';
    Support::writeBytes(file_, bytes);
    expectRefused("cannot be opened as an HDF5 file");
}

TEST_F(HostileBundleFile, TwoMembersOfOneNameAreRefused) {
    {
        const Craft::File file(file_);
        file.bundle().grid().group(Craft::fields + "one").group(Craft::fields + "two");
    }
    std::string bytes = Support::readBytes(file_);
    const std::size_t name = bytes.find("two");
    ASSERT_NE(name, std::string::npos);
    bytes.replace(name, 3, "one");
    Support::writeBytes(file_, bytes);
    expectRefused("has two members \"one\"");
}

TEST_F(HostileBundleFile, LocalHeapWhoseFreeListComesBackToItselfIsStopped) {
    Support::Seeds::foreign(file_, Form::Oldest);
    std::string bytes = Support::readBytes(file_);
    const std::size_t heap = bytes.find("HEAP");
    ASSERT_NE(heap, std::string::npos);
    const std::uint64_t first = Support::Detail::numberAt(bytes, heap + 16, 8);
    const std::uint64_t data = Support::Detail::numberAt(bytes, heap + 24, 8);
    ASSERT_GT(first, 1u);
    for (std::size_t k = 0; k < 8; ++k)
        bytes[data + first + k] = static_cast<char>(first >> (8 * k));
    Support::writeBytes(file_, bytes);
    Tidewatch::ApartSource::patience = std::chrono::milliseconds(500);
    expectRefused("of processor time without answering, and was stopped");
    Tidewatch::ApartSource::patience = std::chrono::seconds(20);
}

TEST_F(HostileBundleFile, TreeNodeThatIsItsOwnChildEndsTheProcessThatReadsIt) {
    Support::Seeds::foreign(file_, Form::Oldest);
    std::string bytes = Support::readBytes(file_);
    const std::size_t node = bytes.find("TREE");
    ASSERT_NE(node, std::string::npos);
    bytes[node + 5] = 1; // its level
    for (std::size_t k = 0; k < 8; ++k)
        bytes[node + 32 + k] = static_cast<char>(node >> (8 * k));
    Support::writeBytes(file_, bytes);
    expectRefused("the process that reads it ended ");
}

TEST_F(HostileBundleFile, LinkThatCannotBeDecodedIsRefused) {
    Support::Seeds::written(file_);
    std::string bytes = Support::readBytes(file_);
    const std::size_t name = bytes.find("\6slices");
    ASSERT_NE(name, std::string::npos);
    ASSERT_EQ(bytes[name - 3], 1); // version, flags, encoding, length and name
    bytes[name - 3] = 9;
    Support::repairChecksums(bytes);
    Support::writeBytes(file_, bytes);
    expectRefused("the group cannot be read");
}

} // namespace
