// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/bundle/hdf5/Library.hpp"

#include <utility>

namespace Tidewatch::Hdf5 {

/// Owns an identifier of the HDF5 library and closes it with the function for its kind.
template <herr_t (*Close)(hid_t)>
class Handle {
public:
    Handle() = default;

    /// Takes ownership of what a call of the library returned; a failure (a negative number) gives an empty
    /// handle.
    explicit Handle(hid_t id) noexcept : id_(id) {}
    Handle(Handle&& other) noexcept : id_(std::exchange(other.id_, H5I_INVALID_HID)) {}
    Handle& operator=(Handle&& other) noexcept {
        std::swap(id_, other.id_);
        return *this;
    }
    ~Handle() { close(); }

    [[nodiscard]] hid_t get() const noexcept { return id_; }
    [[nodiscard]] explicit operator bool() const noexcept { return id_ >= 0; }

    /// Closes now; returns whether that succeeded. Closing twice is allowed.
    bool close() noexcept {
        if (id_ < 0)
            return true;
        const LibraryCall call;
        return Close(std::exchange(id_, H5I_INVALID_HID)) >= 0;
    }

private:
    hid_t id_ = H5I_INVALID_HID;
};

using FileHandle = Handle<&H5Fclose>;
using ObjectHandle = Handle<&H5Oclose>;
using GroupHandle = Handle<&H5Gclose>;
using DatasetHandle = Handle<&H5Dclose>;
using DatatypeHandle = Handle<&H5Tclose>;
using DataspaceHandle = Handle<&H5Sclose>;
using AttributeHandle = Handle<&H5Aclose>;
using PropertiesHandle = Handle<&H5Pclose>;

} // namespace Tidewatch::Hdf5
