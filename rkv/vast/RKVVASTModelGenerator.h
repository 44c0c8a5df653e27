// RKVVASTModelGenerator: the entry point of the VAST manager: parses given bytes, or downloads a
// document synchronously (blocking the calling thread up to the time-out) and parses it. Keeps
// no state between calls; call it off the main thread and off the network thread.
#pragma once

#include <memory>
#include <optional>
#include <string_view>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVURL.h"
#include "rkv/net/RKVURLSession.h"
#include "rkv/vast/RKVVASTParserResponse.h"
#include "rkv/vast/model/RKVVASTErrorHandler.h"

namespace rkv {

class RKV_EXPORT RKVVASTModelGenerator {
 public:
  // On the shared session, not for a wrapper.
  RKVVASTModelGenerator();
  explicit RKVVASTModelGenerator(std::shared_ptr<RKVURLSession> sessionManager);
  // A null session means the shared one.
  RKVVASTModelGenerator(std::shared_ptr<RKVURLSession> sessionManager, bool isWrapper);

  const std::shared_ptr<RKVURLSession>& sessionManager() const { return sessionManager_; }
  bool isWrapper() const { return isWrapper_; }

  // In this order: timeout <= 0 gives 5031 "Connection timed out."; bytes are parsed (the URL is
  // ignored); neither bytes nor URL gives 10002 "No XML Input."; otherwise the URL is downloaded.
  RKVVASTParserResponse generateVASTModelFromXML(std::optional<std::string_view> xml,
                                                 const std::optional<RKVURL>& url, double timeout,
                                                 const RKVVASTErrorHandler& errorHandler) const;
  RKVVASTParserResponse generateVASTModelFromXML(std::optional<std::string_view> xml,
                                                 const std::optional<RKVURL>& url,
                                                 double timeout) const;
  // A synchronous GET with cache policy 0 and the time-out; transport failures become the
  // wrapper fetch errors; any HTTP status's body is parsed.
  RKVVASTParserResponse downloadXMLAndGenerateVASTModel(
      const RKVURL& url, double timeout, const RKVVASTErrorHandler& errorHandler) const;
  // RKVVASTParser with this generator's isWrapper.
  RKVVASTParserResponse transformXMLDatasIntoVASTModel(
      std::string_view bytes, const RKVVASTErrorHandler& errorHandler) const;

 private:
  std::shared_ptr<RKVURLSession> sessionManager_;
  bool isWrapper_ = false;
};

}  // namespace rkv
