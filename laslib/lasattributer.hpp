// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "mydefs.hpp"

#include <array>
#include <vector>

/// One entry of the extra-bytes record (LAS 1.4 R15, table 24): an attribute that records have after the
/// fields of their format.
class LASattribute {
public:
    /// Bytes of an entry in a file.
    static constexpr std::size_t fileSize = 192;

    /// `type` is one of U8, I8, U16, I16, U32, I32, U64, I64, F32 and F64, counted from 0; names and
    /// descriptions are cut at 32 bytes. The description is optional.
    LASattribute(U32 type, const CHAR* name, const CHAR* description = nullptr);

    /// Set the scale or offset of the attribute and flag it as present; always true.
    BOOL set_scale(F64 value);
    BOOL set_offset(F64 value);

    /// Bytes of the attribute in a record; 0 for a type that is not in the list.
    [[nodiscard]] U32 get_size() const;

    /// The entry as it is in a file.
    [[nodiscard]] std::array<char, fileSize> toBytes() const;

    U8 data_type;
    U8 options = 0;
    CHAR name[32]{};
    F64 scale[3]{1, 1, 1};
    F64 offset[3]{};
    CHAR description[32]{};
};

/// The attributes of a file, laid out one after the other in each record's extra bytes.
class LASattributer {
public:
    /// Adds an attribute after the others; returns its index, or -1 for one without a size.
    I32 add_attribute(const LASattribute& attribute);

    /// Bytes of all attributes together.
    [[nodiscard]] I16 get_attributes_size() const;

    /// Where an attribute starts in the extra bytes; -1 for an invalid index.
    [[nodiscard]] I32 get_attribute_start(I32 index) const;

    [[nodiscard]] const std::vector<LASattribute>& attributeList() const noexcept { return list_; }

private:
    std::vector<LASattribute> list_;
    std::vector<I32> starts_;
};
