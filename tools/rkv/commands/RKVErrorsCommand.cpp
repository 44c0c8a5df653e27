// rkv errors [CODE...]: the VAST error catalogue as JSON, all of it or the errors whose VAST or
// vendor code is one of the codes given.
#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "rkv/vast/errors/RKVVASTError.h"

#include "tools/rkv/RKVCommandLine.h"

namespace rkv::cli {

void registerRKVErrorsCommand(RKVCommandLine& commandLine) {
  auto texts = std::make_shared<std::vector<std::string>>();
  CLI::App& sub = commandLine.addSubcommand(
      "errors", "List the VAST error catalogue (name, VAST code, vendor code, description)",
      [texts](RKVCommandStreams& streams) {
        std::vector<int64_t> codes;
        for (const std::string& text : *texts)
          codes.push_back(*decimalInteger(text));  // checked when parsed
        // Which codes some error has, so that each one that matches nothing can be named.
        std::vector<bool> matched(codes.size(), false);
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        for (const RKVVASTError& error : RKVVASTError::catalogue()) {
          bool wanted = codes.empty();
          for (size_t i = 0; i < codes.size(); ++i) {
            if (codes[i] != error.VASTCode() && codes[i] != error.vireoCode()) continue;
            matched[i] = true;
            wanted = true;
          }
          if (!wanted) continue;
          list.push_back({{"name", error.errorName().value_or("")},
                          {"VASTCode", error.VASTCode()},
                          {"vireoCode", error.vireoCode()},
                          {"description", error.errorDescription().value_or("")}});
        }
        // A code that matches nothing is named, and fails the command, even beside codes that
        // do match: a mistyped code must not pass for a short list.
        bool unknown = false;
        for (size_t i = 0; i < codes.size(); ++i) {
          if (matched[i]) continue;
          streams.err << "rkv errors: no VAST error has the code " << (*texts)[i] << '\n';
          unknown = true;
        }
        if (!list.empty()) streams.out << list.dump(2) << '\n';
        return unknown ? kExitFailure : kExitSuccess;
      });
  sub.add_option("code", *texts, "VAST codes (e.g. 301) or vendor codes (e.g. 301003)")
      ->type_name("CODE")
      ->check(CLI::Validator(
          [](std::string& text) -> std::string {
            return decimalInteger(text) ? "" : "must be a whole number in decimal";
          },
          ""));
}

}  // namespace rkv::cli
