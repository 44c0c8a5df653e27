// Byte-to-character tables of single-byte encodings (windows-1252, ISO-8859-15, KOI8-R...), for
// documents declared in an encoding expat does not know itself. Thread-safe.
#pragma once

#include <array>
#include <string_view>

namespace rkv::internal {

// Entry b is the Unicode scalar value of byte b, or -1 when the encoding leaves b undefined (or
// maps it to something expat cannot take: a character above U+FFFF, a second byte for one
// character, a non-ASCII byte for an ASCII character).
using RKVSingleByteTable = std::array<int, 256>;

// The table of the named encoding (names as iconv knows them, any case), built once per name and
// kept for the life of the process; null when the name is unknown, the encoding is not a
// single-byte one (UTF-16, Shift_JIS, ISO-2022-JP...) or its ASCII range differs from ASCII
// where XML markup needs it. The table stays valid for the rest of the process.
const RKVSingleByteTable* singleByteEncodingTable(std::string_view name);

}  // namespace rkv::internal
