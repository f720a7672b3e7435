// SPDX-License-Identifier: Apache-2.0
#include "readers/las/LasArrayCreator.hpp"

#include "anchor/Error.hpp"

#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

LasArrayCreator::LasArrayCreator(std::shared_ptr<const Fragment> fragment, std::size_t field)
    : CachedCreator(*fragment->source->fields()[field].elementType,
                    Sheaf::Extents{fragment->source->pointsOf(fragment->index)}),
      fragment_(std::move(fragment)),
      field_(field) {}

LasArrayCreator::~LasArrayCreator() = default;

std::vector<Anchor::StrongPtr<LasArrayCreator>>
LasArrayCreator::makeAll(const std::shared_ptr<LasSource>& source, std::uint64_t fragment) {
    const auto shared = std::make_shared<Fragment>(Fragment{source, fragment, {}});
    std::vector<Anchor::StrongPtr<LasArrayCreator>> creators;
    for (std::size_t field = 0; field < source->fields().size(); ++field) {
        creators.push_back(Anchor::StrongPtr<LasArrayCreator>(new LasArrayCreator(shared, field)));
        shared->creators.emplace_back(creators.back());
    }
    return creators;
}

LasArrayCreator::Plan LasArrayCreator::plan() const {
    const std::uint64_t points = fragment_->source->pointsOf(fragment_->index);
    const std::uint64_t most = Anchor::Cache::MemCache().limit();
    const auto& isWanted = fragment_->source->options().IsWanted;
    Plan plan{{field_}, points * field().elementSize};
    for (std::size_t other = 0; other < fragment_->creators.size(); ++other) {
        const LasField& field = fragment_->source->fields()[other];
        if (other == field_ || (isWanted && !isWanted(field.name)))
            continue;
        const std::uint64_t bytes = points * field.elementSize;
        const auto creator = fragment_->creators[other].lock();
        const bool comesAlong = !field.isMinor || plan.bytes + bytes <= most;
        if (creator && comesAlong && !creator->available()) {
            plan.fields.push_back(other);
            plan.bytes += bytes;
        }
    }
    return plan;
}

Sheaf::CachedCreator::Made LasArrayCreator::make() const {
    LasSource& source = *fragment_->source;
    const std::uint64_t bytes = source.pointsOf(fragment_->index) * field().elementSize;
    if (bytes > source.options().MaximumArrayBytes)
        throw Anchor::LimitError(fmt::format(
            "{}: {} of fragment {}: {} bytes are more than the limit of {}", source.file().path(),
            field().name, source.fragmentName(fragment_->index), bytes, source.options().MaximumArrayBytes));
    const Plan what = plan();
    const auto arrays = source.decode(fragment_->index, what.fields);
    Made made{arrays.front()};
    for (std::size_t i = 1; i < arrays.size(); ++i) {
        // The host may have released a field meanwhile.
        const auto creator = fragment_->creators[what.fields[i]].lock();
        if (creator && arrays[i])
            made.siblings.push_back({creator, arrays[i]});
    }
    return made;
}

} // namespace Tidewatch
