// SPDX-License-Identifier: Apache-2.0
//
// Two functions of the frame's library that exporters call and no host can override. A dynamic library's
// functions give way to those of the program that loads it, so here the calls are recorded, whichever part of
// the project makes them.
#include "convlib/BasicConverterDefs.hpp"
#include "record/Recorder.hpp"
#include "sheaf/Slice.hpp"

#include <algorithm>

namespace Sheaf {

bool Slice::accessSlice() const {
    if (Record::Recorder* const recorder = Record::Recorder::current()) {
        recorder->event("access " + Record::number(time()));
        if (recorder->onAccess)
            recorder->onAccess(time());
    }
    return std::any_of(grids().begin(), grids().end(),
                       [](const auto& entry) { return !entry.second.expired(); });
}

} // namespace Sheaf

namespace ConvLib {

std::string BasicConverterDefs::printParameters() {
    if (Record::Recorder* const recorder = Record::Recorder::current())
        recorder->event("parameters");
    return {};
}

} // namespace ConvLib
