// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <hdf5.h>

namespace Tidewatch::Hdf5 {

/// Makes calls into the HDF5 library possible for as long as the object lives; every such call of this
/// project happens inside one.
///
/// It holds a lock of the process, since the library may have been built without one of its own, and it keeps
/// the library from printing its error stack; what the host had set for that is put back at the end. Objects
/// may nest on one thread. A host that uses the HDF5 library in other threads meanwhile needs a library that
/// was built thread-safe.
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
    // The library keeps one of two kinds of printers and refuses to tell it in terms of the other.
    H5E_auto1_t oldPrinter_ = nullptr;
    bool isOld_ = false;
#endif
};

/// What the innermost entry of the library's error stack says, printable; empty where the stack is. Ask
/// within the LibraryCall of the call that failed, before any other call.
[[nodiscard]] std::string innermostError();

/// Whether the call that failed did so for want of memory, as the library's error stack has it. To be asked as
/// innermostError() is.
[[nodiscard]] bool isOutOfMemory();

} // namespace Tidewatch::Hdf5
