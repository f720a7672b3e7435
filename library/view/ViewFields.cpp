// SPDX-License-Identifier: Apache-2.0
#include "library/view/ViewFields.hpp"

#include "library/view/ViewColumn.hpp"
#include "sheaf/ElementTypes.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace Tidewatch {

namespace {

struct NamedRole {
    std::string_view name;
    std::string_view role;
};

constexpr NamedRole roles[] = {{"Classification", "class"},
                               {"Intensity", "intensity"},
                               {"ReturnNumber", "return"},
                               {"NumberOfReturns", "returns"},
                               {"GPSTime", "time"}};
constexpr std::string_view colorRoles[] = {"red", "green", "blue"};
constexpr std::string_view axes[] = {"x", "y", "z"};
constexpr std::string_view bands[] = {"Band1", "Band2", "Band3"};

std::string roleOf(const std::string& name, const std::type_info& type) {
    // The page stores classes in bytes.
    if (name == "Classification" && type != typeid(unsigned char))
        return {};
    const auto* const found = std::find_if(std::begin(roles), std::end(roles),
                                           [&](const NamedRole& one) { return one.name == name; });
    return found != std::end(roles) ? std::string(found->role) : std::string();
}

/// Sets the roles of the first three bands of a picture.
void markPicture(std::vector<ViewField>& fields) {
    std::vector<ViewField*> picture;
    for (const std::string_view band : bands) {
        const auto found = std::find_if(fields.begin(), fields.end(), [&](const ViewField& one) {
            return one.label == band && one.field->getElementType() == typeid(unsigned char);
        });
        if (found == fields.end())
            return;
        picture.push_back(&*found);
    }
    for (std::size_t part = 0; part < picture.size(); ++part)
        picture[part]->role = colorRoles[part];
}

} // namespace

std::vector<ViewField> viewFields(const Sheaf::Representation& representation, Selection& selection) {
    std::vector<ViewField> fields;
    representation.forEachField([&](const Sheaf::FieldID& id, const Sheaf::Field&) {
        const std::string& name = id.name();
        if (name == "Positions" || !selection.UseThisField(name))
            return true;
        const auto& field = representation.findField(name.c_str());
        const std::size_t components = ViewColumn::components(field->getElementType());
        const bool isColor = field->getElementType() == typeid(Sheaf::Element::Color);
        for (std::size_t component = 0; component < components; ++component) {
            ViewField one{name, field, component, {}};
            if (components == 1)
                one.role = roleOf(name, field->getElementType());
            else
                one.label += " " + std::string(isColor ? colorRoles[component] : axes[component]);
            if (isColor && name == "RGB")
                one.role = colorRoles[component];
            fields.push_back(std::move(one));
        }
        return true;
    });
    markPicture(fields);
    return fields;
}

std::string heightField(const std::vector<ViewField>& fields) {
    const auto isUsual = [](const ViewField& field) { return field.role.empty(); };
    for (const std::string_view name : {"Height", "Elevation", "Z", "Band1"}) {
        for (const ViewField& field : fields) {
            if (isUsual(field) && field.label == name)
                return field.label;
        }
    }
    const auto firstThat = [&](auto&& fits) -> std::string {
        const auto found = std::find_if(fields.begin(), fields.end(), [&](const ViewField& field) {
            return isUsual(field) && fits(field);
        });
        return found != fields.end() ? found->label : std::string();
    };
    const bool isPicture =
        std::any_of(fields.begin(), fields.end(), [](const ViewField& field) { return field.role == "red"; });
    if (isPicture)
        return {};
    const std::string number = firstThat([](const ViewField& field) {
        const std::type_info& type = field.field->getElementType();
        return type == typeid(float) || type == typeid(double) || type == typeid(long double);
    });
    if (!number.empty())
        return number;
    return firstThat([](const ViewField& field) { return field.label != cellTypeField; });
}

bool isLattice(const Sheaf::Representation& representation) {
    bool lattice = false;
    representation.Positions()->forEachFragment([&](const auto&, const Sheaf::Field::Creator& data) {
        const auto extents = data->extents();
        // Creating a lattice is cheap, since it has no array.
        if (extents && extents->rank() == 3 && (*extents)[2] == 1)
            lattice = Anchor::dynamicCast<Sheaf::UniformCartesianArray>(data->create(false)).get() != nullptr;
        return false;
    });
    return lattice;
}

} // namespace Tidewatch
