// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "readers/bundle/hdf5/FileDriver.hpp"
#include "readers/bundle/hdf5/Handle.hpp"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>
#include <variant>
#include <vector>

namespace Tidewatch::Hdf5 {

/// An HDF5 file that is being written.
///
/// Every operation throws Anchor::FileError with path and cause as soon as a write has failed. Destruction
/// without close() does not report failures.
class NewFile {
public:
    /// Creates the file, empty; an existing one is overwritten.
    explicit NewFile(std::string path);
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    /// A group of this file.
    class Group {
    public:
        /// The group's path inside the file; empty for the root.
        [[nodiscard]] const std::string& path() const noexcept { return path_; }

        /// Adds a group. The name is one path component.
        [[nodiscard]] Group addGroup(const std::string& name) const;

        /// An attribute: a text, a number or a list of bytes.
        struct Attribute {
            const char* name;
            std::variant<std::string, std::uint16_t, std::vector<std::uint8_t>> value;
        };
        void set(const Attribute& attribute) const;

        /// Adds an attribute to the group. A text that is not valid UTF-8 is marked as ASCII, HDF5's other
        /// character set.
        void setText(const char* attribute, std::string_view text) const;
        /// The same for a single number and for a list; T is std::uint8_t, std::uint16_t, std::int32_t, std::uint64_t or
        /// double.
        template <class T>
        void setNumber(const char* attribute, T value) const;
        template <class T>
        void setNumbers(const char* attribute, std::span<const T> values) const;

        /// The description of a dataset to add.
        struct NewDataset {
            std::string name;
            /// The type of its numbers, a scalar element type.
            const std::type_info& number;
            /// Slowest axis first.
            std::vector<std::uint64_t> extents;
            std::vector<Attribute> attributes;
            /// The compression level of a large dataset, 0 for none.
            unsigned compression;
        };

        /// Adds a dataset; `data` holds all its numbers. `tick` is called from time to time and may throw to
        /// stop.
        void addDataset(const NewDataset& dataset, std::span<const std::byte> data,
                        const std::function<void()>& tick) const;

    private:
        friend class NewFile;
        Group(const NewFile& file, std::string path, GroupHandle handle)
            : file_(&file),
              path_(std::move(path)),
              handle_(std::move(handle)) {}

        const NewFile* file_;
        std::string path_;
        GroupHandle handle_;
    };

    [[nodiscard]] Group root() const;

    /// Flushes and closes the file. Call once, when all groups have been destroyed.
    void close();

private:
    /// Throws when the system has refused a write, or when a call of the library failed.
    void require(bool succeeded, const char* what) const;

    std::string path_;
    FileFailure failure_;
    FileHandle handle_; // after failure_, which the driver uses until the file is closed
};

} // namespace Tidewatch::Hdf5
