// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/BundleFileReader.hpp"

#include "readers/source/readInput.hpp"

#include <algorithm>
#include <array>

namespace Tidewatch {

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
    return readInput(bundle, std::make_shared<Input>(path, options, ModuleKind::Bundles, reading_));
}

} // namespace Tidewatch
