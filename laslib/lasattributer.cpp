// SPDX-License-Identifier: Apache-2.0
#include "lasattributer.hpp"

#include "LittleEndian.hpp"
#include "formats/las/layout.hpp"

#include <algorithm>
#include <cstring>

namespace {

namespace Layout = Formats::Las::ExtraBytes;

void copyText(CHAR (&to)[32], const CHAR* text) {
    if (text != nullptr)
        std::memcpy(to, text, std::min(std::strlen(text), sizeof to));
}

} // namespace

LASattribute::LASattribute(U32 type, const CHAR* attributeName, const CHAR* attributeDescription)
    // In a file types are numbered from 1; 0 means bytes without a description.
    : data_type(static_cast<U8>(type + 1)) {
    copyText(name, attributeName);
    copyText(description, attributeDescription);
}

BOOL LASattribute::set_scale(F64 value) {
    scale[0] = value;
    options |= Layout::optionScale;
    return true;
}

BOOL LASattribute::set_offset(F64 value) {
    offset[0] = value;
    options |= Layout::optionOffset;
    return true;
}

U32 LASattribute::get_size() const {
    constexpr U32 sizes[]{1, 1, 2, 2, 4, 4, 8, 8, 4, 8};
    return data_type >= 1 && data_type <= std::size(sizes) ? sizes[data_type - 1] : 0;
}

std::array<char, LASattribute::fileSize> LASattribute::toBytes() const {
    // Reserved bytes, and the "no data", min and max values, which are never flagged, stay zero.
    std::array<char, fileSize> bytes{};
    LittleEndianWriter(bytes.data() + Layout::type).put(data_type).put(options).put(name);
    LittleEndianWriter(bytes.data() + Layout::scale).put(scale).put(offset).put(description);
    return bytes;
}

I32 LASattributer::add_attribute(const LASattribute& attribute) {
    if (attribute.get_size() == 0)
        return -1;
    starts_.push_back(get_attributes_size());
    list_.push_back(attribute);
    return static_cast<I32>(list_.size() - 1);
}

I16 LASattributer::get_attributes_size() const {
    return list_.empty() ? I16{0}
                         : static_cast<I16>(starts_.back() + static_cast<I32>(list_.back().get_size()));
}

I32 LASattributer::get_attribute_start(I32 index) const {
    const auto place = static_cast<std::size_t>(index);
    return index >= 0 && place < starts_.size() ? starts_[place] : -1;
}
