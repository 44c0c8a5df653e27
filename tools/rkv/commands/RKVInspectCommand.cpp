// rkv inspect FILE|-|URL [--json] [--timeout S] [--wrapper]: reads one VAST answer (a file,
// standard input, or an http(s) URL downloaded as the library downloads wrappers) and shows its
// model: an outline, or with --json one JSON object. Exit status 0 when a model was built, 1
// when not, 2 when the input cannot be read.
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>

#include "rkv/foundation/RKVURL.h"

#include "tools/rkv/RKVCommandLine.h"
#include "tools/rkv/RKVInspection.h"

namespace rkv::cli {

namespace {

struct InspectOptions {
  std::string source;
  bool json = false;
  bool wrapper = false;
  double timeout = 5;
};

// An http or https URL (the scheme in any case); anything else names a file.
std::optional<RKVURL> sourceURL(const std::string& source) {
  std::optional<RKVURL> url = RKVURL::withString(source);
  if (!url || !url->scheme() || !url->hasAuthority()) return std::nullopt;
  std::string scheme(*url->scheme());
  for (char& c : scheme)
    c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  if (scheme != "http" && scheme != "https") return std::nullopt;
  return url;
}

// The whole stream; nullopt when reading fails.
std::optional<std::string> readAll(std::istream& in) {
  std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (in.bad()) return std::nullopt;
  return bytes;
}

int inspect(const InspectOptions& options, RKVCommandStreams& streams) {
  RKVInspection inspection;
  if (std::optional<RKVURL> url = sourceURL(options.source)) {
    inspection = inspectURL(*url, options.wrapper, options.timeout);
  } else {
    std::optional<std::string> bytes;
    if (options.source == "-") {
      bytes = readAll(std::cin);
    } else {
      std::ifstream file(options.source, std::ios::binary);
      if (file) bytes = readAll(file);
    }
    if (!bytes) {
      streams.err << "rkv inspect: cannot read " << options.source << '\n';
      return kExitUsage;
    }
    inspection = inspectBytes(*bytes, options.wrapper, options.timeout);
  }  // the bytes go here: only the model is written out
  if (options.json) {
    writeInspectionJSON(streams.out, inspection);
  } else {
    writeInspectionOutline(streams.out, inspection);
  }
  streams.out.flush();
  return inspection.response.model() ? kExitSuccess : kExitFailure;
}

}  // namespace

void registerRKVInspectCommand(RKVCommandLine& commandLine) {
  auto options = std::make_shared<InspectOptions>();
  CLI::App& sub = commandLine.addSubcommand(
      "inspect",
      "Read a VAST document (file, - for standard input, or http(s) URL) and show its ads",
      [options](RKVCommandStreams& streams) { return inspect(*options, streams); });
  sub.add_option("source", options->source, "VAST file, - for standard input, or http(s) URL")
      ->required();
  sub.add_flag("--json", options->json, "Print one JSON object instead of an outline");
  sub.add_option("--timeout", options->timeout, "Seconds allowed for the download (default 5)");
  sub.add_flag("--wrapper", options->wrapper,
               "Read the document as the answer to a wrapper's ad tag (wrapper forms of errors)");
}

}  // namespace rkv::cli
