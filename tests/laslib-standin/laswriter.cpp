// SPDX-License-Identifier: Apache-2.0
#include "laswriter.hpp"

#include "lasmessage.hpp"
#include "laswriterlas.hpp"
#include "standin.hpp"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>

namespace {

bool halting = true;

/// Writes the whole file and then takes away what there was no room for: what stands at the front of a file
/// (the counts, the place of the chunk table) is written again at the end, and finds its room when the last
/// points do not.
class Writer final : public LASwriter {
public:
    explicit Writer(std::string path) : path_(std::move(path)) {}
    ~Writer() override { close(true); }

    bool open(const LASheader& header) {
        return writer_.open(path_.c_str(), header, path_.ends_with(".laz"));
    }
    BOOL write_point(const LASpoint* point) override {
        writer_.write_point(point);
        return true;
    }
    BOOL update_header(const LASheader* header, BOOL use_inventory, BOOL update_extra_bytes) override {
        writer_.update_header(header, use_inventory, update_extra_bytes);
        return true;
    }
    I64 close(BOOL update_npoints) override {
        if (writer_.close(update_npoints) == 0)
            return 0;
        std::uintmax_t size = std::filesystem::file_size(path_);
        if (Standin::room && *Standin::room < size) {
            size = *Standin::room;
            std::filesystem::resize_file(path_, size);
        }
        return static_cast<I64>(size);
    }

private:
    std::string path_;
    LASwriterLAS writer_;
};

} // namespace

void halt_on_error(bool halt) {
    halting = halt;
}

void Standin::endWhileHalting() {
    if (!halting)
        return;
    std::fprintf(stderr, "halted\n");
    std::exit(EXIT_FAILURE);
}

LASwriter::~LASwriter() = default;

void LASwriteOpener::set_file_name(const CHAR* name) {
    Standin::endWhileHalting();
    name_ = name;
}

LASwriter* LASwriteOpener::open(const LASheader* header) {
    Standin::endWhileHalting();
    auto writer = std::make_unique<Writer>(name_);
    return writer->open(*header) ? writer.release() : nullptr;
}
