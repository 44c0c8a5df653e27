// The one table from libcurl's results to the transport errors callers see.
#pragma once

#include <cstdint>

#include <curl/curl.h>

#include "rkv/foundation/RKVError.h"

namespace rkv::internal {

// The RKVURLError code for a failed transfer. `osErrno` is CURLINFO_OS_ERRNO (the last connect
// or socket error, 0 when unknown); `responseTooLarge` is set when our own callbacks stopped the
// transfer because the answer went past its size limit.
int64_t urlErrorCodeForCurlResult(CURLcode result, long osErrno, bool responseTooLarge);

// The record for that code (domain "NSURLErrorDomain").
RKVError urlErrorForCurlResult(CURLcode result, long osErrno, bool responseTooLarge);

}  // namespace rkv::internal
