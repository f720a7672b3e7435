// SPDX-License-Identifier: Apache-2.0
#include "lasdefinitions.hpp"

#include <algorithm>
#include <cstring>
#include <string_view>
#include <utility>

namespace {

constexpr std::string_view extraBytesUser = "LASF_Spec";
constexpr U16 extraBytesRecord = 4;
constexpr std::string_view extraBytesDescription = "by LAStools of rapidlasso GmbH";

} // namespace

BOOL LASheader::update_extra_bytes_vlr() {
    if (attributeList().empty())
        return true;
    std::vector<U8> data;
    for (const LASattribute& attribute : attributeList()) {
        const auto bytes = attribute.toBytes();
        data.insert(data.end(), bytes.begin(), bytes.end());
    }
    const auto existing = std::find_if(vlrs.begin(), vlrs.end(), [](const LASvlr& vlr) {
        return vlr.record_id == extraBytesRecord &&
               std::string_view(vlr.user_id, extraBytesUser.size()) == extraBytesUser;
    });
    if (existing != vlrs.end()) {
        offset_to_point_data += static_cast<U32>(data.size() - existing->data.size());
        existing->data = std::move(data);
        return true;
    }
    LASvlr vlr;
    extraBytesUser.copy(vlr.user_id, sizeof vlr.user_id);
    vlr.record_id = extraBytesRecord;
    extraBytesDescription.copy(vlr.description, sizeof vlr.description);
    vlr.data = std::move(data);
    offset_to_point_data += static_cast<U32>(LASvlr::headerSize + vlr.data.size());
    vlrs.push_back(std::move(vlr));
    ++number_of_variable_length_records;
    return true;
}
