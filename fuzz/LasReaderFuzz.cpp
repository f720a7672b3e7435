// SPDX-License-Identifier: Apache-2.0
//
// Reads arbitrary bytes as a LAS or LAZ file: its structure, every array, the report. Whatever they are, they
// become a grid or an Anchor::Error.
#include "anchor/Cache.hpp"
#include "anchor/Error.hpp"
#include "fuzz/checkArray.hpp"
#include "readers/las/LasReader.hpp"
#include "support/MemoryFile.hpp"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace {

/// Thrown through the reader, as a host does to interrupt it. Compressed points may rightly be thousands a
/// byte.
struct Enough {};

constexpr unsigned mostTicks = 50;

void readEverything(const std::string& path) {
    unsigned ticks = 0;
    ConvLib::ReadOptions options;
    options.FragmentPoints = 10'000;
    options.MaximumArrayBytes = std::uint64_t{64} << 20;
    options.Tick = [&ticks](const std::string&, double share) {
        if (!(share >= 0.0 && share <= 1.0))
            std::abort();
        if (++ticks > mostTicks)
            throw Enough{};
    };
    Sheaf::Bundle bundle;
    const auto report = Tidewatch::LasReader().read(bundle, path, options);
    const auto grid = bundle.slices().begin()->second.lock()->grids().begin()->second.lock();
    std::uint64_t arrays = 0;
    grid->skeletons().iterate_all([&](const Sheaf::FieldFragment& stop) {
        checkArray(stop);
        constexpr std::uint64_t mostArrays = 500;
        return ++arrays < mostArrays;
    });
    static_cast<void>(report->notCarried());
    static_cast<void>(report->kind());
    static_cast<void>(report->coordinateStep());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Anchor::Cache::MemCache().setLimit(std::uint64_t{16} << 20);
    const std::string bytes(data, data + size);
    const Support::MemoryFile file(bytes);
    try {
        readEverything(file.path());
    } catch (const Anchor::Error& error) {
        if (std::string_view(error.what()).empty())
            std::abort();
    } catch (const Enough&) {
    }
    return 0;
}
