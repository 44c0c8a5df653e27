// rkv errors [CODE...]: the VAST error catalogue as JSON, all of it or the errors whose VAST or
// vendor code is one of the codes given.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <ostream>
#include <vector>

#include <nlohmann/json.hpp>

#include "rkv/vast/errors/RKVVASTError.h"

#include "tools/rkv/RKVCommandLine.h"

namespace rkv::cli {

void registerRKVErrorsCommand(RKVCommandLine& commandLine) {
  auto codes = std::make_shared<std::vector<int64_t>>();
  CLI::App& sub = commandLine.addSubcommand(
      "errors", "List the VAST error catalogue (name, VAST code, vendor code, description)",
      [codes](RKVCommandStreams& streams) {
        nlohmann::ordered_json list = nlohmann::ordered_json::array();
        for (const RKVVASTError& error : RKVVASTError::catalogue()) {
          const bool wanted =
              codes->empty() || std::any_of(codes->begin(), codes->end(), [&error](int64_t code) {
                return code == error.VASTCode() || code == error.vireoCode();
              });
          if (!wanted) continue;
          list.push_back({{"name", error.errorName().value_or("")},
                          {"VASTCode", error.VASTCode()},
                          {"vireoCode", error.vireoCode()},
                          {"description", error.errorDescription().value_or("")}});
        }
        if (list.empty()) {
          streams.err << "rkv errors: no VAST error has one of these codes\n";
          return kExitFailure;
        }
        streams.out << list.dump(2) << '\n';
        return kExitSuccess;
      });
  sub.add_option("code", *codes, "VAST codes (e.g. 301) or vendor codes (e.g. 301003)");
}

}  // namespace rkv::cli
