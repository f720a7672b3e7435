// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/BundleModule.hpp"
#include "readers/bundle/BundleSource.hpp"
#include "readers/bundle/hdf5/Library.hpp"

namespace Tidewatch {

namespace {

class Module final : public SourceModule {
public:
    [[nodiscard]] std::string_view version() const override { return TIDEWATCH_VERSION; }

    void prepare() const override {
        const Hdf5::LibraryCall call;
        H5open();
        Hdf5::prepareDriver();
    }

    /// The reader has already checked the signature.
    [[nodiscard]] bool recognises(const SourceFiles&) const override { return true; }

    [[nodiscard]] std::unique_ptr<Source> open(const SourceFiles& files) const override {
        return std::make_unique<BundleSource>(files);
    }
};

} // namespace

const SourceModule& bundleModule() {
    static const Module module;
    return module;
}

} // namespace Tidewatch
