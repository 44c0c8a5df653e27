// RKVURLSessionResponse: what one HTTP exchange ended with. A plain record; not synchronized.
#pragma once

#include <optional>
#include <string>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVError.h"
#include "rkv/net/RKVHTTPURLResponse.h"

namespace rkv {

// A transport failure has `error` and neither `data` nor `response`. An answer, whatever its
// status (404 and 500 included), has `response` and `data` (present, possibly empty) and no
// `error`.
struct RKV_EXPORT RKVURLSessionResponse {
  // The body's bytes, after content decoding; not necessarily text.
  std::optional<std::string> data;
  std::optional<RKVHTTPURLResponse> response;
  std::optional<RKVError> error;
};

}  // namespace rkv
