// Reads arbitrary bytes as a VAST document, as an ad call's answer and as a wrapper's, and writes
// what `rkv inspect` writes. Checks what must hold for every input: the JSON rendering is exactly
// one object that parses back, says "ok" exactly when there is a model, and indexes only ads it
// lists; the outline is written without failing.
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string_view>

#include <nlohmann/json.hpp>

#include "tools/rkv/RKVInspection.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  for (const bool isWrapper : {false, true}) {
    const rkv::cli::RKVInspection inspection = rkv::cli::inspectBytes(bytes, isWrapper);
    const auto& model = inspection.response.model();
    // Without a model there is always an error record to say why.
    check(model != nullptr || inspection.response.error().has_value());

    std::ostringstream json;
    rkv::cli::writeInspectionJSON(json, inspection);
    const nlohmann::json parsed = nlohmann::json::parse(json.str(), nullptr, false);
    check(!parsed.is_discarded() && parsed.is_object());
    check(parsed["ok"] == (model != nullptr));
    const size_t ads = parsed["ads"].size();
    check(ads == (model ? model->ads().size() : 0));
    for (const char* list : {"mainAds", "passbackAds"}) {
      for (const auto& index : parsed[list])
        check(index.is_number_unsigned() && index.get<size_t>() < ads);
    }

    std::ostringstream outline;
    rkv::cli::writeInspectionOutline(outline, inspection);
    check(!outline.str().empty());
  }
  return 0;
}
