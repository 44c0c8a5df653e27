// The callbacks through which the VAST model reports what is missing or wrong in a document.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "rkv/vast/errors/RKVVASTError.h"
#include "rkv/vast/model/RKVVASTURL.h"

namespace rkv {

// Receives an error and a fresh list of error URLs that the receiver may add to (the reader of
// an ad fills it with the ad's Error URLs before passing it on). An empty function does nothing.
using RKVVASTInnerErrorHandler =
    std::function<void(const RKVVASTError& error, std::vector<RKVVASTURL>& errorURLs)>;

// The same, with the text of the VAST document the error was found in (absent when there is
// none, e.g. a download that failed). An empty function does nothing.
using RKVVASTErrorHandler =
    std::function<void(const RKVVASTError& error, std::vector<RKVVASTURL>& errorURLs,
                       const std::optional<std::string>& vastText)>;

}  // namespace rkv
