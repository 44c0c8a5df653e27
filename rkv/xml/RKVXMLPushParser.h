// RKVXMLPushParser: an event-driven XML parser over a byte buffer (expat underneath).
//
// Namespace processing is off (names arrive exactly as written, prefix included), external
// entities are never loaded, standard entities and character references are decoded, and expat's
// protection against entity amplification stays on. One parser parses once; not thread-safe.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "rkv/RKVExport.h"

namespace rkv {

// The attributes of a start tag, in document order. Valid only during the callback.
class RKV_EXPORT RKVXMLAttributes {
 public:
  explicit RKVXMLAttributes(const char* const* pairs) : pairs_(pairs) {}
  bool empty() const { return !pairs_ || !pairs_[0]; }
  size_t size() const {
    size_t count = 0;
    if (pairs_) {
      for (const char* const* p = pairs_; p[0]; p += 2)
        ++count;
    }
    return count;
  }
  template <typename F>
  void forEach(F&& f) const {  // f(std::string_view name, std::string_view value)
    if (!pairs_) return;
    for (const char* const* p = pairs_; p[0]; p += 2)
      f(std::string_view(p[0]), std::string_view(p[1]));
  }

 private:
  const char* const* pairs_;
};

// Why a parse failed.
struct RKV_EXPORT RKVXMLParseError {
  int64_t code = 0;  // expat's error code, or kDepthLimitExceeded
  std::string description;
  uint64_t line = 0;
  uint64_t column = 0;

  static constexpr int64_t kDepthLimitExceeded = 10000;
};

// Receives the parser's events. Text may arrive in several pieces; CDATA content arrives through
// foundCDATA. All strings are UTF-8 and valid only during the callback.
class RKV_EXPORT RKVXMLPushParserDelegate {
 public:
  virtual ~RKVXMLPushParserDelegate() = default;
  virtual void didStartElement(std::string_view name, const RKVXMLAttributes& attributes) = 0;
  virtual void didEndElement(std::string_view name) = 0;
  virtual void foundCharacters(std::string_view text) = 0;
  virtual void foundCDATA(std::string_view bytes) = 0;
  virtual void foundComment(std::string_view text) = 0;
  virtual void parseErrorOccurred(const RKVXMLParseError& error) = 0;
};

class RKV_EXPORT RKVXMLPushParser {
 public:
  // The default limit on element nesting. The reader's writers and comparisons are iterative or
  // bounded by it; real VAST documents nest about a dozen levels.
  static constexpr size_t kDefaultMaximumDepth = 1024;

  // Parses `bytes`, which must stay alive until parse() returns.
  explicit RKVXMLPushParser(std::string_view bytes);
  ~RKVXMLPushParser();
  RKVXMLPushParser(const RKVXMLPushParser&) = delete;
  RKVXMLPushParser& operator=(const RKVXMLPushParser&) = delete;

  // Documents nested deeper than this fail with RKVXMLParseError::kDepthLimitExceeded.
  void setMaximumDepth(size_t depth) { maximumDepth_ = depth; }
  // Whether comments are reported (off by default: reporting them costs time).
  void setReportsComments(bool reports) { reportsComments_ = reports; }

  // Runs the parser to the end of the bytes, sending events to the delegate (which must outlive
  // the call). Returns false after a fatal error, which the delegate has received as its last
  // event. A parser parses only once; a second call fails.
  bool parse(RKVXMLPushParserDelegate& delegate);

  // The fatal error of the parse, if there was one.
  const std::optional<RKVXMLParseError>& error() const { return error_; }

 private:
  struct Impl;
  std::string_view bytes_;
  size_t maximumDepth_ = kDefaultMaximumDepth;
  bool reportsComments_ = false;
  bool used_ = false;
  std::optional<RKVXMLParseError> error_;
};

}  // namespace rkv
