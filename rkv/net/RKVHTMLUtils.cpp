#include "rkv/net/RKVHTMLUtils.h"

#include <algorithm>

#include "rkv/foundation/internal/RKVText.h"

namespace rkv {

namespace {

// `needle` is lower case.
bool containsIgnoringASCIICase(std::string_view haystack, std::string_view needle) {
  auto it = std::search(haystack.begin(), haystack.end(), needle.begin(), needle.end(),
                        [](char a, char b) { return internal::asciiLower(a) == b; });
  return it != haystack.end();
}

}  // namespace

bool RKVHTMLUtils::containsMRAIDBridgeSingleQuoteInScript(std::string_view script) {
  return containsIgnoringASCIICase(script, "'mraid.js'");
}

bool RKVHTMLUtils::containsMRAIDBridgeDoubleQuoteInScript(std::string_view script) {
  return containsIgnoringASCIICase(script, "\"mraid.js\"");
}

bool RKVHTMLUtils::containsClosingHEADTagInScript(std::string_view script) {
  return containsIgnoringASCIICase(script, "</head>");
}

bool RKVHTMLUtils::containsOpeningBODYTagInScript(std::string_view script) {
  return containsIgnoringASCIICase(script, "<body");
}

bool RKVHTMLUtils::containsOpeningHTMLTagInScript(std::string_view script) {
  return containsIgnoringASCIICase(script, "<html");
}

bool RKVHTMLUtils::containsClosingHTMLTagInScript(std::string_view script) {
  return containsIgnoringASCIICase(script, "</html>");
}

}  // namespace rkv
