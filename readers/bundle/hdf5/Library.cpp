// SPDX-License-Identifier: Apache-2.0
#include "readers/bundle/hdf5/Library.hpp"

#include "anchor/printable.hpp"

#include <algorithm>
#include <mutex>

namespace Tidewatch::Hdf5 {

namespace {

std::recursive_mutex& libraryMutex() {
    // Never destroyed: static objects of a host may hold files until the process ends.
    static auto* const mutex = new std::recursive_mutex;
    return *mutex;
}

} // namespace

LibraryCall::LibraryCall() {
    libraryMutex().lock();
#ifndef H5_NO_DEPRECATED_SYMBOLS
    unsigned isNew = 1;
    isOld_ = H5Eauto_is_v2(H5E_DEFAULT, &isNew) >= 0 && isNew == 0;
    if (isOld_) {
        H5Eget_auto1(&oldPrinter_, &printerData_);
        H5Eset_auto1(nullptr, nullptr);
        return;
    }
#endif
    H5Eget_auto2(H5E_DEFAULT, &printer_, &printerData_);
    H5Eset_auto2(H5E_DEFAULT, nullptr, nullptr);
}

LibraryCall::~LibraryCall() {
#ifndef H5_NO_DEPRECATED_SYMBOLS
    if (isOld_)
        H5Eset_auto1(oldPrinter_, printerData_);
    else
#endif
        H5Eset_auto2(H5E_DEFAULT, printer_, printerData_);
    libraryMutex().unlock();
}

std::string innermostError() {
    std::string text;
    const auto takeFirst = [](unsigned, const H5E_error2_t* entry, void* data) -> herr_t {
        try {
            if (entry->desc != nullptr)
                *static_cast<std::string*>(data) = Anchor::printable(entry->desc);
        } catch (...) {
            // Out of memory: the message has no text then. The exception must not pass through C code.
            return -1;
        }
        return 1;
    };
    H5Ewalk2(H5E_DEFAULT, H5E_WALK_UPWARD, takeFirst, &text);
    // Some texts end with addresses of buffers in this process, which messages must not disclose.
    if (const std::size_t address = text.find("0x"); address != std::string::npos)
        text.erase(std::min(text.find(':'), address));
    return text;
}

bool isOutOfMemory() {
    bool isOut = false;
    const auto look = [](unsigned, const H5E_error2_t* entry, void* data) -> herr_t {
        auto& found = *static_cast<bool*>(data);
        found = found || (entry->maj_num == H5E_RESOURCE && entry->min_num == H5E_NOSPACE);
        return 0;
    };
    H5Ewalk2(H5E_DEFAULT, H5E_WALK_UPWARD, look, &isOut);
    return isOut;
}

} // namespace Tidewatch::Hdf5
