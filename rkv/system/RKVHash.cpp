#include "rkv/system/RKVHash.h"

#include "rkv/log/RKVLog.h"
#include "rkv/system/internal/RKVDigest.h"

namespace rkv {

std::string RKVHash::md5(std::string_view text) {
  if (text.empty()) return std::string();
  auto digest = internal::digestOf(internal::DigestAlgorithm::md5, text);
  if (!digest) {
    RKVLog::sharedInstance()->logError("MD5 is not available from OpenSSL.");
    return std::string();
  }
  return internal::lowerHex(*digest);
}

}  // namespace rkv
