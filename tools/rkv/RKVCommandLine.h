// The rkv command line: parses arguments and runs one subcommand.
#pragma once

#include <iosfwd>

namespace rkv::cli {

// Runs the tool with the given arguments, writing to out and err. Returns the exit status:
// 0 success, 1 the command ran but failed, 2 a usage or input problem.
int run(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

}  // namespace rkv::cli
