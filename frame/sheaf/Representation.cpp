// SPDX-License-Identifier: Apache-2.0
#include "sheaf/Representation.hpp"

#include "anchor/Error.hpp"

namespace Sheaf {

FieldIterator::~FieldIterator() = default;
Representation::~Representation() = default;

Anchor::StrongPtr<Field> Representation::makeField(const std::string& name,
                                                   const std::type_info& elementType) {
    const auto [entry, isNew] = fields_.try_emplace(name);
    if (!isNew)
        throw Anchor::ModelError("two fields named \"" + name + "\" in one representation");
    entry->second = {Anchor::makeStrong<FieldID>(name), Anchor::makeStrong<Field>(elementType)};
    return entry->second.field;
}

Anchor::StrongPtr<Field> Representation::findOrMakeField(const std::string& name,
                                                         const std::type_info& elementType) {
    const Anchor::StrongPtr<Field>& field = findField(name.c_str());
    if (!field)
        return makeField(name, elementType);
    if (field->getElementType() != elementType)
        throw Anchor::ModelError("a field named \"" + name + "\" of two element types");
    return field;
}

void Representation::removeField(const std::string& name) {
    fields_.erase(name);
}

const Anchor::StrongPtr<Field>& Representation::Positions() const {
    return findField("Positions");
}

const Anchor::StrongPtr<Field>& Representation::findField(const char* name) const {
    return name != nullptr ? findField(findFieldID(name)) : Field::NullPtrField();
}

Anchor::StrongPtr<FieldID> Representation::findFieldID(const std::string& name) const {
    const auto found = fields_.find(name);
    return found != fields_.end() ? found->second.id : nullptr;
}

const Anchor::StrongPtr<Field>& Representation::findField(const Anchor::StrongPtr<FieldID>& id) const {
    if (!id)
        return Field::NullPtrField();
    const auto found = fields_.find(id->name());
    return found != fields_.end() ? found->second.field : Field::NullPtrField();
}

void Representation::iterate(FieldIterator& visitor) const {
    forEachField([&](const FieldID& id, const Field& field) { return visitor.apply(id, field); });
}

bool Representation::forEachField(const std::function<bool(const FieldID&, const Field&)>& visit) const {
    for (const auto& [name, entry] : fields_) {
        if (!visit(*entry.id, *entry.field))
            return false;
    }
    return true;
}

} // namespace Sheaf
