// SPDX-License-Identifier: Apache-2.0
#include "lasdefinitions.hpp"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>
#include <utility>

namespace {

constexpr const CHAR* extraBytesUser = "LASF_Spec";
constexpr U16 extraBytesRecord = 4;
constexpr std::string_view ownDescription = "by LAStools of rapidlasso GmbH";

} // namespace

BOOL LASheader::add_vlr(const CHAR* user_id, U16 record_id, U16 record_length, U8* data,
                        BOOL keep_description, const CHAR* description, BOOL keep_existing) {
    const std::unique_ptr<U8[]> owned(data);
    LASvlr vlr;
    const std::string_view user(user_id);
    user.copy(vlr.user_id, sizeof vlr.user_id);
    vlr.record_id = record_id;
    const std::string_view text(description != nullptr ? std::string_view(description) : ownDescription);
    text.copy(vlr.description, sizeof vlr.description - 1);
    vlr.data.assign(data, data + record_length);
    const auto existing = std::find_if(vlrs.begin(), vlrs.end(), [&](const LASvlr& other) {
        return other.record_id == record_id &&
               std::memcmp(other.user_id, vlr.user_id, sizeof vlr.user_id) == 0;
    });
    if (existing == vlrs.end() || keep_existing) {
        offset_to_point_data += static_cast<U32>(LASvlr::headerSize + vlr.data.size());
        vlrs.push_back(std::move(vlr));
        ++number_of_variable_length_records;
        return true;
    }
    offset_to_point_data += static_cast<U32>(vlr.data.size() - existing->data.size());
    if (keep_description)
        std::memcpy(vlr.description, existing->description, sizeof vlr.description);
    *existing = std::move(vlr);
    return true;
}

BOOL LASheader::update_extra_bytes_vlr() {
    const auto& attributes = attributeList();
    if (attributes.empty())
        return true;
    constexpr std::size_t size = LASattribute::fileSize;
    std::unique_ptr<U8[]> data(new U8[size * attributes.size()]);
    for (std::size_t i = 0; i < attributes.size(); ++i) {
        const auto bytes = attributes[i].toBytes();
        std::memcpy(data.get() + size * i, bytes.data(), size);
    }
    return add_vlr(extraBytesUser, extraBytesRecord, static_cast<U16>(size * attributes.size()),
                   data.release());
}
