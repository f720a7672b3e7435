// SPDX-License-Identifier: Apache-2.0
#include "python/module/Operation.hpp"

#include "anchor/Console.hpp"
#include "anchor/NeverDestroyed.hpp"

#include <string_view>
#include <vector>

namespace Tidewatch::Python {

namespace {

/// How often the interpreter's lock is taken at most: waiting for it costs up to 5 ms where other threads compute in Python.
constexpr std::chrono::steady_clock::duration interval = std::chrono::milliseconds(50);

thread_local Operation* current = nullptr;

std::chrono::steady_clock::rep now() noexcept {
    return std::chrono::steady_clock::now().time_since_epoch().count();
}

bool isMainThread() {
    const py::module_ threading = py::module_::import("threading");
    return threading.attr("current_thread")().is(threading.attr("main_thread")());
}

/// See Operation::reading().
class Reading final : public Progress {
public:
    void tick(const std::string& file, double share) override {
        if (current != nullptr)
            current->tick(file, share);
    }
    void check() override {
        if (current != nullptr)
            current->check();
    }
};

struct Kept {
    std::mutex mutex;
    std::vector<std::string> messages;
};

Kept& kept() {
    static Anchor::NeverDestroyed<Kept> instance;
    return instance.get();
}

} // namespace

SharedObject shared(const py::object& object) {
    if (object.is_none())
        return nullptr;
    return SharedObject(new py::object(object), [](py::object* held) {
        if (Py_IsInitialized() == 0) {
            // The interpreter is gone, and the object with it.
            held->release();
            delete held;
            return;
        }
        const py::gil_scoped_acquire lock;
        delete held;
    });
}

Operation::Operation(const py::object& callable)
    : callable_(shared(callable)),
      handlesSignals_(isMainThread()),
      last_(now()) {}

Operation::~Operation() = default;

void Operation::begin(const std::string& text, double total, const std::string& unit) {
    end(); // what came before, so that its bar is full
    {
        const std::lock_guard lock(mutex_);
        state_ = {text, unit, total, 0, 0, 0, true};
    }
    report(true);
}

void Operation::piece(double done, double size) {
    {
        const std::lock_guard lock(mutex_);
        state_.done = done;
        state_.size = size;
        state_.share = 0;
    }
    report(false);
}

void Operation::say(const std::string& text) {
    {
        const std::lock_guard lock(mutex_);
        state_.text = text;
    }
    report(true);
}

void Operation::tick(const std::string& file, double share) {
    {
        const std::lock_guard lock(mutex_);
        state_.share = share;
        if (!state_.begun) { // the file itself is the work
            state_.text = file;
            state_.size = 1;
            state_.total = 1;
        }
    }
    report(false);
}

void Operation::end() {
    {
        const std::lock_guard lock(mutex_);
        if (!state_.begun)
            return;
        state_.done = state_.total;
        state_.size = 0;
    }
    report(true);
    const std::lock_guard lock(mutex_);
    state_ = {};
}

void Operation::check() {
    report(false);
}

bool Operation::isTime() noexcept {
    const auto time = now();
    auto last = last_.load(std::memory_order_relaxed);
    return time - last >= interval.count() &&
           last_.compare_exchange_strong(last, time, std::memory_order_relaxed);
}

void Operation::report(bool atOnce) {
    if (!isTime() && !(atOnce && callable_))
        return;
    if (!callable_ && !handlesSignals_)
        return;
    State state;
    {
        const std::lock_guard lock(mutex_);
        state = state_;
    }
    const py::gil_scoped_acquire lock;
    if (handlesSignals_ && PyErr_CheckSignals() != 0)
        throw py::error_already_set();
    passOnMessages();
    if (callable_ && !state.text.empty())
        (*callable_)(state.text, state.done + state.share * state.size, state.total, state.unit);
}

Operation::Current::Current(Anchor::StrongPtr<Operation> operation)
    : earlier_(current),
      operation_(std::move(operation)) {
    current = operation_.get();
}

Operation::Current::~Current() {
    current = earlier_;
}

Anchor::StrongPtr<Progress> Operation::reading() {
    // Never destroyed: readers may be, after everything else.
    static const auto* const instance = new Anchor::StrongPtr<Progress>(Anchor::makeStrong<Reading>());
    return *instance;
}

void keepMessages() {
    Anchor::Console::setSink([](std::string_view message) {
        const std::lock_guard lock(kept().mutex);
        kept().messages.emplace_back(message);
    });
}

void passOnMessages() noexcept {
    std::vector<std::string> messages;
    {
        const std::lock_guard lock(kept().mutex);
        messages.swap(kept().messages);
    }
    if (messages.empty())
        return;
    // A logger must not change how the operation ends.
    const py::error_scope error;
    try {
        const py::object log = py::module_::import("logging").attr("getLogger")("tidewatch").attr("info");
        for (const std::string& message : messages)
            log("%s", py::reinterpret_steal<py::object>(PyUnicode_DecodeUTF8(
                          message.data(), static_cast<Py_ssize_t>(message.size()), "replace")));
    } catch (py::error_already_set& failure) {
        failure.discard_as_unraisable("a message of tidewatch");
    }
}

} // namespace Tidewatch::Python
