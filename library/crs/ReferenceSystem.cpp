// SPDX-License-Identifier: Apache-2.0
#include "library/crs/ReferenceSystem.hpp"

#include "anchor/Error.hpp"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <proj.h>
#include <utility>

namespace Tidewatch {

namespace {

/// Texts of real systems have some kilobytes.
constexpr std::size_t longestText = std::size_t{1} << 20;

struct ContextEnd {
    void operator()(PJ_CONTEXT* context) const noexcept { proj_context_destroy(context); }
};
struct ObjectEnd {
    void operator()(PJ* object) const noexcept { proj_destroy(object); }
};
struct ListEnd {
    void operator()(PJ_OBJ_LIST* list) const noexcept { proj_list_destroy(list); }
};
struct IntListEnd {
    void operator()(int* list) const noexcept { proj_int_list_destroy(list); }
};
using Object = std::unique_ptr<PJ, ObjectEnd>;

/// "AUTHORITY:NUMBER", or two numbers with a "+" between them.
bool isCode(std::string_view text) {
    const std::size_t colon = text.find(':');
    if (colon == 0 || colon == std::string_view::npos || colon + 1 == text.size())
        return false;
    const auto isUpper = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'); };
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    const std::string_view authority = text.substr(0, colon);
    std::string_view first = text.substr(colon + 1);
    std::string_view second = "0";
    if (const std::size_t plus = first.find('+'); plus != std::string_view::npos) {
        second = first.substr(plus + 1);
        first = first.substr(0, plus);
    }
    return std::all_of(authority.begin(), authority.end(), isUpper) && !first.empty() && !second.empty() &&
           std::all_of(first.begin(), first.end(), isDigit) &&
           std::all_of(second.begin(), second.end(), isDigit);
}

std::optional<unsigned> numberOf(const char* text) {
    if (text == nullptr)
        return std::nullopt;
    const std::string_view digits(text);
    unsigned number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return error == std::errc() && end == digits.data() + digits.size() ? std::optional(number)
                                                                        : std::nullopt;
}

} // namespace

class ReferenceSystem::State {
public:
    State() : context_(proj_context_create()) {
        // PROJ's messages go into errors, and it must not use the network.
        proj_log_func(context_.get(), this, [](void* state, int, const char* message) {
            static_cast<State*>(state)->lastMessage_ = message != nullptr ? message : "";
        });
        proj_context_set_enable_network(context_.get(), 0);
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    void read(const std::string& text) {
        // proj_create() would guess from other kinds of text.
        object_ = Object(proj_create_from_wkt(context_.get(), text.c_str(), nullptr, nullptr, nullptr));
        settle("well-known text");
    }

    void find(const std::string& code) {
        object_ = Object(proj_create(context_.get(), code.c_str()));
        settle(code);
    }

    /// The horizontal (0) or vertical (1) part of a compound system; for any other, 0 gives the system
    /// itself. May be null.
    [[nodiscard]] Object part(int number) const {
        if (proj_get_type(object_.get()) == PJ_TYPE_COMPOUND_CRS)
            return plain(Object(proj_crs_get_sub_crs(context_.get(), object_.get(), number)));
        return number == 0 ? Object(proj_clone(context_.get(), object_.get())) : nullptr;
    }

    [[nodiscard]] std::string name() const {
        const char* const name = proj_get_name(object_.get());
        return name != nullptr ? name : "";
    }

    [[nodiscard]] std::optional<unsigned> codeOf(const Object& part) const;
    [[nodiscard]] std::optional<unsigned> unitOf(const Object& part) const;

    [[nodiscard]] std::optional<std::string> text(PJ_WKT_TYPE type) const {
        const char* const options[]{"MULTILINE=NO", nullptr};
        const char* const text = proj_as_wkt(context_.get(), object_.get(), type, options);
        return text != nullptr ? std::optional<std::string>(text) : std::nullopt;
    }

    [[nodiscard]] bool areEquivalent(const Object& own, const Object& other) const {
        const Object a = eastFirst(own);
        const Object b = eastFirst(other);
        return proj_is_equivalent_to_with_ctx(context_.get(), a.get(), b.get(),
                                              PJ_COMP_EQUIVALENT_EXCEPT_AXIS_ORDER_GEOGCRS) != 0;
    }

private:
    void settle(const std::string& what) {
        if (!object_ || proj_is_crs(object_.get()) == 0)
            throw Anchor::FormatError(what + ": is not a coordinate reference system that PROJ knows" +
                                      (lastMessage_.empty() ? "" : " (" + lastMessage_ + ")"));
        object_ = plain(std::move(object_));
    }

    /// Removes the transformation attached to a bound system.
    [[nodiscard]] Object plain(Object object) const {
        if (object && proj_get_type(object.get()) == PJ_TYPE_BOUND_CRS)
            return Object(proj_get_source_crs(context_.get(), object.get()));
        return object;
    }

    [[nodiscard]] Object eastFirst(const Object& object) const {
        Object turned(proj_normalize_for_visualization(context_.get(), object.get()));
        return turned ? std::move(turned) : Object(proj_clone(context_.get(), object.get()));
    }

    std::unique_ptr<PJ_CONTEXT, ContextEnd> context_;
    std::string lastMessage_;
    Object object_;
};

std::optional<unsigned> ReferenceSystem::State::codeOf(const Object& part) const {
    if (!part)
        return std::nullopt;
    const char* const authority = proj_get_id_auth_name(part.get(), 0);
    if (authority != nullptr && std::string_view(authority) == "EPSG")
        return numberOf(proj_get_id_code(part.get(), 0));
    int* trust = nullptr;
    const std::unique_ptr<PJ_OBJ_LIST, ListEnd> list(
        proj_identify(context_.get(), part.get(), "EPSG", nullptr, &trust));
    const std::unique_ptr<int, IntListEnd> trustEnd(trust);
    constexpr int sure = 90; // of 100; below it something differs
    if (!list || trust == nullptr || proj_list_get_count(list.get()) == 0 || trust[0] < sure)
        return std::nullopt;
    const Object found(proj_list_get(context_.get(), list.get(), 0));
    return found && areEquivalent(part, found) ? numberOf(proj_get_id_code(found.get(), 0)) : std::nullopt;
}

std::optional<unsigned> ReferenceSystem::State::unitOf(const Object& part) const {
    const Object system(part ? proj_crs_get_coordinate_system(context_.get(), part.get()) : nullptr);
    const char* authority = nullptr;
    const char* code = nullptr;
    if (!system ||
        proj_cs_get_axis_info(context_.get(), system.get(), 0, nullptr, nullptr, nullptr, nullptr, nullptr,
                              &authority, &code) == 0 ||
        authority == nullptr || std::string_view(authority) != "EPSG")
        return std::nullopt;
    return numberOf(code);
}

ReferenceSystem::ReferenceSystem(std::unique_ptr<State> state) : state_(std::move(state)) {}
ReferenceSystem::ReferenceSystem(ReferenceSystem&&) noexcept = default;
ReferenceSystem& ReferenceSystem::operator=(ReferenceSystem&&) noexcept = default;
ReferenceSystem::~ReferenceSystem() = default;

ReferenceSystem ReferenceSystem::fromText(const std::string& wellKnownText) {
    if (wellKnownText.size() > longestText)
        throw Anchor::FormatError("well-known text: it has " + std::to_string(wellKnownText.size()) +
                                  " bytes, and texts of systems have up to " + std::to_string(longestText));
    auto state = std::make_unique<State>();
    state->read(wellKnownText);
    return ReferenceSystem(std::move(state));
}

ReferenceSystem ReferenceSystem::fromCode(const std::string& code) {
    if (!isCode(code))
        throw Anchor::FormatError(code + ": is not a code such as EPSG:25832 or EPSG:25832+5783");
    auto state = std::make_unique<State>();
    state->find(code);
    return ReferenceSystem(std::move(state));
}

ReferenceSystem::Kind ReferenceSystem::kind() const {
    const Object part = state_->part(0);
    switch (part ? proj_get_type(part.get()) : PJ_TYPE_UNKNOWN) {
    case PJ_TYPE_GEOGRAPHIC_2D_CRS:
        return Kind::Geographic;
    case PJ_TYPE_GEOGRAPHIC_3D_CRS:
        return Kind::Geographic3D;
    case PJ_TYPE_PROJECTED_CRS:
        return Kind::Projected;
    case PJ_TYPE_GEOCENTRIC_CRS:
        return Kind::Geocentric;
    case PJ_TYPE_ENGINEERING_CRS:
        return Kind::Local;
    default:
        return Kind::Other;
    }
}

bool ReferenceSystem::hasVertical() const {
    return state_->part(1) != nullptr;
}

std::string ReferenceSystem::name() const {
    return state_->name();
}

std::optional<unsigned> ReferenceSystem::code() const {
    return state_->codeOf(state_->part(0));
}

std::optional<unsigned> ReferenceSystem::verticalCode() const {
    return state_->codeOf(state_->part(1));
}

std::string ReferenceSystem::codeText() const {
    const auto first = code();
    const auto second = verticalCode();
    if (!first || (hasVertical() && !second))
        return {};
    return "EPSG:" + std::to_string(*first) + (second ? "+" + std::to_string(*second) : std::string());
}

std::string ReferenceSystem::title() const {
    const std::string code = codeText();
    return code.empty() ? name() : name() + " (" + code + ")";
}

std::optional<unsigned> ReferenceSystem::unit() const {
    return state_->unitOf(state_->part(0));
}

std::optional<unsigned> ReferenceSystem::verticalUnit() const {
    return state_->unitOf(state_->part(1));
}

std::optional<std::string> ReferenceSystem::ogcText() const {
    return state_->text(PJ_WKT1_GDAL);
}

std::optional<std::string> ReferenceSystem::esriText() const {
    return state_->text(PJ_WKT1_ESRI);
}

std::optional<std::string> ReferenceSystem::isoText() const {
    return state_->text(PJ_WKT2_2019);
}

bool ReferenceSystem::isEquivalentTo(const ReferenceSystem& other) const {
    for (const int number : {0, 1}) {
        const Object own = state_->part(number);
        const Object its = other.state_->part(number);
        if (!own != !its || (own && !state_->areEquivalent(own, its)))
            return false;
    }
    return true;
}

} // namespace Tidewatch
