// SPDX-License-Identifier: Apache-2.0
#include "readers/raster/RasterGate.hpp"

#include "anchor/Console.hpp"
#include "anchor/Error.hpp"

#include <dlfcn.h>
#include <filesystem>

namespace Tidewatch {

namespace {

/// The file that this function has been loaded from.
std::filesystem::path thisLibrary() {
    static const char inside = 0;
    Dl_info info{};
    return ::dladdr(&inside, &info) != 0 && info.dli_fname != nullptr ? info.dli_fname : "";
}

Anchor::StrongPtr<ConvLib::Reader> load() {
    const std::string library = (thisLibrary().parent_path() / TIDEWATCH_RASTER_LIBRARY).string();
    // It stays for as long as the process does: its reader may be held anywhere.
    void* const handle = ::dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    void* const symbol = handle != nullptr ? ::dlsym(handle, "tidewatch_make_raster_reader") : nullptr;
    if (symbol == nullptr) {
        const char* const why = ::dlerror();
        Anchor::Console() << "Rasters cannot be read: " << (why != nullptr ? why : library.c_str());
        return {};
    }
    Anchor::StrongPtr<ConvLib::Reader> reader;
    reinterpret_cast<MakeRasterReader*>(symbol)(reader);
    return reader;
}

const Anchor::StrongPtr<ConvLib::Reader>& rasterReader() {
    static const Anchor::StrongPtr<ConvLib::Reader> reader = load();
    return reader;
}

} // namespace

RasterGate::~RasterGate() = default;

std::string RasterGate::name() const {
    return "raster";
}

bool RasterGate::recognises(const std::string& path, std::span<const std::byte> head) const {
    return rasterReader() && rasterReader()->recognises(path, head);
}

Anchor::StrongPtr<ConvLib::InputReport> RasterGate::read(Sheaf::Bundle& bundle, const std::string& path,
                                                         const ConvLib::ReadOptions& options) const {
    if (!rasterReader())
        throw Anchor::FileError(path + ": rasters cannot be read here");
    return rasterReader()->read(bundle, path, options);
}

} // namespace Tidewatch
