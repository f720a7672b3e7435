// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/source/Input.hpp"
#include "readers/source/Structure.hpp"
#include "sheaf/CachedCreator.hpp"

#include <cstdint>
#include <memory>
#include <string>
#include <typeinfo>

namespace Tidewatch {

/// Reads one array of an input on demand. Creating the array throws Anchor::LimitError for one beyond
/// ReadOptions::MaximumArrayBytes, and what Input::read() throws.
class InputArrayCreator final : public Sheaf::CachedCreator {
public:
    /// `array` has one to four extents.
    InputArrayCreator(std::shared_ptr<Input> input, const Structure::Array& array,
                      const std::type_info& element);
    ~InputArrayCreator() override;

protected:
    [[nodiscard]] Made make() const override;
    [[nodiscard]] std::uint64_t bytesToMake() const override { return bytes_; }

private:
    [[noreturn]] void refuse(const std::string& why) const;

    std::shared_ptr<Input> input_;
    Structure::Array array_;
    std::uint64_t bytes_;
};

} // namespace Tidewatch
