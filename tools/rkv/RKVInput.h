// The one input rule of the subcommands that read a VAST answer (inspect, resolve): an argument
// is standard input ("-"), a URL (it starts with a scheme and "://"), or else a file name. A URL
// must parse and be http or https; a file or standard input must read to its end. Whatever
// fails is a usage problem (exit status 2) with a message naming the argument.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

#include "rkv/foundation/RKVURL.h"

namespace rkv::cli {

struct RKVInput {
  std::optional<std::string> bytes;  // read from a file or standard input
  std::optional<RKVURL> url;         // to download
};

// The input, or nullopt with `problem` set to a message such as "cannot read DIR: Is a
// directory" or "not a valid URL: http://h:99999/x". Standard input is read from `standardInput`.
std::optional<RKVInput> readInput(const std::string& argument, std::istream& standardInput,
                                  std::string& problem);

// Whether the two texts are equal when ASCII letters are compared without regard to case.
bool equalsIgnoringASCIICase(std::string_view a, std::string_view b);

}  // namespace rkv::cli
