// SPDX-License-Identifier: Apache-2.0
//
// Reads arbitrary bytes as a raster: what it states and every array. Whatever they are, they are no raster,
// or become a bundle or an Anchor::Error. GDAL itself is not instrumented; what it does wrong shows as a
// crash.
#include "anchor/Cache.hpp"
#include "anchor/Error.hpp"
#include "fuzz/checkArray.hpp"
#include "readers/raster/RasterModule.hpp"
#include "readers/raster/RasterReader.hpp"
#include "readers/source/modules.hpp"
#include "support/MemoryFile.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace {

void readEverything(const std::string& path) {
    const Tidewatch::RasterReader reader(Tidewatch::Reading::InProcess);
    if (!reader.recognises(path, {}))
        return;
    ConvLib::ReadOptions options;
    options.MaximumArrayBytes = std::uint64_t{4} << 20;
    const auto bundle = Anchor::makeStrong<Sheaf::Bundle>();
    static_cast<void>(reader.read(*bundle, path, options));
    const auto slice = bundle->slices().begin()->second.lock();
    slice->grids().begin()->second.lock()->skeletons().iterate_all([](const Sheaf::FieldFragment& stop) {
        checkArray(stop);
        return true;
    });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Anchor::Cache::MemCache().setLimit(std::uint64_t{16} << 20);
    Tidewatch::provideModule(Tidewatch::ModuleKind::Rasters, Tidewatch::rasterModule());
    const Support::MemoryFile file({reinterpret_cast<const char*>(data), size});
    try {
        readEverything(file.path());
    } catch (const Anchor::Error& error) {
        if (std::string_view(error.what()).find(file.path()) == std::string_view::npos)
            std::abort();
    }
    return 0;
}
