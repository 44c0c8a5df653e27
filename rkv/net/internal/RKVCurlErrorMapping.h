// The one table from libcurl's results to the transport errors callers see.
#pragma once

#include <cstdint>

#include <curl/curl.h>

#include "rkv/foundation/RKVError.h"

namespace rkv::internal {

// The RKVURLError code for a failed transfer. `osErrno` is CURLINFO_OS_ERRNO (the last connect
// or socket error, 0 when unknown); `responseTooLarge` is set when our own callbacks stopped the
// transfer because the answer went past its size limit; `noStatusLine` when the transfer reached
// a server that answered without a status line (libcurl names that HTTP/0.9 answer an
// unsupported protocol, as it does a redirect to a refused scheme).
int64_t urlErrorCodeForCurlResult(CURLcode result, long osErrno, bool responseTooLarge,
                                  bool noStatusLine);

// The record for that code (domain "NSURLErrorDomain").
RKVError urlErrorForCurlResult(CURLcode result, long osErrno, bool responseTooLarge,
                               bool noStatusLine);

}  // namespace rkv::internal
