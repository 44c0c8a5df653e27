// Header fields of requests and responses.
#include <gtest/gtest.h>

#include "rkv/net/RKVHTTPURLResponse.h"
#include "rkv/net/RKVURLRequest.h"

namespace rkv {
namespace {

const RKVURL kURL = *RKVURL::withString("https://ads.example.test/call");

TEST(RKVURLRequestTest, HeaderFieldsAreSetAddedAndRemovedWithoutRegardToCase) {
  RKVURLRequest request(kURL);
  EXPECT_EQ(request.HTTPMethod(), "GET");
  request.setValue("application/json", "Content-Type");
  request.setValue("text/plain", "content-type");
  request.addValue("gzip", "Accept-Encoding");
  request.addValue("br", "ACCEPT-ENCODING");
  request.setValue("", "X-Empty");
  EXPECT_EQ(request.allHTTPHeaderFields(),
            (RKVHTTPHeaderFields{
                {"Content-Type", "text/plain"}, {"Accept-Encoding", "gzip,br"}, {"X-Empty", ""}}));
  EXPECT_EQ(request.valueForHTTPHeaderField("CONTENT-TYPE"), "text/plain");
  EXPECT_EQ(request.valueForHTTPHeaderField("X-Empty"), "");
  EXPECT_FALSE(request.valueForHTTPHeaderField("Accept"));

  request.setValue(std::nullopt, "content-TYPE");
  EXPECT_FALSE(request.valueForHTTPHeaderField("Content-Type"));
  EXPECT_EQ(request.allHTTPHeaderFields().size(), 2u);

  request.setHTTPMethod("");
  EXPECT_EQ(request.HTTPMethod(), "GET");
  request.setHTTPBody(std::string());
  EXPECT_EQ(request.HTTPBody(), std::string());
}

TEST(RKVURLRequestTest, ResponsesJoinRepeatedFieldsUnderTheirFirstSpelling) {
  RKVHTTPURLResponse response(kURL, 200,
                              {{"Set-Cookie", "a=1"},
                               {"Content-Type", "text/xml"},
                               {"set-cookie", "b=2"},
                               {"SET-COOKIE", "c=3"}});
  EXPECT_EQ(response.allHeaderFields(),
            (RKVHTTPHeaderFields{{"Set-Cookie", "a=1, b=2, c=3"}, {"Content-Type", "text/xml"}}));
  EXPECT_EQ(response.valueForHTTPHeaderField("content-type"), "text/xml");
  EXPECT_FALSE(response.valueForHTTPHeaderField("Location"));
  EXPECT_EQ(response.statusCode(), 200);
  EXPECT_EQ(response.URL(), kURL);
}

}  // namespace
}  // namespace rkv
