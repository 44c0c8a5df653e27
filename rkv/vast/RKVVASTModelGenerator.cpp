#include "rkv/vast/RKVVASTModelGenerator.h"

#include <utility>
#include <vector>

#include "rkv/net/RKVURLError.h"
#include "rkv/net/RKVURLRequest.h"
#include "rkv/vast/RKVVASTParser.h"
#include "rkv/vast/errors/RKVVASTError.h"
#include "rkv/vast/errors/RKVVASTErrorCodes.h"

namespace rkv {

namespace {

RKVError downloadFailed() {
  return RKVVASTErrorCodes::errorWithCode(RKVVASTErrorCodes::UnableToDownloadXML);
}

void report(const RKVVASTErrorHandler& errorHandler, const RKVVASTError& error) {
  if (!errorHandler) return;
  std::vector<RKVVASTURL> errorURLs;
  errorHandler(error, errorURLs, std::nullopt);
}

}  // namespace

RKVVASTModelGenerator::RKVVASTModelGenerator() : RKVVASTModelGenerator(nullptr, false) {}

RKVVASTModelGenerator::RKVVASTModelGenerator(std::shared_ptr<RKVURLSession> sessionManager)
    : RKVVASTModelGenerator(std::move(sessionManager), false) {}

RKVVASTModelGenerator::RKVVASTModelGenerator(std::shared_ptr<RKVURLSession> sessionManager,
                                             bool isWrapper)
    : sessionManager_(sessionManager ? std::move(sessionManager) : RKVURLSession::sharedInstance()),
      isWrapper_(isWrapper) {}

RKVVASTParserResponse RKVVASTModelGenerator::generateVASTModelFromXML(
    std::optional<std::string_view> xml, const std::optional<RKVURL>& url, double timeout,
    const RKVVASTErrorHandler& errorHandler) const {
  if (timeout <= 0) {
    return RKVVASTParserResponse(
        nullptr, RKVVASTErrorCodes::errorWithCode(RKVVASTErrorCodes::ConnectionTimedOut));
  }
  if (xml) return transformXMLDatasIntoVASTModel(*xml, errorHandler);
  if (!url) {
    return RKVVASTParserResponse(nullptr,
                                 RKVVASTErrorCodes::errorWithCode(RKVVASTErrorCodes::NoXMLInput));
  }
  return downloadXMLAndGenerateVASTModel(*url, timeout, errorHandler);
}

RKVVASTParserResponse RKVVASTModelGenerator::generateVASTModelFromXML(
    std::optional<std::string_view> xml, const std::optional<RKVURL>& url, double timeout) const {
  return generateVASTModelFromXML(xml, url, timeout, {});
}

RKVVASTParserResponse RKVVASTModelGenerator::downloadXMLAndGenerateVASTModel(
    const RKVURL& url, double timeout, const RKVVASTErrorHandler& errorHandler) const {
  RKVURLSessionResponse response = sessionManager_->synchronousDataRequestWithURL(
      url, RKVURLRequest::UseProtocolCachePolicy, timeout);
  const std::optional<RKVError>& error = response.error;

  // The download errors are the wrapper forms whatever isWrapper says.
  if (error && error->code == RKVURLError::TimedOut) {
    const RKVVASTError timedOut = RKVVASTError::VAST_WRAPPER_ERROR_FETCH_TIMEOUT();
    report(errorHandler, timedOut);
    return RKVVASTParserResponse(nullptr, timedOut.error());
  }
  // The session answers with an error of its own domain when no exchange took place at all (no
  // provider, a provider that dropped the request, a call on the completion thread): that is
  // the case of no response at all.
  if (error && error->domain == RKVURLError::SessionDomain) {
    report(errorHandler, RKVVASTError::VAST_WRAPPER_ERROR());
    return RKVVASTParserResponse(nullptr, downloadFailed());
  }
  if (!error) {
    // Any status's body is parsed: a 404 or 500 page may well be a VAST document.
    if (response.data) return transformXMLDatasIntoVASTModel(*response.data, errorHandler);
    // No body and no error: neither model nor error; the caller treats that as its own failure.
    return RKVVASTParserResponse(nullptr, std::nullopt);
  }
  report(errorHandler, RKVVASTError::VAST_WRAPPER_ERROR_FETCH());
  return RKVVASTParserResponse(nullptr, downloadFailed());
}

RKVVASTParserResponse RKVVASTModelGenerator::transformXMLDatasIntoVASTModel(
    std::string_view bytes, const RKVVASTErrorHandler& errorHandler) const {
  return RKVVASTParser::parseXMLAndGenerateVASTObjectModel(bytes, isWrapper_, errorHandler);
}

}  // namespace rkv
