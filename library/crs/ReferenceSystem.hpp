// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace Tidewatch {

/// A coordinate reference system known to PROJ. Not thread-safe, but different objects may be used in
/// different threads.
class TIDEWATCH_API ReferenceSystem {
public:
    /// From well-known text: OGC 01-009, ESRI's, or ISO 19162. Throws Anchor::FormatError, without a file
    /// name, if PROJ cannot read it.
    [[nodiscard]] static ReferenceSystem fromText(const std::string& wellKnownText);

    /// From codes of an authority: "EPSG:25832", or with a vertical system "EPSG:25832+5783". Throws
    /// Anchor::FormatError for any other text and for codes that PROJ does not know.
    [[nodiscard]] static ReferenceSystem fromCode(const std::string& code);

    ReferenceSystem(ReferenceSystem&&) noexcept;
    ReferenceSystem& operator=(ReferenceSystem&&) noexcept;
    ReferenceSystem(const ReferenceSystem&) = delete;
    ReferenceSystem& operator=(const ReferenceSystem&) = delete;
    ~ReferenceSystem();

    enum class Kind { Geographic, Geographic3D, Projected, Geocentric, Local, Other };

    /// The kind of the system, or of the horizontal part of a compound one.
    [[nodiscard]] Kind kind() const;
    [[nodiscard]] bool hasVertical() const;

    [[nodiscard]] std::string name() const;

    /// Codes in the EPSG register of the system, or of its horizontal part, and of its vertical part; nothing
    /// if there is none. A code that the system does not state is looked up.
    [[nodiscard]] std::optional<unsigned> code() const;
    [[nodiscard]] std::optional<unsigned> verticalCode() const;

    /// "EPSG:25832+5783"; empty if a part has no code.
    [[nodiscard]] std::string codeText() const;
    /// The name, followed by the code in brackets if there is one.
    [[nodiscard]] std::string title() const;

    /// The EPSG code of the unit along x, or of heights; nothing if there is none.
    [[nodiscard]] std::optional<unsigned> unit() const;
    [[nodiscard]] std::optional<unsigned> verticalUnit() const;

    /// As well-known text of OGC 01-009, of ESRI, and of ISO 19162:2019; nothing if that cannot express the
    /// system.
    [[nodiscard]] std::optional<std::string> ogcText() const;
    [[nodiscard]] std::optional<std::string> esriText() const;
    [[nodiscard]] std::optional<std::string> isoText() const;

    /// Whether both systems have the same coordinates for every place, ignoring the order of axes.
    [[nodiscard]] bool isEquivalentTo(const ReferenceSystem& other) const;

private:
    class State;
    explicit ReferenceSystem(std::unique_ptr<State> state);
    std::unique_ptr<State> state_;
};

} // namespace Tidewatch
