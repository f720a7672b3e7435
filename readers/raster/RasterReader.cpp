// SPDX-License-Identifier: Apache-2.0
#include "readers/raster/RasterReader.hpp"

#include "anchor/Error.hpp"
#include "readers/source/readInput.hpp"

#include <filesystem>
#include <system_error>
#include <utility>

namespace Tidewatch {

RasterReader::RasterReader(Reading reading) : reading_(reading) {}

RasterReader::~RasterReader() = default;

std::string RasterReader::name() const {
    return "raster";
}

bool RasterReader::recognises(const std::string& path, std::span<const std::byte>) const {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error))
        return false;
    auto input = std::make_shared<Input>(path, ConvLib::ReadOptions(), ModuleKind::Rasters, reading_);
    const bool isRaster = input->isRecognised();
    const std::lock_guard lock(mutex_);
    recognised_ = isRaster ? std::move(input) : nullptr;
    return isRaster;
}

Anchor::StrongPtr<ConvLib::InputReport> RasterReader::read(Sheaf::Bundle& bundle, const std::string& path,
                                                           const ConvLib::ReadOptions& options) const {
    std::shared_ptr<Input> input;
    {
        const std::lock_guard lock(mutex_);
        input = std::move(recognised_);
        recognised_ = nullptr;
    }
    if (input && input->path() == path && input->isAsItWas())
        input->setOptions(options);
    else
        input = std::make_shared<Input>(path, options, ModuleKind::Rasters, reading_);
    return readInput(bundle, input);
}

} // namespace Tidewatch
