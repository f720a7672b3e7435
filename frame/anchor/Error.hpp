// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "anchor/Visibility.hpp"

#include <stdexcept>

namespace Anchor {

/// Root of every error that this project throws on purpose.
///
/// The message names the file, the object concerned and the cause, in the form "file: object: what is wrong".
/// Destructors are defined out of line, so that one library can catch what another throws.
class TIDEWATCH_API Error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    Error(const Error&) = default;
    Error& operator=(const Error&) = default;
    ~Error() override;
};

/// A file cannot be opened, read, written or renamed; the message carries the system's own reason.
class TIDEWATCH_API FileError : public Error {
public:
    using Error::Error;
    FileError(const FileError&) = default;
    FileError& operator=(const FileError&) = default;
    ~FileError() override;
};

/// The content of a file is damaged, hostile or of a kind that its reader does not know.
class TIDEWATCH_API FormatError : public Error {
public:
    using Error::Error;
    FormatError(const FormatError&) = default;
    FormatError& operator=(const FormatError&) = default;
    ~FormatError() override;
};

/// A request exceeds a limit that the host has set, in most cases for memory.
class TIDEWATCH_API LimitError : public Error {
public:
    using Error::Error;
    LimitError(const LimitError&) = default;
    LimitError& operator=(const LimitError&) = default;
    ~LimitError() override;
};

/// The data model was asked to hold something that it cannot: a time that is NaN, a name that is already
/// taken.
class TIDEWATCH_API ModelError : public Error {
public:
    using Error::Error;
    ModelError(const ModelError&) = default;
    ModelError& operator=(const ModelError&) = default;
    ~ModelError() override;
};

} // namespace Anchor
