// SPDX-License-Identifier: Apache-2.0
//
// Bundle files whose object headers are damaged in every way, checksums repaired: whatever HDF5 does with them, the
// host is told of an error that names the file, or gets what a second reader finds in the file, too.
#include "anchor/Error.hpp"
#include "readers/bundle/BundleFileReader.hpp"
#include "readers/bundle/BundleFileWriter.hpp"
#include "sheaf/TypedArray.hpp"
#include "support/BundleBuilder.hpp"
#include "support/BundleSeeds.hpp"
#include "support/Hdf5Craft.hpp"
#include "support/Hdf5Messages.hpp"
#include "support/TemporaryFolder.hpp"

#include <chrono>
#include <cstdlib>
#include <map>
#include <random>
#include <tuple>
#include <unistd.h>

#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>

namespace {

#if H5_VERSION_GE(1, 12, 0)
using ObjectInfo = H5O_info1_t;
constexpr auto visitObjects = [](hid_t file, auto visit, void* data) {
    return H5Ovisit1(file, H5_INDEX_NAME, H5_ITER_NATIVE, visit, data);
};
#else
using ObjectInfo = H5O_info_t;
constexpr auto visitObjects = [](hid_t file, auto visit, void* data) {
    return H5Ovisit(file, H5_INDEX_NAME, H5_ITER_NATIVE, visit, data);
};
#endif

/// Numbers by the path of their dataset.
using Values = std::map<std::string, std::vector<double>>;

/// The arrays of a bundle file, as the reader gives them.
Values readArrays(const std::string& path) {
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    ConvLib::ReadOptions options;
    options.MaximumArrayBytes = std::uint64_t{16} << 20;
    Tidewatch::BundleFileReader().read(*bundle, path, options);
    Values values;
    for (const auto& [time, slice] : bundle->slices()) {
        for (const auto& [name, grid] : slice.lock()->grids()) {
            grid.lock()->skeletons().iterate_all([&](const Sheaf::FieldFragment& stop) {
                const auto array = Anchor::dynamicCast<Sheaf::MemBase>(stop.data->create(false));
                std::vector<double> numbers;
                Sheaf::visitElementType(array->elementType(), [&](auto tag) {
                    using T = typename decltype(tag)::type;
                    using Component = typename Sheaf::ElementTraits<T>::Component;
                    const auto typed = Anchor::dynamicCast<Sheaf::TypedArray<T>>(array);
                    if (!typed)
                        return; // a uniform grid
                    const auto* const first = reinterpret_cast<const Component*>(typed->base_vector().data());
                    for (std::size_t i = 0;
                         i < typed->base_vector().size() * Sheaf::ElementTraits<T>::componentCount; ++i)
                        numbers.push_back(static_cast<double>(first[i]));
                });
                if (!numbers.empty())
                    values[stop.id.name() + "/" + (stop.fragment ? stop.fragment->name() : "")] = numbers;
                return true;
            });
        }
    }
    return values;
}

herr_t addDataset(hid_t file, const char* name, const ObjectInfo* info, void* data) {
    if (info->type != H5O_TYPE_DATASET)
        return 0;
    const hid_t dataset = H5Dopen2(file, name, H5P_DEFAULT);
    const hid_t space = H5Dget_space(dataset);
    const hssize_t count = H5Sget_simple_extent_npoints(space);
    if (dataset < 0 || count < 0 || count > (1 << 24))
        return -1;
    std::vector<double> numbers(static_cast<std::size_t>(count));
    if (H5Dread(dataset, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, numbers.data()) < 0)
        return -1;
    (*static_cast<Values*>(data))[name] = numbers;
    H5Sclose(space);
    H5Dclose(dataset);
    return 0;
}

/// Whether a second reader, plain calls of the library in a process of their own, finds these numbers in the file,
/// too; nothing where it comes to no end. Fields are the last parts of paths.
std::optional<bool> secondReaderAgrees(const std::string& path, const Values& values) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(5);
        H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
        Values found;
        const hid_t file = H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
        const herr_t visited = visitObjects(file, &addDataset, &found);
        if (file < 0 || visited < 0)
            ::_exit(2);
        for (const auto& [name, numbers] : values) {
            const std::string ending = "/" + (name.ends_with('/') ? name.substr(0, name.size() - 1) : name);
            bool isThere = false;
            for (const auto& [dataset, others] : found) {
                isThere = isThere ||
                          (dataset.ends_with(ending) && others.size() == numbers.size() &&
                           std::equal(numbers.begin(), numbers.end(), others.begin(), [](double a, double b) {
                               return a == b || (a != a && b != b) ||
                                      static_cast<float>(a) == static_cast<float>(b);
                           }));
            }
            if (!isThere)
                ::_exit(1);
        }
        ::_exit(0);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) == 2)
        return std::nullopt;
    return WEXITSTATUS(status) == 0;
}

std::vector<std::uint64_t> headersOf(const std::string& path) {
    std::vector<std::uint64_t> headers;
    const hid_t file = H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
    const auto add = [](hid_t, const char*, const ObjectInfo* info, void* data) -> herr_t {
        static_cast<std::vector<std::uint64_t>*>(data)->push_back(info->addr);
        return 0;
    };
    visitObjects(file, +add, &headers);
    H5Fclose(file);
    return headers;
}

/// How many of all damages are tried: each where TIDEWATCH_THOROUGH says so. A sanitizer takes ten times as long.
#ifdef TIDEWATCH_ADDRESS_SANITIZER
constexpr std::size_t triedOfEachFile = 150;
#else
constexpr std::size_t triedOfEachFile = 1500;
#endif
constexpr std::size_t parts = 4;

class DamagedHeaders : public ::testing::TestWithParam<std::tuple<std::string, std::size_t>> {
protected:
    void SetUp() override {
        if (std::get<0>(GetParam()) == "small") {
            Support::Seeds::written(file_);
        } else {
            const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
            Support::GridBuilder grid(*bundle, 1, "g");
            std::mt19937 random(1);
            std::vector<float> heights(50'000);
            for (float& height : heights)
                height = static_cast<float>(random() % 1000) * 0.01F;
            std::vector<unsigned short> intensities(30'000);
            for (unsigned short& intensity : intensities)
                intensity = static_cast<unsigned short>(random());
            grid.field("Height", "a", heights)
                .field("Height", "b", heights)
                .field("Intensity", "a", intensities);
            Tidewatch::writeBundleFile(*bundle, file_);
        }
        good_ = Support::readBytes(file_);
        messages_ = Support::messagesOf(good_, headersOf(file_));
        ASSERT_GT(messages_.size(), 20u);
        values_ = readArrays(file_);
        ASSERT_EQ(secondReaderAgrees(file_, values_), true);
    }

    /// Every damage there is: a file's bytes by their number.
    [[nodiscard]] std::vector<std::pair<const Support::Hdf5Message*, std::size_t>> allDamages() const {
        constexpr std::size_t values = 7;
        std::vector<std::pair<const Support::Hdf5Message*, std::size_t>> all;
        for (const Support::Hdf5Message& message : messages_) {
            const std::size_t headSize = message.content - message.head;
            for (std::size_t number = 0; number < values * (headSize + message.size) + message.size; ++number)
                all.emplace_back(&message, number);
        }
        return all;
    }

    [[nodiscard]] std::string damaged(const Support::Hdf5Message& message, std::size_t number) const {
        std::string bytes = good_;
        const std::size_t flips = 7 * (message.content - message.head + message.size);
        if (number >= flips) {
            Support::cutMessage(bytes, message, number - flips);
        } else {
            char& byte = bytes[message.head + number / 7];
            const auto old = static_cast<unsigned char>(byte);
            const std::array<unsigned, 7> values{0, 1, 0x7f, 0x80, 0xff, old + 1U, old ^ 0x10U};
            byte = static_cast<char>(values[number % 7]);
        }
        Support::repairChecksums(bytes);
        return bytes;
    }

    /// What is wrong with how a damaged file is taken; nothing when nothing is.
    std::string complaintAbout(const std::string& bytes) {
        Support::writeBytes(file_, bytes);
        const auto start = std::chrono::steady_clock::now();
        std::string complaint;
        try {
            const Values found = readArrays(file_);
            const auto agrees = secondReaderAgrees(file_, found);
            // Where the second reader stumbles over what the first does not look at, the values are the sound ones.
            const bool areSound = std::includes(values_.begin(), values_.end(), found.begin(), found.end());
            if (!agrees.value_or(areSound))
                complaint = "gives values that a second reader does not find";
        } catch (const Anchor::Error& error) {
            if (std::string_view(error.what()).find(file_) == std::string_view::npos)
                complaint = std::string("the message does not name the file: ") + error.what();
        }
        if (std::chrono::steady_clock::now() - start > std::chrono::seconds(60))
            complaint += " takes too long";
        return complaint;
    }

    Support::TemporaryFolder folder_;
    std::string file_ = folder_ / "damaged.h5";
    std::string good_;
    std::vector<Support::Hdf5Message> messages_;
    Values values_;
};

TEST_P(DamagedHeaders, EachIsAnErrorThatNamesTheFileOrGivesWhatASecondReaderFinds) {
    auto all = allDamages();
    std::mt19937 random(20261121);
    std::shuffle(all.begin(), all.end(), random);
    if (std::getenv("TIDEWATCH_THOROUGH") == nullptr)
        all.resize(std::min(all.size(), triedOfEachFile));
    std::size_t complaints = 0;
    for (std::size_t i = std::get<1>(GetParam()); i < all.size() && complaints < 10; i += parts) {
        const auto& [message, number] = all[i];
        if (const std::string complaint = complaintAbout(damaged(*message, number)); !complaint.empty()) {
            ++complaints;
            ADD_FAILURE() << "message at " << message->head << ", damage " << number << ": " << complaint;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Files, DamagedHeaders,
                         ::testing::Combine(::testing::Values("small", "chunked"),
                                            ::testing::Range<std::size_t>(0, parts)),
                         [](const auto& param) {
                             return std::get<0>(param.param) + std::to_string(std::get<1>(param.param));
                         });

} // namespace
