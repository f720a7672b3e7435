// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Error.hpp"
#include "readers/bundle/hdf5/Handle.hpp"
#include "readers/bundle/hdf5/storedAttribute.hpp"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Tidewatch::Hdf5 {

class OpenFile;

/// A group or dataset of an open file, with checked access to its members and attributes. Only hard links are
/// followed; all others are refused, since they can refer to other files.
///
/// Every operation throws Anchor::FormatError, with the message "file: object: what is wrong", when the file
/// does not contain what is asked for.
class Object {
public:
    Object(const OpenFile& file, std::string path, ObjectHandle handle)
        : file_(&file),
          path_(std::move(path)),
          handle_(std::move(handle)) {}

    /// The object's path inside the file.
    [[nodiscard]] const std::string& path() const noexcept { return path_; }

    /// The library's identifier, valid as long as this object lives.
    [[nodiscard]] hid_t id() const noexcept { return handle_.get(); }

    [[nodiscard]] const OpenFile& file() const noexcept { return *file_; }

    [[nodiscard]] bool isGroup() const;
    [[nodiscard]] bool isDataset() const;

    /// The names of a group's links in ascending byte order. Throws for an object that is not a group, for a
    /// link that is not a hard link, for two links of the same name, and for more than `most` links.
    [[nodiscard]] std::vector<std::string> links(std::uint64_t most) const;

    /// The object of a group's link.
    [[nodiscard]] Object child(const std::string& name) const;

    /// The same, or nothing if the group has no link of that name.
    [[nodiscard]] std::optional<Object> findChild(const std::string& name) const;

    /// The text of a string attribute of fixed or variable length; nothing if there is no attribute of that
    /// name. Throws also for more than `most` bytes, and for a text marked as UTF-8 that is not.
    [[nodiscard]] std::optional<std::string> text(const char* name, std::size_t most = 65536) const;

    /// The values of an integer attribute of any width and byte order; nothing if there is none. Throws when
    /// one is outside T's range. T is std::uint8_t, std::uint16_t, std::int32_t, std::int64_t or
    /// std::uint64_t.
    template <class T>
    [[nodiscard]] std::optional<std::vector<T>> integers(const char* name) const;

    /// The values of a numeric attribute, including integers; nothing if there is none.
    [[nodiscard]] std::optional<std::vector<double>> numbers(const char* name) const;

    /// Throws an error about this object.
    template <class Kind = Anchor::FormatError>
    [[noreturn]] void fail(const std::string& what) const {
        throw Kind(message(what));
    }

    /// The same with the library's reason; call within the LibraryCall of the call that failed.
    [[noreturn]] void failWithReason(const std::string& what) const;

private:
    [[nodiscard]] std::string message(const std::string& what) const;
    [[nodiscard]] AttributeHandle findAttribute(const char* name) const;
    /// What the object header stores for an attribute; nothing if it is stored elsewhere.
    [[nodiscard]] std::optional<StoredAttribute> stored(const char* name) const;
    /// The text of an attribute of variable length.
    [[nodiscard]] std::string longText(const char* name, std::size_t most) const;
    /// The text of an attribute of fixed length.
    [[nodiscard]] std::string shortText(const char* name, hid_t attribute, hid_t type,
                                        std::size_t most) const;
    /// The number of values of an attribute; throws if it is too large to allocate.
    [[nodiscard]] std::size_t valueCount(hid_t attribute, const char* name) const;

    const OpenFile* file_;
    std::string path_;
    ObjectHandle handle_;
};

extern template std::optional<std::vector<std::uint8_t>> Object::integers(const char*) const;
extern template std::optional<std::vector<std::uint16_t>> Object::integers(const char*) const;
extern template std::optional<std::vector<std::int32_t>> Object::integers(const char*) const;
extern template std::optional<std::vector<std::int64_t>> Object::integers(const char*) const;
extern template std::optional<std::vector<std::uint64_t>> Object::integers(const char*) const;

} // namespace Tidewatch::Hdf5
