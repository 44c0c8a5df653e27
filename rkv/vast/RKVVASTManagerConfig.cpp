#include "rkv/vast/RKVVASTManagerConfig.h"

#include <fmt/format.h>

namespace rkv {

RKVVASTManagerConfig::RKVVASTManagerConfig(double requestTimeout, int64_t maximumWrappers,
                                           bool handleWrappersAdpods,
                                           bool strictWrapperFirstLevelImpressionValidation)
    : requestTimeout_(requestTimeout),
      maximumWrappers_(maximumWrappers),
      handleWrappersAdpods_(handleWrappersAdpods),
      strictWrapperFirstLevelImpressionValidation_(strictWrapperFirstLevelImpressionValidation) {}

std::string RKVVASTManagerConfig::description() const {
  auto yesNo = [](bool value) { return value ? "YES" : "NO"; };
  return fmt::format(
      "RKVVASTManagerConfig(requestTimeout: {:f}, maximumWrappers: {}, handleWrappersAdpods: {}, "
      "strictWrapperFirstLevelImpressionValidation: {})",
      requestTimeout_, maximumWrappers_, yesNo(handleWrappersAdpods_),
      yesNo(strictWrapperFirstLevelImpressionValidation_));
}

}  // namespace rkv
