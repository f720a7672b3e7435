// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "sheaf/Field.hpp"
#include "sheaf/FieldID.hpp"

#include <functional>
#include <map>
#include <string>
#include <typeinfo>

namespace Sheaf {

/// A visitor over the fields of a representation.
class TIDEWATCH_API FieldIterator {
public:
    virtual ~FieldIterator();

    /// Called once per field; false ends the traversal.
    virtual bool apply(const FieldID& id, const Field& field) = 0;
};

/// The fields of a skeleton as expressed in one base space, ordered by name, in ascending byte order.
class TIDEWATCH_API Representation : public Anchor::ReferenceBase<Representation> {
public:
    Representation() = default;
    ~Representation() override;

    /// Adds an empty field. Throws Anchor::ModelError if the name is taken.
    Anchor::StrongPtr<Field> makeField(const std::string& name, const std::type_info& elementType);

    /// The field of that name, created if missing. Throws Anchor::ModelError if it exists with another
    /// element type.
    Anchor::StrongPtr<Field> findOrMakeField(const std::string& name, const std::type_info& elementType);

    /// Removes a field; whoever holds it keeps it. An unknown name is not an error.
    void removeField(const std::string& name);

    /// The field named "Positions", or the null field.
    [[nodiscard]] const Anchor::StrongPtr<Field>& Positions() const;

    /// The field of that name, or the null field. A null name finds nothing.
    [[nodiscard]] const Anchor::StrongPtr<Field>& findField(const char* name) const;

    /// The identifier of the field of that name, or null.
    [[nodiscard]] Anchor::StrongPtr<FieldID> findFieldID(const std::string& name) const;

    /// The field of an identifier, or the null field.
    [[nodiscard]] const Anchor::StrongPtr<Field>& findField(const Anchor::StrongPtr<FieldID>& id) const;

    /// Visits the fields in order.
    void iterate(FieldIterator& visitor) const;

    /// The same for a callable; returns whether the traversal finished.
    bool forEachField(const std::function<bool(const FieldID&, const Field&)>& visit) const;

private:
    struct Entry {
        Anchor::StrongPtr<FieldID> id;
        Anchor::StrongPtr<Field> field;
    };

    std::map<std::string, Entry> fields_;
};

} // namespace Sheaf
