// Helpers over ordered header field lists: names compare without regard to ASCII case.
#pragma once

#include <string>
#include <string_view>

#include "rkv/net/RKVURLRequest.h"

namespace rkv::internal {

bool headerNamesEqual(std::string_view a, std::string_view b);
std::string lowercasedHeaderName(std::string_view name);

// The entry for `name`, or fields.end().
RKVHTTPHeaderFields::iterator findHeaderField(RKVHTTPHeaderFields& fields, std::string_view name);
RKVHTTPHeaderFields::const_iterator findHeaderField(const RKVHTTPHeaderFields& fields,
                                                    std::string_view name);

// True when the field can go on the wire: a name that is an HTTP token (no separator such as
// "(),/:;<=>?@[\]{}", no white space, control or non-ASCII byte) and a value without CR, LF or
// NUL.
bool isSendableHeaderField(std::string_view name, std::string_view value);

}  // namespace rkv::internal
