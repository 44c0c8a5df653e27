// The one input rule of the subcommands that read a VAST answer (inspect, resolve): an argument
// is standard input ("-"), a URL (it starts with a scheme and "://"), or else a file name. A URL
// must parse and be http or https; a file or standard input must read to its end. Whatever
// fails is a usage problem (exit status 2) with a message naming the argument.
#pragma once

#include <cstddef>
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

// The most a file or standard input may hold: VAST answers are kilobytes, and an endless source
// (/dev/zero, `yes |`) must end in an error rather than take all memory.
inline constexpr size_t kMaximumInputBytes = 256 * 1024 * 1024;

// The input, or nullopt with `problem` set to a message such as "cannot read DIR: Is a
// directory", "cannot read /dev/zero: more than 268435456 bytes" or "not a valid URL:
// http://h:99999/x". Standard input is read from `standardInput`.
std::optional<RKVInput> readInput(const std::string& argument, std::istream& standardInput,
                                  std::string& problem, size_t maximumBytes = kMaximumInputBytes);

// Whether the two texts are equal when ASCII letters are compared without regard to case.
bool equalsIgnoringASCIICase(std::string_view a, std::string_view b);

}  // namespace rkv::cli
