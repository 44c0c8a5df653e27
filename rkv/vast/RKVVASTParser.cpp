#include "rkv/vast/RKVVASTParser.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "rkv/foundation/RKVUtils.h"
#include "rkv/vast/errors/RKVVASTError.h"
#include "rkv/vast/internal/RKVVASTModelBuilder.h"
#include "rkv/xml/RKVXMLDictionary.h"
#include "rkv/xml/RKVXMLDictionaryParser.h"

namespace rkv {

namespace {

constexpr int64_t kNoBytesCode = 5032;
constexpr const char* kVASTErrorDomain = "RKVVASTErrorDomain";

// Well-formed UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isValidUTF8(std::string_view bytes) {
  const auto* p = reinterpret_cast<const unsigned char*>(bytes.data());
  const auto* end = p + bytes.size();
  while (p < end) {
    // Documents are mostly ASCII: skip it eight bytes at a time.
    uint64_t word;
    while (end - p >= 8 && (std::memcpy(&word, p, 8), (word & 0x8080808080808080ULL) == 0))
      p += 8;
    if (p == end) break;
    const unsigned char c = *p;
    if (c < 0x80) {
      ++p;
      continue;
    }
    size_t length;
    unsigned char low = 0x80, high = 0xBF;  // the bounds of the second byte
    if (c >= 0xC2 && c <= 0xDF) {
      length = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
      length = 3;
      if (c == 0xE0) low = 0xA0;
      if (c == 0xED) high = 0x9F;
    } else if (c >= 0xF0 && c <= 0xF4) {
      length = 4;
      if (c == 0xF0) low = 0x90;
      if (c == 0xF4) high = 0x8F;
    } else {
      return false;
    }
    if (static_cast<size_t>(end - p) < length) return false;
    if (p[1] < low || p[1] > high) return false;
    for (size_t i = 2; i < length; ++i) {
      if ((p[i] & 0xC0) != 0x80) return false;
    }
    p += length;
  }
  return true;
}

// The document's text for the error handler: the bytes decoded as UTF-8 (absent when they are
// not UTF-8). Made on the first report only, so that a document without errors costs no copy.
class DocumentText {
 public:
  explicit DocumentText(std::string_view bytes) : bytes_(bytes) {}

  const std::optional<std::string>& text() {
    if (!decoded_) {
      decoded_ = true;
      if (isValidUTF8(bytes_)) text_ = std::string(bytes_);
    }
    return text_;
  }

 private:
  std::string_view bytes_;
  bool decoded_ = false;
  std::optional<std::string> text_;
};

void report(const RKVVASTErrorHandler& errorHandler, const RKVVASTError& error,
            std::vector<RKVVASTURL> errorURLs, const std::optional<std::string>& text) {
  if (errorHandler) errorHandler(error, errorURLs, text);
}

}  // namespace

RKVVASTParserResponse RKVVASTParser::parseXMLAndGenerateVASTObjectModel(
    std::optional<std::string_view> bytes, bool isWrapper,
    const RKVVASTErrorHandler& errorHandler) {
  if (!bytes) {
    report(errorHandler, RKVVASTError::VAST_VPAID_ERROR_FETCH(), {}, std::nullopt);
    return RKVVASTParserResponse(
        nullptr, RKVUtils::errorWithDomain(kVASTErrorDomain, kNoBytesCode, "Unexpected response."));
  }
  DocumentText document(*bytes);

  std::shared_ptr<RKVVASTModel> model;
  std::optional<RKVError> error;
  bool reported = false;
  {
    const RKVVASTInnerErrorHandler innerHandler = [&reported, &errorHandler, &document](
                                                      const RKVVASTError& modelError,
                                                      std::vector<RKVVASTURL>& errorURLs) {
      reported = true;
      if (errorHandler) errorHandler(modelError, errorURLs, document.text());
    };
    internal::RKVVASTModelBuilder builder(&error, innerHandler);
    RKVXMLDictionaryParser reader(RKVXMLDictionaryParser::sharedInstance());
    RKVXMLDictionaryPtr root;
    if (reader.options() == RKVXMLDictionaryParser::Options()) {
      // The tree's usual shape: each Ad element is read as soon as it ends and leaves the tree,
      // so that only one ad's elements are held at a time. (Other options would change what the
      // model reads; the whole tree is built for those.)
      root = reader.rkv_dictionaryWithData(
          *bytes, [&builder](const RKVXMLDictionary& rootElement, std::string_view key,
                             const RKVXMLDictionary& element) {
            if (key != "Ad" || !internal::RKVVASTModelBuilder::acceptsAdsAhead(rootElement))
              return false;
            builder.addAd(element);
            return true;
          });
    } else {
      root = reader.rkv_dictionaryWithData(*bytes);
    }
    if (!root) {
      const RKVVASTError failure =
          isWrapper ? RKVVASTError::XML_PARSING_ERROR_WRAPPER() : RKVVASTError::XML_PARSING_ERROR();
      report(errorHandler, failure, {}, document.text());
      return RKVVASTParserResponse(nullptr, failure.error());
    }
    model = builder.finish(*root);
  }  // the tree goes here
  if (!model) return RKVVASTParserResponse(nullptr, std::move(error));

  if (!model->versionIsSupported()) {
    const RKVVASTError unsupported = isWrapper
                                         ? RKVVASTError::VAST_VERSION_ERROR_NOT_SUPPORTED_WRAPPER()
                                         : RKVVASTError::VAST_VERSION_ERROR_NOT_SUPPORTED();
    if (!reported) report(errorHandler, unsupported, model->errorPixels(), document.text());
    return RKVVASTParserResponse(nullptr, unsupported.error());
  }

  if (model->ads().empty()) {
    // An ad call that found no ad fires nothing; a wrapper's answer without ads reports that it
    // is no VAST response. Both answer with the missing-inline-and-wrapper record, on purpose.
    if (isWrapper && !reported) {
      report(errorHandler, RKVVASTError::VAST_WRAPPER_ERROR_NOT_VAST_RESPONSE(),
             model->errorPixels(), document.text());
    }
    return RKVVASTParserResponse(
        std::move(model), RKVVASTError::VAST_VALIDATION_ERROR_MISSING_INLINE_AND_WRAPPER().error());
  }
  return RKVVASTParserResponse(std::move(model), std::nullopt);
}

RKVVASTParserResponse RKVVASTParser::parseXMLAndGenerateVASTObjectModel(
    std::optional<std::string_view> bytes) {
  return parseXMLAndGenerateVASTObjectModel(bytes, false, {});
}

}  // namespace rkv
