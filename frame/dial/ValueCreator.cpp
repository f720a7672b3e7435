// SPDX-License-Identifier: Apache-2.0
#include "dial/ValueCreator.hpp"

#include "anchor/NeverDestroyed.hpp"

#include <map>
#include <mutex>
#include <typeindex>

namespace Dial {

Value::~Value() = default;
ValueCreator::~ValueCreator() = default;

namespace {

template <class T>
class TypedCreator final : public ValueCreator {
public:
    [[nodiscard]] const std::type_info& type() const noexcept override { return typeid(T); }
    [[nodiscard]] Anchor::StrongPtr<Value> make() const override { return Anchor::makeStrong<VValue<T>>(); }
};

struct Shared {
    Anchor::StrongPtr<ValueCreator> creator;
    std::size_t users = 0;
};

struct SharedCreators {
    std::mutex mutex;
    std::map<std::type_index, Shared> byType;
};

SharedCreators& sharedCreators() {
    // Never destroyed: libraries may be unloaded at the very end of the process.
    static Anchor::NeverDestroyed<SharedCreators> creators;
    return creators.get();
}

} // namespace

Anchor::StrongPtr<ValueCreator> ValueCreator::find(const std::type_info& type) {
    SharedCreators& shared = sharedCreators();
    const std::lock_guard lock(shared.mutex);
    const auto found = shared.byType.find(type);
    return found != shared.byType.end() ? found->second.creator : nullptr;
}

template <class T>
SharedValueCreator<T>::SharedValueCreator() {
    SharedCreators& shared = sharedCreators();
    const std::lock_guard lock(shared.mutex);
    Shared& entry = shared.byType[typeid(T)];
    if (!entry.creator)
        entry.creator = Anchor::makeStrong<TypedCreator<T>>();
    ++entry.users;
}

template <class T>
SharedValueCreator<T>::~SharedValueCreator() {
    SharedCreators& shared = sharedCreators();
    const std::lock_guard lock(shared.mutex);
    const auto found = shared.byType.find(typeid(T));
    if (--found->second.users == 0)
        shared.byType.erase(found);
}

template class VValue<double>;
template class SharedValueCreator<double>;

} // namespace Dial
