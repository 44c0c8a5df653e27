#include "tools/rkv/RKVCommandLine.h"

#include <cctype>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <system_error>

#include "rkv/log/RKVLog.h"
#include "rkv/log/RKVLogDefaultOutput.h"
#include "rkv/platform/RKVFrameworkInfo.h"
#include "rkv/system/RKVUserDefaults.h"

namespace rkv::cli {

namespace {

// Lets every level through: --verbose shows everything the library says.
class VerboseDataSource : public RKVLogDataSource {
 public:
  bool shouldLogMessageWithLevel(const RKVLog& /*log*/, int64_t /*level*/) override { return true; }
};

// The whole text is a finite number (strtod's forms, white space around refused).
std::optional<double> numberValue(const std::string& text) {
  if (text.empty() || std::isspace(static_cast<unsigned char>(text.front())) ||
      std::isspace(static_cast<unsigned char>(text.back())))
    return std::nullopt;
  char* end = nullptr;
  errno = 0;
  const double value = std::strtod(text.c_str(), &end);
  if (end != text.c_str() + text.size() || errno == ERANGE || !std::isfinite(value))
    return std::nullopt;
  return value;
}

// Runs the command, then checks that what it wrote reached `out`.
int runChecked(const std::function<int()>& command, std::ostream& out, std::ostream& err) {
  const int status = command();
  out.flush();
  if (out) return status;
  err << "rkv: cannot write the output\n";
  return status == kExitSuccess ? kExitFailure : status;
}

}  // namespace

CLI::Validator positiveSeconds() {
  return CLI::Validator(
      [](std::string& text) -> std::string {
        const std::optional<double> value = numberValue(text);
        return value && *value > 0 ? "" : "must be a number of seconds greater than 0";
      },
      "SECONDS>0");
}

CLI::Validator anySeconds() {
  return CLI::Validator(
      [](std::string& text) -> std::string {
        return numberValue(text) ? "" : "must be a number of seconds";
      },
      "SECONDS");
}

CLI::Validator nonNegativeSeconds() {
  return CLI::Validator(
      [](std::string& text) -> std::string {
        const std::optional<double> value = numberValue(text);
        return value && *value >= 0 ? "" : "must be a number of seconds, 0 or more";
      },
      "SECONDS>=0");
}

CLI::Validator numberWithin(double least, double most, std::string wanted) {
  return CLI::Validator(
      [least, most, message = "must be " + wanted](std::string& text) -> std::string {
        const std::optional<double> value = numberValue(text);
        return value && *value >= least && *value <= most ? "" : message;
      },
      wanted);
}

CLI::Validator fraction() {
  return CLI::Validator(
      [](std::string& text) -> std::string {
        const std::optional<double> value = numberValue(text);
        return value && *value >= 0 && *value <= 1 ? "" : "must be a number from 0 to 1";
      },
      "0..1");
}

std::optional<int64_t> decimalInteger(std::string_view text) {
  const char* begin = text.data();
  const char* const end = begin + text.size();
  if (begin != end && *begin == '+') ++begin;
  int64_t value = 0;
  const auto [stop, error] = std::from_chars(begin, end, value, 10);
  if (begin == end || error != std::errc() || stop != end) return std::nullopt;
  return value;
}

CLI::Validator nonNegativeCount() {
  return CLI::Validator(
      [](std::string& text) -> std::string {
        const bool digits =
            !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
        const std::optional<int64_t> value = digits ? decimalInteger(text) : std::nullopt;
        if (!value) return "must be a whole number, 0 or more";
        // The conversion that follows would read 010 as octal 8, and 08 not at all.
        text = std::to_string(*value);
        return "";
      },
      "N>=0");
}

RKVCommandLine::RKVCommandLine()
    : app_("rkv: inspect, resolve and play VAST ads with RKVCoreKit", "rkv") {
  app_.add_flag("--version", showVersion_, "Print the framework name, version and revision");
  app_.add_flag("-v,--verbose", verbose_,
                "Write the library's console log, every level, to stderr");
  app_.add_option("--data-dir", dataDir_,
                  "Folder of the tool's user defaults (defaults.sqlite: the pending pixels) and "
                  "of its lock file rkv.lock; default: the library's own place, "
                  "$XDG_DATA_HOME/rkvcore/<application>/")
      ->type_name("DIR")
      // An empty value (an unset variable, say) must not fall back to the default place: the
      // command would quietly use another store than the one asked for.
      ->check(CLI::Validator(
          [](std::string& text) { return text.empty() ? std::string("must not be empty") : ""; },
          ""));
  app_.require_subcommand(0, 1);
  // Global options may also follow the subcommand: rkv inspect --verbose URL.
  app_.fallthrough();
}

std::string RKVCommandLine::userDefaultsPath() const {
  if (dataDir_.empty()) return RKVUserDefaults::defaultPath();
  return (std::filesystem::path(dataDir_) / "defaults.sqlite").string();
}

std::string RKVCommandLine::dataDirectory() const {
  const std::filesystem::path folder = std::filesystem::path(userDefaultsPath()).parent_path();
  return folder.empty() ? std::string(".") : folder.string();
}

CLI::App& RKVCommandLine::addSubcommand(const std::string& name, const std::string& description,
                                        Action action) {
  CLI::App* sub = app_.add_subcommand(name, description);  // inherits the fall-through
  actions_.emplace_back(sub, std::move(action));
  return *sub;
}

int RKVCommandLine::run(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
  return runChecked([&] { return runUnchecked(argc, argv, out, err); }, out, err);
}

int RKVCommandLine::runUnchecked(int argc, const char* const* argv, std::ostream& out,
                                 std::ostream& err) {
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
    // The library's standard defaults live where the tool keeps its own. This cannot fail in
    // the tool's process (nothing used them yet); a process that runs the tool more than once
    // keeps its first choice there, and the subcommands open userDefaultsPath() themselves.
    if (!dataDir_.empty()) RKVUserDefaults::setStandardPath(userDefaultsPath());
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
  // A reader that went away (rkv errors | head -1) makes a failed write, which runChecked
  // reports, rather than a SIGPIPE that would end the tool with no word.
  std::signal(SIGPIPE, SIG_IGN);
  RKVLog::sharedInstance()->setOutput(std::make_shared<RKVLogDefaultOutput>(stderr));
  RKVCommandLine commandLine;
  registerCommands(commandLine);
  return commandLine.run(argc, argv, out, err);
}

}  // namespace rkv::cli
