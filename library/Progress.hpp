// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/ReferenceBase.hpp"
#include "anchor/StrongPtr.hpp"

#include <functional>
#include <string>

namespace Tidewatch {

/// Reports how far the work has come, and lets a host stop it: an exception thrown by any of these functions ends the
/// work and passes to the caller. The base class shows nothing and stops nothing.
///
/// A run consists of parts, each with its share of the whole; the work in one has a size in some unit and consists of
/// pieces; reading an array reports the share of the current piece. Called on the thread that asked for the work, check()
/// many times a second.
class TIDEWATCH_API Progress : public Anchor::ReferenceBase<Progress> {
public:
    ~Progress() override;

    /// What follows is the part of the whole run between these shares (0 to 1). Without a call, work is the whole run.
    virtual void part(double from, double to);

    /// Work of size `total` starts; `unit` is in the plural. It is all of the current part.
    virtual void begin(const std::string& text, double total, const std::string& unit);

    /// A piece starts: `done` is the work done so far, `size` the work in this piece.
    virtual void piece(double done, double size);

    /// The description of the current work changes.
    virtual void say(const std::string& text);

    /// The work has been waiting for a while for something that others do. A host should tell this even where it shows no
    /// progress.
    virtual void waits(const std::string& text);

    /// The completed share (0 to 1) of the piece, while a file is read.
    virtual void tick(const std::string& file, double share);

    /// The run is over: nothing is left to be done.
    virtual void end();

    /// Asks whether to continue.
    virtual void check();

    /// tick() as a function for readers; keeps the object alive. Empty for a null reference. On a thread that has its
    /// own progress object (OnThisThread), calls go to that one instead.
    [[nodiscard]] static std::function<void(const std::string&, double)>
    ticker(Anchor::StrongPtr<Progress> progress);

    /// Gives the current thread its own progress object while this object exists, for threads other than the one that
    /// asked for the work. The progress object must outlive it.
    class TIDEWATCH_API OnThisThread {
    public:
        explicit OnThisThread(Progress& progress) noexcept;
        ~OnThisThread();
        OnThisThread(const OnThisThread&) = delete;
        OnThisThread& operator=(const OnThisThread&) = delete;

        /// Whether the calling thread has one.
        [[nodiscard]] static bool exists() noexcept;
    };
};

} // namespace Tidewatch
