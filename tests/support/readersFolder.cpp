// SPDX-License-Identifier: Apache-2.0
//
// Tests that hold the objects of the readers instead of their library would look for the modules beside themselves.
#include "readers/source/modules.hpp"

namespace {

[[maybe_unused]] const bool isSet = [] {
    Tidewatch::Places::setFolder(TIDEWATCH_READERS_FOLDER);
    return true;
}();

} // namespace
