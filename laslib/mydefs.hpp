// SPDX-License-Identifier: Apache-2.0
#pragma once

/// The number types of LASlib under its names. Only those that the exporter and this folder use.
using CHAR = char;
using I8 = signed char;
using I16 = short;
using I32 = int;
using I64 = long long;
using U8 = unsigned char;
using U16 = unsigned short;
using U32 = unsigned int;
using U64 = unsigned long long;
using F64 = double;
using BOOL = bool;

static_assert(sizeof(I16) == 2 && sizeof(I32) == 4 && sizeof(I64) == 8 && sizeof(F64) == 8);
