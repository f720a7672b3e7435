// SPDX-License-Identifier: Apache-2.0
//
// Reads arbitrary bytes as a bundle file: its structure and every array. Whatever they are, they become a
// bundle or an Anchor::Error. The checksums of newer files are made to fit first, or hardly any input would
// get past them; every other input, by its length, keeps those that it has.
#include "anchor/Cache.hpp"
#include "anchor/Error.hpp"
#include "fuzz/checkArray.hpp"
#include "readers/bundle/BundleFileReader.hpp"
#include "readers/bundle/BundleModule.hpp"
#include "readers/source/modules.hpp"
#include "support/Hdf5Checksums.hpp"
#include "support/MemoryFile.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include <hdf5.h>

/// The library loses a few bytes with some objects that it cannot open. That nothing of it is left open is
/// asked below instead.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
    return "leak:libhdf5\nleak:/hdf5-1."; // as installed, and as scripts/fuzz-libraries.sh builds it
}

namespace {

/// Thrown through the reader, as a host does to interrupt it.
struct Enough {};

constexpr unsigned mostTicks = 500;

void readEverything(const std::string& path) {
    unsigned ticks = 0;
    ConvLib::ReadOptions options;
    options.MaximumArrayBytes = std::uint64_t{4} << 20;
    options.Tick = [&ticks](const std::string&, double share) {
        if (!(share >= 0.0 && share <= 1.0))
            std::abort();
        if (++ticks > mostTicks)
            throw Enough{};
    };
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    static_cast<void>(
        Tidewatch::BundleFileReader(Tidewatch::Reading::InProcess).read(*bundle, path, options));
    for (const auto& [time, weakSlice] : bundle->slices()) {
        const auto slice = weakSlice.lock();
        for (const auto& [name, weakGrid] : slice->grids()) {
            weakGrid.lock()->skeletons().iterate_all([](const Sheaf::FieldFragment& stop) {
                checkArray(stop);
                return true;
            });
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Anchor::Cache::MemCache().setLimit(std::uint64_t{16} << 20);
    Tidewatch::provideModule(Tidewatch::ModuleKind::Bundles, Tidewatch::bundleModule());
    std::string bytes(data, data + size);
    if (size % 2 == 0)
        Support::repairChecksums(bytes);
    const Support::MemoryFile file(bytes);
    try {
        readEverything(file.path());
    } catch (const Anchor::Error& error) {
        if (std::string_view(error.what()).find(file.path()) == std::string_view::npos)
            std::abort();
    } catch (const Enough&) {
    }
    if (H5Fget_obj_count(static_cast<hid_t>(H5F_OBJ_ALL), H5F_OBJ_ALL) != 0)
        std::abort();
    return 0;
}
