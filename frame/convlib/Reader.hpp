// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/StrongPtr.hpp"
#include "convlib/InputReport.hpp"
#include "convlib/ReadOptions.hpp"
#include "sheaf/Bundle.hpp"

#include <cstddef>
#include <span>
#include <string>
#include <vector>

namespace ConvLib {

/// Reads one kind of file into a bundle.
///
/// Readers are registered with the process by an explicit call, never by static initialisation, which a
/// linker may drop. A host may register its own.
class TIDEWATCH_API Reader : public Anchor::ReferenceBase<Reader> {
public:
    /// How many bytes from the start of a file recognises() gets; fewer if the file is shorter.
    static constexpr std::size_t headSize = 4096;

    ~Reader() override;

    /// The kind of file, for messages: "LAS/LAZ file".
    [[nodiscard]] virtual std::string name() const = 0;

    /// Whether the file is of this reader's kind, judged by its content; the path is for cases in which the
    /// content cannot decide.
    [[nodiscard]] virtual bool recognises(const std::string& path, std::span<const std::byte> head) const = 0;

    /// Adds the file's contents to the bundle: its structure at once, its arrays on demand, as long as the
    /// bundle exists. Throws Anchor::Error naming file, object and cause; grids that this call added, even
    /// partly, are then removed again.
    virtual Anchor::StrongPtr<InputReport> read(Sheaf::Bundle& bundle, const std::string& path,
                                                const ReadOptions& options) const = 0;
};

/// Adds a reader after those already registered; a registered reader with the same name is replaced.
TIDEWATCH_API void registerReader(Anchor::StrongPtr<Reader> reader);

/// Unregisters a reader; an unknown name is not an error.
TIDEWATCH_API void unregisterReader(const std::string& name);

/// The registered readers in the order in which they are asked.
[[nodiscard]] TIDEWATCH_API std::vector<Anchor::StrongPtr<Reader>> registeredReaders();

/// Reads one file with the first registered reader that recognises it. Throws Anchor::FileError if the file
/// cannot be opened, Anchor::FormatError if no reader recognises it, and what the reader throws.
TIDEWATCH_API Anchor::StrongPtr<InputReport> readFile(Sheaf::Bundle& bundle, const std::string& path,
                                                      const ReadOptions& options);

} // namespace ConvLib
