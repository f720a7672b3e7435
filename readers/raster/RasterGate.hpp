// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "convlib/Reader.hpp"

namespace Tidewatch {

/// Stands for the RasterReader, which lies in a library of its own beside this one. GDAL brings some hundred
/// libraries along, which take longer to load than most files to read; here they are loaded with the first
/// file that no other reader recognises. Where they cannot be, the console is told once, and no file is
/// recognised.
class RasterGate final : public ConvLib::Reader {
public:
    RasterGate() = default;
    ~RasterGate() override;

    [[nodiscard]] std::string name() const override;
    [[nodiscard]] bool recognises(const std::string& path, std::span<const std::byte> head) const override;
    Anchor::StrongPtr<ConvLib::InputReport> read(Sheaf::Bundle& bundle, const std::string& path,
                                                 const ConvLib::ReadOptions& options) const override;
};

/// What RasterGate finds by its name in the other library: puts a new RasterReader into `reader`.
using MakeRasterReader = void(Anchor::StrongPtr<ConvLib::Reader>& reader);

} // namespace Tidewatch
