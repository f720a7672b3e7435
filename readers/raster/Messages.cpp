// SPDX-License-Identifier: Apache-2.0
#include "readers/raster/Messages.hpp"

#include "anchor/printable.hpp"

namespace Tidewatch::Raster {

Messages::Messages() {
    CPLPushErrorHandlerEx(&take, this);
}

Messages::~Messages() {
    CPLPopErrorHandler();
}

std::string Messages::failure() const {
    return failure_.empty() ? "GDAL gives no reason" : Anchor::printable(failure_);
}

void CPL_STDCALL Messages::take(CPLErr kind, CPLErrorNum number, const char* text) {
    auto* const messages = static_cast<Messages*>(CPLGetErrorHandlerUserData());
    if (kind < CE_Failure || !messages->failure_.empty())
        return;
    try {
        messages->failure_ = text;
        messages->number_ = number;
    } catch (...) {
        // Out of memory: there is no message then. Exceptions must not pass through GDAL's C interface.
    }
}

} // namespace Tidewatch::Raster
