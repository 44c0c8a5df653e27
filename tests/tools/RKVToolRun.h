// Runs the rkv tool in-process, as its main() would, with a given standard input, and keeps what
// it wrote and its exit status.
#pragma once

#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tools/rkv/RKVCommandLine.h"

namespace rkv::test {

struct RKVToolResult {
  int status;
  std::string out, err;
  // The one JSON value printed; fails the test when the output is not one.
  nlohmann::ordered_json json() const {
    auto json = nlohmann::ordered_json::parse(out, nullptr, false);
    EXPECT_FALSE(json.is_discarded()) << out.substr(0, 200);
    return json;
  }
};

// `rkv ARGS...` with `input` as standard input and `out` as standard output (a string when
// null).
inline RKVToolResult runTool(std::vector<std::string> args, const std::string& input = "",
                             std::ostream* out = nullptr) {
  args.insert(args.begin(), "rkv");
  std::vector<const char*> argv;
  for (const auto& arg : args)
    argv.push_back(arg.c_str());
  std::istringstream in(input);
  std::streambuf* const standardInput = std::cin.rdbuf(in.rdbuf());
  std::ostringstream text, err;
  const int status = cli::run(static_cast<int>(argv.size()), argv.data(), out ? *out : text, err);
  std::cin.rdbuf(standardInput);
  return {status, text.str(), err.str()};
}

}  // namespace rkv::test
