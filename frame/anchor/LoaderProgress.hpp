// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/ReferenceBase.hpp"

#include <cstdint>
#include <string>

namespace Anchor {

/// A host's progress reporter. Exporters call it on the thread that called Run(), between the pieces of their
/// work.
class TIDEWATCH_API LoaderProgress : public ReferenceBase<LoaderProgress> {
public:
    ~LoaderProgress() override;

    /// Tells what is being done: a text for people, the number of the current item and the number of items.
    /// Answers whether to go on; which exporters listen to a refusal, each says itself. An exception passes
    /// through Run() to the host.
    virtual bool progress(const std::string& text, std::uint64_t current, std::uint64_t total) = 0;
};

} // namespace Anchor
