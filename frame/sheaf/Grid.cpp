// SPDX-License-Identifier: Apache-2.0
#include "sheaf/Grid.hpp"

namespace Sheaf {

Grid::~Grid() = default;

Anchor::StrongPtr<Skeleton> Grid::findHighestHomogenousVertexRefinement(int bound) const {
    return skeletons_.findHighestVertices(bound);
}

bool Grid::isCandidate(const Chart& chart) const {
    bool used = chart.declared;
    skeletons_.forEach([&](const Skeleton& skeleton) {
        used = used || skeleton.representations()(chart.space);
        return !used;
    });
    return used;
}

Anchor::StrongPtr<CartesianChart> Grid::findChart(const std::string& name) const {
    const std::lock_guard lock(chartsMutex_);
    if (!name.empty()) {
        const auto found = charts_.find(name);
        return found != charts_.end() ? found->second.space : nullptr;
    }
    const auto standard = charts_.find(std::string(standardChart));
    if (standard != charts_.end() && isCandidate(standard->second))
        return standard->second.space;
    for (const auto& [key, chart] : charts_) {
        if (isCandidate(chart))
            return chart.space;
    }
    return nullptr;
}

Anchor::StrongPtr<BaseSpace> Grid::findCartesianChart(const std::string& name) const {
    return findChart(name);
}

Grid::Chart& Grid::madeChart(const std::string& name) {
    Chart& chart = charts_[name];
    if (!chart.space)
        chart.space = Anchor::makeStrong<CartesianChart>(name);
    return chart;
}

Anchor::StrongPtr<BaseSpace> Grid::makeCartesianChart(const std::string& name, unsigned short) {
    const std::lock_guard lock(chartsMutex_);
    return madeChart(name).space;
}

Anchor::StrongPtr<CartesianChart> Grid::declareCartesianChart(const std::string& name) {
    const std::lock_guard lock(chartsMutex_);
    Chart& chart = madeChart(name);
    chart.declared = true;
    return chart.space;
}

std::vector<std::string> Grid::chartNames() const {
    const std::lock_guard lock(chartsMutex_);
    std::vector<std::string> names;
    for (const auto& [name, chart] : charts_) {
        if (isCandidate(chart))
            names.push_back(name);
    }
    return names;
}

Anchor::StrongPtr<Field> Grid::getField(const Anchor::StrongPtr<BaseSpace>& chart,
                                        const std::string& fieldName,
                                        const Anchor::StrongPtr<Skeleton>& skeleton) const {
    if (!skeleton)
        return Field::NullPtrField();
    const auto representation = skeleton->representations()(chart);
    return representation ? representation->findField(fieldName.c_str()) : Field::NullPtrField();
}

Anchor::StrongPtr<FragmentID> Grid::makeFragment(const std::string& name) {
    Anchor::StrongPtr<FragmentID>& fragment = fragments_[name];
    if (!fragment)
        fragment = Anchor::makeStrong<FragmentID>(name);
    return fragment;
}

} // namespace Sheaf
