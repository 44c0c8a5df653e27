#include "rkv/vast/RKVVASTParser.h"

#include <string>
#include <utility>
#include <vector>

#include "rkv/foundation/internal/RKVText.h"
#include "rkv/vast/errors/RKVVASTError.h"
#include "rkv/vast/errors/RKVVASTErrorCodes.h"
#include "rkv/vast/internal/RKVVASTModelBuilder.h"
#include "rkv/xml/RKVXMLDictionary.h"
#include "rkv/xml/RKVXMLDictionaryParser.h"

namespace rkv {

namespace {

// The document's text for the error handler: the bytes decoded as UTF-8 (absent when they are
// not UTF-8). Made on the first report only, so that a document without errors costs no copy.
class DocumentText {
 public:
  explicit DocumentText(std::string_view bytes) : bytes_(bytes) {}

  const std::optional<std::string>& text() {
    if (!decoded_) {
      decoded_ = true;
      if (internal::isValidUTF8(bytes_)) text_ = std::string(bytes_);
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
        nullptr, RKVVASTErrorCodes::errorWithCode(RKVVASTErrorCodes::UnexpectedResponse));
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
