// SPDX-License-Identifier: Apache-2.0
#include "pcd/cloudFragments.hpp"

#include "sheaf/ElementTypes.hpp"
#include "sheaf/TypedArray.hpp"
#include "sheaf/UniformCartesianArray.hpp"

#include <typeinfo>

namespace ExportLib {

namespace {

class Collector final : public Sheaf::ConstSkeletonIterator {
public:
    Collector(const Sheaf::Skeleton& reference, const int& refinementLevel,
              const std::function<bool(const std::string&)>& useField,
              const std::function<void(const CloudFragment&)>& visit)
        : reference_(reference),
          refinementLevel_(refinementLevel),
          useField_(useField),
          visit_(visit) {}

    bool apply(const Sheaf::Skeleton& skeleton, const std::string& fieldName,
               const Anchor::StrongPtr<Sheaf::CreativeArrayBase, Anchor::Creature>& data) override {
        if (!isSelected(skeleton))
            return true;
        hasData_ = true;
        if (useField_(fieldName))
            visit_({fieldName, cloudRole(fieldName), data});
        return true;
    }

    [[nodiscard]] bool hasData() const noexcept { return hasData_; }

private:
    [[nodiscard]] bool isSelected(const Sheaf::Skeleton& skeleton) const {
        if (skeleton.exclusionMark() != 0)
            return false;
        return refinementLevel_ == -1 ? &skeleton == &reference_
                                      : skeleton.refinementLevel() == refinementLevel_;
    }

    const Sheaf::Skeleton& reference_;
    const int& refinementLevel_;
    const std::function<bool(const std::string&)>& useField_;
    const std::function<void(const CloudFragment&)>& visit_;
    bool hasData_ = false;
};

template <class T>
bool isArrayOf(const Anchor::StrongPtr<Anchor::Cacheable>& data) {
    return Anchor::dynamicCast<Sheaf::TypedArray<T>>(data) != nullptr;
}

/// Why an array in memory cannot be used; empty if it can.
std::string whyUnfit(PcdPlan::Role role, const Anchor::StrongPtr<Anchor::Cacheable>& data) {
    if (role == PcdPlan::Role::Intensity)
        return isArrayOf<unsigned short>(data) ? "" : "its array is not of the type that is stated";
    if (isArrayOf<Geom::PhysicalSpace::point>(data))
        return {};
    return Anchor::dynamicCast<Sheaf::UniformCartesianArray>(data)
               ? "its positions are a uniform lattice, not points"
               : "its array is not of the type that is stated";
}

} // namespace

PcdPlan::Role cloudRole(const std::string& field) {
    return field == "Positions"   ? PcdPlan::Role::Positions
           : field == "Intensity" ? PcdPlan::Role::Intensity
                                  : PcdPlan::Role::None;
}

bool CloudFragment::fits() const {
    switch (role) {
    case PcdPlan::Role::Positions:
        return data->elementType() == typeid(Geom::PhysicalSpace::point);
    case PcdPlan::Role::Intensity:
        return data->elementType() == typeid(unsigned short);
    case PcdPlan::Role::None:
        break;
    }
    return false;
}

PcdPlan::Fragment CloudFragment::planned() const {
    PcdPlan::Fragment fragment;
    fragment.field = field;
    fragment.role = role;
    fragment.elementType = Sheaf::elementTypeName(data->elementType());
    if (role == PcdPlan::Role::None) {
        fragment.whyLeftOut = "PCD holds positions and intensities only";
        fragment.isCertain = true;
        return fragment;
    }
    if (!fits()) {
        fragment.whyLeftOut = "it is stored as " + fragment.elementType + ", and PCD takes " +
                              (role == PcdPlan::Role::Positions ? "point" : "uint16");
        fragment.isCertain = true;
        return fragment;
    }
    if (const auto array = data->available()) {
        fragment.isCertain = true;
        fragment.whyLeftOut = whyUnfit(role, array);
        if (!fragment.whyLeftOut.empty())
            return fragment;
    }
    const auto extents = data->extents();
    fragment.elements = extents ? extents->elementCount().value_or(0) : 0;
    return fragment;
}

bool forEachCloudFragment(const Sheaf::Grid& grid, const Sheaf::Skeleton& reference,
                          const int& refinementLevel, const std::function<bool(const std::string&)>& useField,
                          const std::function<void(const CloudFragment&)>& visit) {
    Collector collector(reference, refinementLevel, useField, visit);
    grid.skeletons().iterate(collector);
    return collector.hasData();
}

} // namespace ExportLib
