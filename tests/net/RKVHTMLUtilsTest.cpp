#include <gtest/gtest.h>

#include "rkv/net/RKVHTMLUtils.h"

namespace rkv {
namespace {

TEST(RKVHTMLUtilsTest, FindsEachMarkerInAnyCase) {
  using Check = bool (*)(std::string_view);
  struct Case {
    const char* name;
    Check test;
    std::vector<std::string_view> found, notFound;
  };
  const Case cases[] = {
      {"single-quoted bridge",
       &RKVHTMLUtils::containsMRAIDBridgeSingleQuoteInScript,
       {"<script src='mraid.js'></script>", "x='MRAID.JS'"},
       {"<script src=\"mraid.js\"></script>", "'mraid.js", "mraid.js'", "'mraid_js'", ""}},
      {"double-quoted bridge",
       &RKVHTMLUtils::containsMRAIDBridgeDoubleQuoteInScript,
       {"<script src=\"mraid.js\"></script>", "\"Mraid.Js\""},
       {"<script src='mraid.js'></script>", "\"mraid.jsx\"", ""}},
      {"</head>",
       &RKVHTMLUtils::containsClosingHEADTagInScript,
       {"<head></head>", "</HEAD>", "x</HeAd>y"},
       {"</head >", "<head>", "< /head>", ""}},
      {"<body",
       &RKVHTMLUtils::containsOpeningBODYTagInScript,
       {"<body>", "<BODY class=x>", "<bodyx"},
       {"</body>", "< body>", "<bod", ""}},
      {"<html",
       &RKVHTMLUtils::containsOpeningHTMLTagInScript,
       {"<html lang=en>", "<!DOCTYPE html><HTML>"},
       {"</html>", "<htm", ""}},
      {"</html>",
       &RKVHTMLUtils::containsClosingHTMLTagInScript,
       {"</html>", "</HTML>\n"},
       {"<html>", "</html", ""}},
  };
  for (const Case& c : cases) {
    for (std::string_view text : c.found)
      EXPECT_TRUE(c.test(text)) << c.name << ": " << text;
    for (std::string_view text : c.notFound)
      EXPECT_FALSE(c.test(text)) << c.name << ": " << text;
  }
}

}  // namespace
}  // namespace rkv
