// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/ReferenceBase.hpp"

#include <cstdint>
#include <string>

namespace Anchor {

/// A host's progress reporter. Exporters call it on the thread that called Run(), between units of work.
class TIDEWATCH_API LoaderProgress : public ReferenceBase<LoaderProgress> {
public:
    ~LoaderProgress() override;

    /// Reports what is being done: a text for the user, the number of the current item and the number of
    /// items. Returns whether to continue; each exporter documents whether it respects false. An exception
    /// passes through Run() to the host.
    virtual bool progress(const std::string& text, std::uint64_t current, std::uint64_t total) = 0;
};

} // namespace Anchor
