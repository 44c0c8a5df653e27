// RKVHTMLUtils: stateless containment tests on an HTML document or script. Thread-safe.
#pragma once

#include <string_view>

#include "rkv/RKVExport.h"

namespace rkv {

// Each test is true when its text occurs anywhere in `script`, compared without regard to the
// case of ASCII letters.
class RKV_EXPORT RKVHTMLUtils {
 public:
  // 'mraid.js' in single quotes.
  static bool containsMRAIDBridgeSingleQuoteInScript(std::string_view script);
  // "mraid.js" in double quotes.
  static bool containsMRAIDBridgeDoubleQuoteInScript(std::string_view script);
  // </head>
  static bool containsClosingHEADTagInScript(std::string_view script);
  // <body (any attributes may follow)
  static bool containsOpeningBODYTagInScript(std::string_view script);
  // <html (any attributes may follow)
  static bool containsOpeningHTMLTagInScript(std::string_view script);
  // </html>
  static bool containsClosingHTMLTagInScript(std::string_view script);
};

}  // namespace rkv
