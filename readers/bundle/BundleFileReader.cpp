// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/BundleFileReader.hpp"

#include "readers/bundle/BundleArrayCreator.hpp"
#include "readers/bundle/BundleFileWalk.hpp"

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

namespace Tidewatch {

namespace {

class BundleReport final : public ConvLib::InputReport {
public:
    explicit BundleReport(std::string file) : file_(std::move(file)) {}

    [[nodiscard]] std::string file() const override { return file_; }
    [[nodiscard]] std::string kind() const override { return "bundle file"; }
    [[nodiscard]] std::string grid() const override { return {}; }
    [[nodiscard]] std::vector<std::string> notCarried() const override { return {}; }
    [[nodiscard]] std::optional<Geom::PhysicalSpace::vector> coordinateStep() const override { return {}; }

private:
    std::string file_;
};

} // namespace

BundleFileReader::~BundleFileReader() = default;

std::string BundleFileReader::name() const {
    return "bundle file";
}

bool BundleFileReader::recognises(const std::string&, std::span<const std::byte> head) const {
    // HDF5 File Format Specification, section II.A: the format signature.
    static constexpr std::array<unsigned char, 8> signature{0x89, 'H', 'D', 'F', '\r', '\n', 0x1a, '\n'};
    return head.size() >= signature.size() &&
           std::equal(signature.begin(), signature.end(), head.begin(),
                      [](unsigned char a, std::byte b) { return a == std::to_integer<unsigned char>(b); });
}

Anchor::StrongPtr<ConvLib::InputReport> BundleFileReader::read(Sheaf::Bundle& bundle, const std::string& path,
                                                               const ConvLib::ReadOptions& options) const {
    BundleFileWalk(bundle, std::make_shared<const BundleSource>(path, options)).run();
    return Anchor::makeStrong<BundleReport>(path);
}

} // namespace Tidewatch
