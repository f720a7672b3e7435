// SPDX-License-Identifier: Apache-2.0
#include "readers/las/LasArrayCreator.hpp"

#include "anchor/Error.hpp"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

namespace Tidewatch {

/// Stands for the raw colours of a fragment in the cache. Nobody but the creators of the fragment knows it, and they
/// only ask what is available.
class LasArrayCreator::RawColours final : public Sheaf::CachedCreator {
public:
    explicit RawColours(std::uint64_t points)
        : CachedCreator(typeid(unsigned short), Sheaf::Extents{points * channels}) {}

    static constexpr std::uint64_t channels = 3;

protected:
    [[nodiscard]] Made make() const override {
        throw Anchor::ModelError("raw colours are made along with other arrays only");
    }
    [[nodiscard]] std::uint64_t bytesToMake() const override { return 0; }
};

LasArrayCreator::LasArrayCreator(std::shared_ptr<const Fragment> fragment, std::size_t field)
    : CachedCreator(*fragment->file->source->fields()[field].elementType,
                    Sheaf::Extents{fragment->file->source->pointsOf(fragment->index)}),
      fragment_(std::move(fragment)),
      field_(field) {}

LasArrayCreator::~LasArrayCreator() = default;

std::vector<Anchor::StrongPtr<LasArrayCreator>> LasArrayCreator::makeAll(const std::shared_ptr<File>& file) {
    const auto fragment = std::make_shared<Fragment>(Fragment{file, file->fragments.size(), {}, {}});
    std::vector<Anchor::StrongPtr<LasArrayCreator>> creators;
    for (std::size_t field = 0; field < file->source->fields().size(); ++field) {
        if (file->source->fields()[field].isColours())
            fragment->rawColours = Anchor::makeStrong<RawColours>(file->source->pointsOf(fragment->index));
        creators.push_back(Anchor::StrongPtr<LasArrayCreator>(new LasArrayCreator(fragment, field)));
        fragment->creators.emplace_back(creators.back());
    }
    file->fragments.emplace_back(fragment);
    return creators;
}

LasArrayCreator::Plan LasArrayCreator::planOf(const Fragment& fragment, std::size_t required) {
    const LasSource& source = *fragment.file->source;
    const std::uint64_t points = source.pointsOf(fragment.index);
    const std::uint64_t most = Anchor::Cache::MemCache().limit();
    const auto& isWanted = source.options().IsWanted;
    Plan plan{{required}, points * source.fields()[required].elementSize};
    for (std::size_t other = 0; other < fragment.creators.size(); ++other) {
        const LasField& field = source.fields()[other];
        if (other == required || (isWanted && !isWanted(field.name)))
            continue;
        const std::uint64_t bytes = points * field.elementSize;
        const auto creator = fragment.creators[other].lock();
        const bool comesAlong = !field.isMinor || plan.bytes + bytes <= most;
        const bool isThere = field.isColours() && fragment.rawColours->available();
        if (creator && comesAlong && !isThere && !creator->available()) {
            plan.fields.push_back(other);
            plan.bytes += bytes;
        }
    }
    return plan;
}

/// The fields to keep of another fragment if there is room for them; takes the room.
std::vector<std::size_t> LasArrayCreator::keepOf(std::uint64_t fragment, std::uint64_t& room) const {
    // Of colours, both the array and the values that it is made of exist for a while.
    constexpr std::uint64_t rawColourBytes = RawColours::channels * sizeof(unsigned short);
    const auto shared = fragment_->file->fragments[fragment].lock();
    if (!shared)
        return {};
    Plan what = planOf(*shared, field_);
    what.bytes += rawColourBytes * source().pointsOf(fragment);
    if (what.bytes > room) {
        room = 0;
        return {};
    }
    room -= what.bytes;
    return std::move(what.fields);
}

std::uint64_t LasArrayCreator::bytesToMake() const {
    const std::uint64_t own = plan().bytes;
    if (!source().looksAhead(field_))
        return own;
    // The other fragments have at most as many points as this one, the last one aside, and the same fields.
    const std::uint64_t limit = Anchor::Cache::MemCache().limit();
    const std::uint64_t fragments = source().fragmentCount();
    return own < limit / fragments ? own * fragments : std::max(own, limit);
}

Sheaf::CachedCreator::Made LasArrayCreator::make() const {
    const std::uint64_t bytes = source().pointsOf(fragment_->index) * field().elementSize;
    if (bytes > source().options().MaximumArrayBytes)
        throw Anchor::LimitError(fmt::format("{}: {} of fragment {}: {} bytes are more than the limit of {}",
                                             source().file().path(), field().name,
                                             source().fragmentName(fragment_->index), bytes,
                                             source().options().MaximumArrayBytes));
    const std::uint64_t limit = Anchor::Cache::MemCache().limit();
    const auto decode = [&] {
        const auto raw = field().isColours() ? fragment_->rawColours->available() : nullptr;
        const Plan what = raw ? Plan{{field_}, bytes} : plan();
        std::uint64_t room = limit - std::min(limit, what.bytes);
        const auto keep = [&](std::uint64_t fragment) { return keepOf(fragment, room); };
        if (!raw)
            return source().decode(fragment_->index, what.fields, keep);
        auto narrowed =
            source().narrow(fragment_->index, field_, Anchor::dynamicCast<Sheaf::MemBase>(raw), keep);
        Anchor::Cache::MemCache().forget(fragment_->rawColours.get());
        return narrowed;
    };
    const auto decoded = decode();
    Made made{decoded.front().arrays.front()};
    for (const LasSource::Decoded& part : decoded) {
        const auto fragment = fragment_->file->fragments[part.fragment].lock();
        if (!fragment)
            continue;
        for (std::size_t i = 0; i < part.fields.size(); ++i) {
            // The host may have released a field meanwhile.
            const auto creator = fragment->creators[part.fields[i]].lock();
            if (creator && creator.get() != this && part.arrays[i])
                made.siblings.push_back({creator, part.arrays[i]});
        }
        if (part.rawColours)
            made.siblings.push_back({fragment->rawColours, part.rawColours});
    }
    return made;
}

} // namespace Tidewatch
