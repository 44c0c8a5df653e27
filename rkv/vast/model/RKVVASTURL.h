// RKVVASTURL: one URL of a VAST document (an Impression, Error, ad-tag, click or resource URL).
// An immutable value; safe to copy and share between threads.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVURL.h"
#include "rkv/xml/RKVXMLDictionary.h"

namespace rkv {

class RKV_EXPORT RKVVASTURL {
 public:
  explicit RKVVASTURL(RKVURL url) : url_(std::move(url)) {}

  // A value holding the URL.
  static RKVVASTURL withURL(RKVURL url) { return RKVVASTURL(std::move(url)); }
  // nullopt when the text is empty or white space only (RKVUtils::stringIsEmptyOrWhiteSpace) or
  // when the URL parser rejects it.
  static std::optional<RKVVASTURL> withString(std::string_view string);
  // A string of the tree is read with withString, an element with withString of its "__text"
  // string; anything else (absent, a list, an element without text or with interrupted text)
  // gives nullopt.
  static std::optional<RKVVASTURL> fromXML(const RKVXMLValue& value);
  // withString of the text when there is one (a "text of a child" look-up), else nullopt.
  static std::optional<RKVVASTURL> fromXML(const std::string* text);

  const RKVURL& url() const& { return url_; }
  RKVURL url() && { return std::move(url_); }

  bool isEqualToVASTURL(const RKVVASTURL& other) const { return url_ == other.url_; }
  friend bool operator==(const RKVVASTURL& a, const RKVVASTURL& b) { return a.isEqualToVASTURL(b); }

  // "RKVVASTURL(url=<absolute string>)".
  std::string description() const;

 private:
  RKVURL url_;
};

}  // namespace rkv
