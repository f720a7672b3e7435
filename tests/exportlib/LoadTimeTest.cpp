// SPDX-License-Identifier: Apache-2.0
//
// What loading libExportLib.so does, and that unloading undoes it. This program links the frame only.
#include "dial/ValueCreator.hpp"
#include "sheaf/TypeRegistry.hpp"

#include <array>
#include <cstdio>
#include <dlfcn.h>
#include <memory>
#include <string>

#include <gtest/gtest.h>

namespace {

using Sheaf::TypeRegistry;

constexpr const char* library = TIDEWATCH_EXPORTLIB_PATH;

struct Unload {
    void operator()(void* handle) const { ::dlclose(handle); }
};
using Library = std::unique_ptr<void, Unload>;

Library load() {
    Library loaded(::dlopen(library, RTLD_NOW | RTLD_LOCAL));
    EXPECT_TRUE(loaded) << ::dlerror();
    return loaded;
}

bool isLoaded() {
    return Library(::dlopen(library, RTLD_NOW | RTLD_NOLOAD)) != nullptr;
}

template <class T>
std::size_t registeredRanks() {
    std::size_t ranks = 0;
    for (std::size_t rank = 1; rank <= 4; ++rank)
        ranks += TypeRegistry::find(rank, typeid(T)) != nullptr ? 1U : 0U;
    return ranks;
}

TEST(LoadTime, LoadedLibraryAnnouncesTwelveArrayTypesAndTheCreatorOfDoubles) {
    ASSERT_FALSE(isLoaded());
    EXPECT_EQ(TypeRegistry::size(), 0U);
    const Library loaded = load();
    EXPECT_EQ(TypeRegistry::size(), 12U);
    EXPECT_EQ(registeredRanks<double>(), 4U);
    EXPECT_EQ(registeredRanks<Geom::PhysicalSpace::point>(), 4U);
    EXPECT_EQ((registeredRanks<Geom::FixedArray<double, 3>>()), 4U);
    EXPECT_EQ(registeredRanks<float>(), 0U);
    EXPECT_TRUE((Sheaf::MemArray<1, double>::TypeIsRegistered));
    const auto creator = Dial::ValueCreator::find(typeid(double));
    ASSERT_TRUE(creator);
    EXPECT_TRUE(creator->make()->type() == typeid(double));
}

TEST(LoadTime, UnloadedLibraryIsGoneWithAllThatItAnnounced) {
    load().reset();
    EXPECT_FALSE(isLoaded());
    EXPECT_EQ(TypeRegistry::size(), 0U);
    EXPECT_FALSE(TypeRegistry::find(1, typeid(double)));
    EXPECT_FALSE((Sheaf::MemArray<1, double>::TypeIsRegistered));
    EXPECT_FALSE(Dial::ValueCreator::find(typeid(double)));
}

TEST(LoadTime, ArrayMadeByAnAnnouncedFactoryOutlivesTheLibrary) {
    Library loaded = load();
    const auto array = TypeRegistry::find(2, typeid(double))(Sheaf::Extents{3, 2});
    loaded.reset();
    ASSERT_FALSE(isLoaded());
    EXPECT_EQ(array->byteSize(), 48U);
    EXPECT_TRUE(array->elementType() == typeid(double));
}

TEST(LoadTime, LoadedTwiceIsAnnouncedOnceAndUnloadedOnce) {
    Library first = load();
    Library second = load();
    EXPECT_EQ(TypeRegistry::size(), 12U);
    first.reset();
    EXPECT_EQ(TypeRegistry::size(), 12U);
    second.reset();
    EXPECT_EQ(TypeRegistry::size(), 0U);
}

TEST(LoadTime, AnnouncementsAreCounted) {
    using Announcement = TypeRegistry::Announcement<3, double>;
    auto first = std::make_unique<Announcement>();
    auto second = std::make_unique<Announcement>();
    EXPECT_EQ(TypeRegistry::size(), 1U);
    first.reset();
    EXPECT_TRUE((Sheaf::MemArray<3, double>::TypeIsRegistered));
    second.reset();
    EXPECT_EQ(TypeRegistry::size(), 0U);
}

/// Runs nm on the library and gives the lines of its dynamic, defined symbols.
std::string definedSymbols() {
    const std::string command = std::string("nm -D -C --defined-only '") + library + "'";
    std::string output;
    std::FILE* const pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr)
        return output;
    std::array<char, 4096> buffer;
    std::size_t got = 0;
    while ((got = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0)
        output.append(buffer.data(), got);
    ::pclose(pipe);
    return output;
}

TEST(LoadTime, LibraryShowsItsExportersAndNoUniqueSymbols) {
    const std::string symbols = definedSymbols();
    if (symbols.empty())
        GTEST_SKIP() << "no nm: binutils has it";
    for (const char* exporter : {"ASCII", "Las", "PCD"})
        EXPECT_NE(symbols.find(std::string("ExportLib::ExportPointCloudTo") + exporter + "::Run()"),
                  std::string::npos)
            << exporter;
    std::size_t begin = 0;
    while (begin < symbols.size()) {
        const std::size_t end = symbols.find('\n', begin);
        const std::string line = symbols.substr(begin, end - begin);
        begin = end + 1;
        EXPECT_EQ(line.find(" u "), std::string::npos) << line;
        // Weak symbols are those of templates and type descriptions that installed headers need.
        const bool ours = line.find("ExportLib::") != std::string::npos;
        const bool weak = line.find(" W ") != std::string::npos || line.find(" V ") != std::string::npos;
        EXPECT_TRUE(ours || weak) << line;
    }
}

} // namespace
