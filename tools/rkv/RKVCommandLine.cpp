#include "tools/rkv/RKVCommandLine.h"

#include <ostream>

#include <CLI/CLI.hpp>

#include "rkv/RKVBuildInfo.h"

namespace rkv::cli {

int run(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
  CLI::App app{"rkv: inspect, resolve and play VAST ads with RKVCoreKit", "rkv"};
  bool showVersion = false;
  app.add_flag("--version", showVersion, "Print the framework name, version and revision");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e, out, err) == 0 ? 0 : 2;
  }
  if (showVersion) {
    out << "RKVCoreKit " << build::kVersion << " (revision " << build::kRevision << ")\n";
    return 0;
  }
  out << app.help();
  return 0;
}

}  // namespace rkv::cli
