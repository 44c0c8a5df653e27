// The table from libcurl results to transport errors.
#include <cerrno>

#include <gtest/gtest.h>

#include "rkv/net/RKVURLError.h"
#include "rkv/net/internal/RKVCurlErrorMapping.h"

namespace rkv::internal {
namespace {

TEST(RKVCurlErrorMappingTest, EveryFailureKindHasItsPlatformCode) {
  struct Case {
    CURLcode result;
    long osErrno;
    bool tooLarge;
    int64_t code;
  };
  const Case cases[] = {
      {CURLE_OPERATION_TIMEDOUT, 0, false, RKVURLError::TimedOut},
      {CURLE_COULDNT_RESOLVE_HOST, 0, false, RKVURLError::CannotFindHost},
      {CURLE_COULDNT_CONNECT, ECONNREFUSED, false, RKVURLError::CannotConnectToHost},
      {CURLE_COULDNT_CONNECT, 0, false, RKVURLError::CannotConnectToHost},
      {CURLE_COULDNT_CONNECT, ENETUNREACH, false, RKVURLError::NotConnectedToInternet},
      {CURLE_COULDNT_CONNECT, EHOSTUNREACH, false, RKVURLError::NotConnectedToInternet},
      {CURLE_COULDNT_CONNECT, ENETDOWN, false, RKVURLError::NotConnectedToInternet},
      {CURLE_RECV_ERROR, ECONNRESET, false, RKVURLError::NetworkConnectionLost},
      {CURLE_SEND_ERROR, EPIPE, false, RKVURLError::NetworkConnectionLost},
      {CURLE_GOT_NOTHING, 0, false, RKVURLError::NetworkConnectionLost},
      {CURLE_PARTIAL_FILE, 0, false, RKVURLError::NetworkConnectionLost},
      {CURLE_WEIRD_SERVER_REPLY, 0, false, RKVURLError::BadServerResponse},
      {CURLE_TOO_MANY_REDIRECTS, 0, false, RKVURLError::HTTPTooManyRedirects},
      {CURLE_UNSUPPORTED_PROTOCOL, 0, false, RKVURLError::UnsupportedURL},
      {CURLE_URL_MALFORMAT, 0, false, RKVURLError::BadURL},
      {CURLE_FILESIZE_EXCEEDED, 0, false, RKVURLError::DataLengthExceedsMaximum},
      // Our own callbacks stop an answer past its limit; libcurl calls that a write error.
      {CURLE_WRITE_ERROR, 0, true, RKVURLError::DataLengthExceedsMaximum},
      {CURLE_WRITE_ERROR, 0, false, RKVURLError::Unknown},
      {CURLE_BAD_CONTENT_ENCODING, 0, false, RKVURLError::CannotDecodeContentData},
      {CURLE_PEER_FAILED_VERIFICATION, 0, false, RKVURLError::ServerCertificateUntrusted},
      {CURLE_SSL_CONNECT_ERROR, 0, false, RKVURLError::SecureConnectionFailed},
      {CURLE_SSL_CACERT_BADFILE, 0, false, RKVURLError::SecureConnectionFailed},
      {CURLE_OUT_OF_MEMORY, 0, false, RKVURLError::Unknown},
      {CURLE_OK, 0, false, RKVURLError::Unknown},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(static_cast<int>(c.result));
    EXPECT_EQ(urlErrorCodeForCurlResult(c.result, c.osErrno, c.tooLarge), c.code);
  }

  RKVError timedOut = urlErrorForCurlResult(CURLE_OPERATION_TIMEDOUT, 0, false);
  EXPECT_EQ(timedOut.domain, "NSURLErrorDomain");
  EXPECT_EQ(timedOut.localizedDescription, "The request timed out.");
  EXPECT_EQ(RKVURLError::errorWithCode(-12345).localizedDescription, "unknown error");
}

}  // namespace
}  // namespace rkv::internal
