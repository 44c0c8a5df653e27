#include "rkv/net/internal/RKVCurlErrorMapping.h"

#include <cerrno>

#include "rkv/net/RKVURLError.h"

namespace rkv::internal {

int64_t urlErrorCodeForCurlResult(CURLcode result, long osErrno, bool responseTooLarge,
                                  bool noStatusLine) {
  if (responseTooLarge) return RKVURLError::DataLengthExceedsMaximum;
  switch (result) {
    case CURLE_OK:
      // Not a failure; a caller asking anyway gets the unknown code rather than a crash.
      return RKVURLError::Unknown;

    case CURLE_OPERATION_TIMEDOUT:
      return RKVURLError::TimedOut;

    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      return RKVURLError::CannotFindHost;

    case CURLE_COULDNT_CONNECT:
      // No route at all means the device is off the network; a refusal or any other connect
      // failure means that host would not take the connection.
      if (osErrno == ENETUNREACH || osErrno == ENETDOWN || osErrno == EHOSTUNREACH) {
        return RKVURLError::NotConnectedToInternet;
      }
      return RKVURLError::CannotConnectToHost;

    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
    case CURLE_HTTP2_STREAM:
      return RKVURLError::NetworkConnectionLost;

    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_HTTP2:
    case CURLE_HTTP3:
      return RKVURLError::BadServerResponse;

    case CURLE_TOO_MANY_REDIRECTS:
      return RKVURLError::HTTPTooManyRedirects;

    case CURLE_UNSUPPORTED_PROTOCOL:
      return noStatusLine ? RKVURLError::BadServerResponse : RKVURLError::UnsupportedURL;
    case CURLE_URL_MALFORMAT:
      return RKVURLError::BadURL;

    case CURLE_FILESIZE_EXCEEDED:
      return RKVURLError::DataLengthExceedsMaximum;

    case CURLE_BAD_CONTENT_ENCODING:
      return RKVURLError::CannotDecodeContentData;

    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_INVALIDCERTSTATUS:
      return RKVURLError::ServerCertificateUntrusted;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ENGINE_NOTFOUND:
    case CURLE_SSL_ENGINE_SETFAILED:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_SSL_SHUTDOWN_FAILED:
    case CURLE_SSL_CRL_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
    case CURLE_SSL_CLIENTCERT:
    case CURLE_USE_SSL_FAILED:
      return RKVURLError::SecureConnectionFailed;

    case CURLE_ABORTED_BY_CALLBACK:
      return RKVURLError::Cancelled;

    default:
      return RKVURLError::Unknown;
  }
}

RKVError urlErrorForCurlResult(CURLcode result, long osErrno, bool responseTooLarge,
                               bool noStatusLine) {
  return RKVURLError::errorWithCode(
      urlErrorCodeForCurlResult(result, osErrno, responseTooLarge, noStatusLine));
}

}  // namespace rkv::internal
