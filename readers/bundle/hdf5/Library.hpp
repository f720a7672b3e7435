// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <hdf5.h>

namespace Tidewatch::Hdf5 {

/// Guards calls of the HDF5 library for its lifetime; this project makes every such call inside one.
///
/// It holds a process-wide lock, since the library may not have been built thread-safe, and keeps the library
/// from printing its error stack; the host's setting for that is restored at the end. Objects may nest on one
/// thread. A host that uses the HDF5 library in other threads meanwhile needs a thread-safe build of it.
class LibraryCall {
public:
    LibraryCall();
    ~LibraryCall();
    LibraryCall(const LibraryCall&) = delete;
    LibraryCall& operator=(const LibraryCall&) = delete;

private:
    void* printerData_ = nullptr;
    H5E_auto2_t printer_ = nullptr;
#ifndef H5_NO_DEPRECATED_SYMBOLS
    // The library has one of two kinds of error printers set, and each has its own functions.
    H5E_auto1_t oldPrinter_ = nullptr;
    bool isOld_ = false;
#endif
};

/// The text of the innermost entry of the library's error stack, printable; empty if there is none. Call
/// within the LibraryCall of the call that failed, before any other call.
[[nodiscard]] std::string innermostError();

/// Whether the failed call ran out of memory, according to the library's error stack. Call as
/// innermostError().
[[nodiscard]] bool isOutOfMemory();

} // namespace Tidewatch::Hdf5
