#include "tools/rkv/RKVCommandLine.h"

#include <cstdio>
#include <exception>
#include <memory>
#include <ostream>

#include "rkv/log/RKVLog.h"
#include "rkv/log/RKVLogDefaultOutput.h"
#include "rkv/platform/RKVFrameworkInfo.h"

namespace rkv::cli {

namespace {

// Lets every level through: --verbose shows everything the library says.
class VerboseDataSource : public RKVLogDataSource {
 public:
  bool shouldLogMessageWithLevel(const RKVLog& /*log*/, int64_t /*level*/) override { return true; }
};

}  // namespace

RKVCommandLine::RKVCommandLine()
    : app_("rkv: inspect, resolve and play VAST ads with RKVCoreKit", "rkv") {
  app_.add_flag("--version", showVersion_, "Print the framework name, version and revision");
  app_.add_flag("-v,--verbose", verbose_,
                "Write the library's console log, every level, to stderr");
  app_.require_subcommand(0, 1);
}

CLI::App& RKVCommandLine::addSubcommand(const std::string& name, const std::string& description,
                                        Action action) {
  CLI::App* sub = app_.add_subcommand(name, description);
  actions_.emplace_back(sub, std::move(action));
  return *sub;
}

int RKVCommandLine::run(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
  try {
    try {
      app_.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
      return app_.exit(e, out, err) == 0 ? kExitSuccess : kExitUsage;
    }
    if (showVersion_) {
      const auto framework = RKVFrameworkInfo::sharedInstance();
      out << framework->frameworkName() << ' ' << framework->frameworkVersionString()
          << " (revision " << framework->frameworkRevisionString() << ")\n";
      return kExitSuccess;
    }
    if (verbose_) {
      const auto log = RKVLog::sharedInstance();
      log->setDataSource(std::make_shared<VerboseDataSource>());
      log->setDebugLoggingEnabled(true);
    }
    RKVCommandStreams streams{out, err};
    for (auto& [sub, action] : actions_) {
      if (sub->parsed()) return action(streams);
    }
    out << app_.help();
    return kExitSuccess;
  } catch (const std::exception& e) {
    err << "rkv: " << e.what() << '\n';
    return kExitFailure;
  }
}

int run(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
  RKVLog::sharedInstance()->setOutput(std::make_shared<RKVLogDefaultOutput>(stderr));
  RKVCommandLine commandLine;
  registerCommands(commandLine);
  return commandLine.run(argc, argv, out, err);
}

}  // namespace rkv::cli
