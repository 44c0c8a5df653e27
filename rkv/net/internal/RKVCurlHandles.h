// One move-only owner per libcurl handle type, and the process's one-time libcurl set-up.
#pragma once

#include <memory>

#include <curl/curl.h>

namespace rkv::internal {

struct RKVCurlEasyDeleter {
  void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};
struct RKVCurlMultiDeleter {
  void operator()(CURLM* handle) const noexcept { curl_multi_cleanup(handle); }
};
struct RKVCurlSlistDeleter {
  void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};

using RKVCurlEasy = std::unique_ptr<CURL, RKVCurlEasyDeleter>;
using RKVCurlMulti = std::unique_ptr<CURLM, RKVCurlMultiDeleter>;
using RKVCurlSlist = std::unique_ptr<curl_slist, RKVCurlSlistDeleter>;

// curl_global_init, once per process, before any handle is made; true when it succeeded.
// libcurl is never cleaned up globally: a provider may live until the process ends.
bool curlGlobalInit();

}  // namespace rkv::internal
