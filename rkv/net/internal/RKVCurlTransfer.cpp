#include "rkv/net/internal/RKVCurlTransfer.h"

#include <algorithm>
#include <cmath>
#include <string_view>
#include <utility>

#include "rkv/foundation/internal/RKVHostCall.h"
#include "rkv/foundation/internal/RKVText.h"
#include "rkv/net/RKVURLError.h"
#include "rkv/net/internal/RKVCurlErrorMapping.h"
#include "rkv/net/internal/RKVCurlSession.h"
#include "rkv/net/internal/RKVHeaderFields.h"
#include "rkv/net/internal/RKVRequestTimeout.h"

namespace rkv::internal {

namespace {

long milliseconds(double seconds) {
  return std::max(1L, static_cast<long>(std::llround(seconds * 1000.0)));
}

bool isHTTPScheme(const RKVURL& url) {
  auto scheme = url.scheme();
  return scheme &&
         (asciiEqualsIgnoringCase(*scheme, "http") || asciiEqualsIgnoringCase(*scheme, "https"));
}

// Optional white space around a field's name and value.
constexpr std::string_view kFieldWhiteSpace = " \t";

RKVURLSessionResponse failure(int64_t code) {
  return RKVURLSessionResponse{std::nullopt, std::nullopt, RKVURLError::errorWithCode(code)};
}

}  // namespace

RKVCurlTransfer::RKVCurlTransfer(std::weak_ptr<RKVCurlSession> session, int64_t identifier,
                                 RKVURLRequest request, Completion completion)
    : session_(std::move(session)),
      identifier_(identifier),
      request_(std::move(request)),
      completion_(std::move(completion)) {}

RKVCurlTransfer::~RKVCurlTransfer() = default;

void RKVCurlTransfer::resume() {
  if (resumed_.exchange(true)) return;
  // The completion may hold the last other reference to this transfer.
  auto self = shared_from_this();
  auto session = session_.lock();
  if (!session || !session->enqueueStart(self)) self->complete(failure(RKVURLError::Cancelled));
}

void RKVCurlTransfer::cancel() {
  if (cancelled_.exchange(true)) return;
  auto self = shared_from_this();
  auto session = session_.lock();
  // A session that is shutting down cancels whatever it still runs by itself; a transfer it
  // never saw is ended here.
  if (!session || !session->enqueueCancel(self)) self->complete(failure(RKVURLError::Cancelled));
}

void RKVCurlTransfer::complete(RKVURLSessionResponse response) {
  if (completed_.exchange(true)) return;
  Completion completion = std::move(completion_);
  completion_ = nullptr;
  if (!completion) return;
  // A completion's exception must not end the network thread (and with it the process).
  callHost("an HTTP transfer's completion", [&] { completion(std::move(response)); });
}

std::optional<RKVError> RKVCurlTransfer::prepare(const RKVURLSessionConfiguration& configuration,
                                                 RKVCurlEasy reused) {
  if (!isHTTPScheme(request_.URL())) return RKVURLError::errorWithCode(RKVURLError::UnsupportedURL);
  if (!isHTTPToken(request_.HTTPMethod())) return RKVURLError::errorWithCode(RKVURLError::Unknown);
  if (request_.cachePolicy() == RKVURLRequest::ReturnCacheDataDontLoad) {
    // Nothing is ever cached here, and this policy forbids loading.
    return RKVURLError::errorWithCode(RKVURLError::ResourceUnavailable);
  }

  if (reused) {
    curl_easy_reset(reused.get());
    easy_ = std::move(reused);
  } else {
    easy_.reset(curl_easy_init());
  }
  if (!easy_) return RKVURLError::errorWithCode(RKVURLError::Unknown);
  CURL* h = easy_.get();
  urlText_ = request_.URL().absoluteString();
  maximumBodyBytes_ = configuration.maximumResponseBytes;

  const double timeout = effectiveRequestTimeout(request_.timeoutInterval());
  const double connectTimeout = std::min(
      timeout, configuration.connectTimeout > 0.0 ? configuration.connectTimeout : timeout);

  CURLcode ok = CURLE_OK;
  auto set = [&](CURLoption option, auto value) {
    if (ok == CURLE_OK) ok = curl_easy_setopt(h, option, value);
  };
  set(CURLOPT_URL, urlText_.c_str());
  set(CURLOPT_PROTOCOLS_STR, "http,https");
  set(CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  set(CURLOPT_FOLLOWLOCATION, 1L);
  set(CURLOPT_MAXREDIRS, std::max(0L, configuration.maximumRedirects));
  set(CURLOPT_NOSIGNAL, 1L);
  set(CURLOPT_SSL_VERIFYPEER, 1L);
  set(CURLOPT_SSL_VERIFYHOST, 2L);
  if (configuration.certificateAuthorityFile) {
    set(CURLOPT_CAINFO, configuration.certificateAuthorityFile->c_str());
    set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
  }
  set(CURLOPT_TIMEOUT_MS, milliseconds(timeout));
  set(CURLOPT_CONNECTTIMEOUT_MS, milliseconds(connectTimeout));
  // Any encoding libcurl can decode is accepted and decoded, as the platform does; the size
  // limit applies to the decoded bytes.
  set(CURLOPT_ACCEPT_ENCODING, "");
  set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(maximumBodyBytes_));
  set(CURLOPT_WRITEFUNCTION, &RKVCurlTransfer::onBody);
  set(CURLOPT_WRITEDATA, static_cast<void*>(this));
  set(CURLOPT_HEADERFUNCTION, &RKVCurlTransfer::onHeader);
  set(CURLOPT_HEADERDATA, static_cast<void*>(this));
  set(CURLOPT_PRIVATE, static_cast<void*>(this));

  const std::string& method = request_.HTTPMethod();
  const auto& body = request_.HTTPBody();
  if (method == "GET") {
    set(CURLOPT_HTTPGET, 1L);
  } else if (method == "HEAD") {
    set(CURLOPT_NOBODY, 1L);
  } else {
    if (method != "POST") set(CURLOPT_CUSTOMREQUEST, method.c_str());
    if (method == "POST" || body) {
      // The request outlives the transfer's use of the body, so libcurl need not copy it.
      set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body ? body->size() : 0));
      set(CURLOPT_POSTFIELDS, body ? body->data() : "");
    }
  }

  curl_slist* list = nullptr;
  auto add = [&](const std::string& line) {
    curl_slist* grown = curl_slist_append(list, line.c_str());
    if (!grown) {
      ok = CURLE_OUT_OF_MEMORY;
      return;
    }
    list = grown;
  };
  for (const auto& [name, value] : request_.allHTTPHeaderFields()) {
    if (!isSendableHeaderField(name, value)) continue;
    // "Name;" is libcurl's way of sending a field with an empty value.
    add(value.empty() ? name + ";" : name + ": " + value);
  }
  // No "Expect: 100-continue" round trip before a body: the platform sends bodies at once.
  if (!request_.valueForHTTPHeaderField("Expect")) add("Expect:");
  requestHeaders_.reset(list);
  set(CURLOPT_HTTPHEADER, requestHeaders_.get());

  if (ok != CURLE_OK) return urlErrorForCurlResult(ok, 0, false, false);
  return std::nullopt;
}

size_t RKVCurlTransfer::onBody(char* data, size_t size, size_t count, void* self) {
  return static_cast<RKVCurlTransfer*>(self)->appendBody(data, size * count);
}

size_t RKVCurlTransfer::onHeader(char* data, size_t size, size_t count, void* self) {
  return static_cast<RKVCurlTransfer*>(self)->appendHeaderLine(data, size * count);
}

size_t RKVCurlTransfer::appendBody(const char* data, size_t length) {
  if (length > maximumBodyBytes_ - body_.size()) {
    responseTooLarge_ = true;
    return CURL_WRITEFUNC_ERROR;
  }
  body_.append(data, length);
  return length;
}

size_t RKVCurlTransfer::appendHeaderLine(const char* data, size_t length) {
  std::string_view line(data, length);
  if (line.starts_with("HTTP/")) {
    // A new answer begins (after a redirect or an interim 1xx): only the last one counts.
    responseHeaders_.clear();
    body_.clear();
    headerBytes_ = 0;
  }
  headerBytes_ += length;
  if (headerBytes_ > kMaximumHeaderBytes) {
    responseTooLarge_ = true;
    return 0;  // any count but `length` stops the transfer
  }
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r'))
    line.remove_suffix(1);
  if (line.empty() || line.starts_with("HTTP/")) return length;
  if (line.front() == ' ' || line.front() == '\t') {
    // A folded continuation of the previous field.
    if (!responseHeaders_.empty()) {
      responseHeaders_.back().second.append(" ").append(trimmed(line, kFieldWhiteSpace));
    }
    return length;
  }
  size_t colon = line.find(':');
  if (colon == std::string_view::npos || colon == 0) return length;
  responseHeaders_.emplace_back(std::string(trimmed(line.substr(0, colon), kFieldWhiteSpace)),
                                std::string(trimmed(line.substr(colon + 1), kFieldWhiteSpace)));
  return length;
}

RKVURLSessionResponse RKVCurlTransfer::finishedResponse(CURLcode result) {
  CURL* h = easy_.get();
  if (result != CURLE_OK) {
    long osErrno = 0;
    curl_easy_getinfo(h, CURLINFO_OS_ERRNO, &osErrno);
    long statusSeen = 0;
    curl_easy_getinfo(h, CURLINFO_RESPONSE_CODE, &statusSeen);
    return RKVURLSessionResponse{
        std::nullopt, std::nullopt,
        urlErrorForCurlResult(result, osErrno, responseTooLarge_, statusSeen == 0)};
  }
  long status = 0;
  curl_easy_getinfo(h, CURLINFO_RESPONSE_CODE, &status);
  char* effective = nullptr;
  curl_easy_getinfo(h, CURLINFO_EFFECTIVE_URL, &effective);
  // Without a redirect the effective URL is the one sent: no need to read it again.
  std::optional<RKVURL> url;
  if (effective && urlText_ != effective) url = RKVURL::withString(effective);
  RKVHTTPURLResponse response(url ? std::move(*url) : request_.URL(), status,
                              std::move(responseHeaders_));
  return RKVURLSessionResponse{std::move(body_), std::move(response), std::nullopt};
}

RKVCurlEasy RKVCurlTransfer::takeHandle() {
  RKVCurlEasy handle = std::move(easy_);
  releaseHandle();
  return handle;
}

void RKVCurlTransfer::releaseHandle() {
  easy_.reset();
  requestHeaders_.reset();
  body_ = std::string();
  responseHeaders_ = RKVHTTPHeaderFields();
}

}  // namespace rkv::internal
