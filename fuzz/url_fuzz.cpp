// Parses arbitrary bytes as a URL and checks what must hold for every accepted text: the
// normalized text parses back to an equal URL, components are consistent with it, resolution
// against a base gives a stable URL, and rebuilding the query from its items gives a URL.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "rkv/foundation/RKVURL.h"
#include "rkv/foundation/RKVURLComponents.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

void checkStable(const rkv::RKVURL& url) {
  check(!url.absoluteString().empty());
  std::optional<rkv::RKVURL> again = rkv::RKVURL::withString(url.absoluteString());
  check(again.has_value() && *again == url);
  check(again->scheme() == url.scheme() && again->host() == url.host() &&
        again->port() == url.port() && again->path() == url.path() &&
        again->query() == url.query() && again->fragment() == url.fragment() &&
        again->user() == url.user() && again->password() == url.password());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view text(reinterpret_cast<const char*>(data), size);
  (void)rkv::RKVURL::removingPercentEncoding(text);
  std::optional<rkv::RKVURL> url = rkv::RKVURL::withString(text);
  if (!url) return 0;
  checkStable(*url);
  (void)url->pathComponents();
  (void)url->lastPathComponent();

  static const std::optional<rkv::RKVURL> base =
      rkv::RKVURL::withString("http://user@ads.example:8080/vast/a/b.xml?x=1#top");
  if (std::optional<rkv::RKVURL> resolved = rkv::RKVURL::withString(text, *base)) {
    checkStable(*resolved);
  }
  if (std::optional<rkv::RKVURL> resolved = rkv::RKVURL::withString("../c?y=[2]#f", *url)) {
    checkStable(*resolved);
  }

  rkv::RKVURLComponents components(*url);
  components.setQueryItems(url->queryItems());
  std::optional<rkv::RKVURL> rebuilt = components.URL();
  check(rebuilt.has_value());
  checkStable(*rebuilt);
  return 0;
}
