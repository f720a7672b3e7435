// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/source/Structure.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Tidewatch {

/// An input file and those beside it that may be looked into, all of them open. Whoever reads opens nothing.
struct SourceFiles {
    struct File {
        /// Without folders.
        std::string name;
        /// Belongs to whoever made the object, and outlives every Source of it.
        int descriptor = -1;
        /// In bytes.
        std::uint64_t size = 0;
    };

    /// Of the input, for messages alone.
    std::string path;
    /// The input itself first.
    std::vector<File> files;
};

/// One open input. It belongs to one thread at a time.
class Source {
public:
    /// Told the share (0 to 1) that is done; may throw to stop.
    using Tick = std::function<void(double share)>;

    virtual ~Source() = default;

    /// What the file holds. Throws Anchor::FormatError for what is damaged or of no use, Anchor::FileError where
    /// the system cannot read, Anchor::LimitError where memory is missing.
    [[nodiscard]] virtual Structure structure(const Tick& tick) = 0;

    /// Fills `target`, which has the size of all elements, with an array that structure() named, of this or of
    /// an earlier Source of the same file. Refuses (Anchor::LimitError) what needs more than `most` bytes of
    /// memory at once on the way. Gives what has turned up that is not carried, for InputReport::notCarried.
    /// Throws what structure() throws.
    [[nodiscard]] virtual std::vector<std::string> read(const Structure::Array& array,
                                                        std::span<std::byte> target, std::uint64_t most,
                                                        const Tick& tick) = 0;

    /// Whether it can still be asked. A source in another process ends with that.
    [[nodiscard]] virtual bool isUsable() const { return true; }
};

/// A library that reads one family of files, loaded by the process that reads them: see loadModule().
class SourceModule {
public:
    virtual ~SourceModule() = default;

    /// The project's version that it was built as.
    [[nodiscard]] virtual std::string_view version() const = 0;

    /// Lets the library open what it opens on its own, databases above all. Called before a process gives up
    /// opening files; costs nothing when it has been done in this process.
    virtual void prepare() const = 0;

    /// Whether the file is one of this family, those included that are refused with a reason.
    [[nodiscard]] virtual bool recognises(const SourceFiles& files) const = 0;

    /// Throws what Source::structure() throws. The files outlive the source.
    [[nodiscard]] virtual std::unique_ptr<Source> open(const SourceFiles& files) const = 0;
};

} // namespace Tidewatch
