// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "library/Progress.hpp"

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include <pybind11/pybind11.h>

namespace Tidewatch::Python {

namespace py = pybind11;

/// A reference to a Python object that C++ may release on any thread, with or without the interpreter's lock.
using SharedObject = std::shared_ptr<py::object>;

/// Null for None. Call with the lock.
[[nodiscard]] SharedObject shared(const py::object& object);

/// One call into the library: shows its progress through a Python callable, and ends it by the exception of a signal
/// handler (Ctrl-C) or of the callable.
///
/// The callable gets a text, the work done, all of the work (0 if it is not known) and its unit, a few times a second and
/// at the end. The interpreter's lock is taken only for that and, on the main thread, for signals, a few times a second.
class Operation final : public Progress {
public:
    /// `callable` may be None. Call with the lock.
    explicit Operation(const py::object& callable);
    ~Operation() override;

    void begin(const std::string& text, double total, const std::string& unit) override;
    void piece(double done, double size) override;
    void say(const std::string& text) override;
    void tick(const std::string& file, double share) override;
    void end() override;
    void check() override;

    /// Makes an operation the one of this thread, to which reading() passes what it is told.
    class Current {
    public:
        explicit Current(Anchor::StrongPtr<Operation> operation);
        ~Current();
        Current(const Current&) = delete;
        Current& operator=(const Current&) = delete;

    private:
        Operation* earlier_;
        Anchor::StrongPtr<Operation> operation_;
    };

    /// Passes what readers report to the operation of the thread that reads, if there is one.
    [[nodiscard]] static Anchor::StrongPtr<Progress> reading();

private:
    struct State {
        std::string text;
        std::string unit;
        double total = 0;
        double done = 0;
        double size = 0;
        double share = 0;
        bool begun = false;
    };

    void report(bool atOnce);
    [[nodiscard]] bool isTime() noexcept;

    SharedObject callable_;
    bool handlesSignals_;
    std::atomic<std::chrono::steady_clock::rep> last_;
    std::mutex mutex_; // never held while the interpreter's lock is waited for
    State state_;
};

/// Hands the console messages of the exporters to Python's logging (logger "tidewatch"). They are kept until somebody with
/// the lock calls this: a message may come from a thread that must not wait for it.
void passOnMessages() noexcept;

/// Keeps console messages from now on.
void keepMessages();

/// Calls `work(progress)` without the interpreter's lock; its result must not be a Python object. Call with the lock.
template <class Work>
auto perform(const py::object& progress, Work&& work) {
    const Anchor::StrongPtr<Operation> operation = Anchor::makeStrong<Operation>(progress);
    struct PassedOn {
        ~PassedOn() { passOnMessages(); }
    } const passedOn;
    const Operation::Current current(operation);
    const py::gil_scoped_release released;
    return std::forward<Work>(work)(operation);
}

} // namespace Tidewatch::Python
