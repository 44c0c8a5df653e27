// RKVHash: digests of texts (MD5 through OpenSSL's EVP interface). Stateless; thread-safe.
#pragma once

#include <string>
#include <string_view>

#include "rkv/RKVExport.h"

namespace rkv {

class RKV_EXPORT RKVHash {
 public:
  // The MD5 digest of the text's bytes (UTF-8) as 32 lower-case hexadecimal digits. The empty
  // text gives the empty text. Where OpenSSL offers no MD5 (a FIPS-only configuration) the
  // failure is logged at error level and the result is the empty text.
  static std::string md5(std::string_view text);
};

}  // namespace rkv
