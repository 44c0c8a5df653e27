// rkv inspect FILE|-|URL [--json] [--timeout S] [--wrapper]: reads one VAST answer (a file,
// standard input, or an http(s) URL downloaded as the library downloads wrappers) and shows its
// model: an outline, or with --json one JSON object. Exit status 0 when a model was built, 1
// when not, 2 when the input cannot be read. Why a download failed or why the bytes are not XML
// goes to the error stream.
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "tools/rkv/RKVCommandLine.h"
#include "tools/rkv/RKVInput.h"
#include "tools/rkv/RKVInspection.h"

namespace rkv::cli {

namespace {

struct InspectOptions {
  std::string source;
  bool json = false;
  bool wrapper = false;
  double timeout = 5;
};

int inspect(const InspectOptions& options, RKVCommandStreams& streams) {
  RKVInspection inspection;
  {
    std::string problem;
    std::optional<RKVInput> input = readInput(options.source, std::cin, problem);
    if (!input) {
      streams.err << "rkv inspect: " << problem << '\n';
      return kExitUsage;
    }
    inspection = input->url ? inspectURL(*input->url, options.wrapper, options.timeout)
                            : inspectBytes(*input->bytes, options.wrapper, options.timeout);
  }  // the bytes go here: only the model is written out
  if (options.json) {
    writeInspectionJSON(streams.out, inspection);
  } else {
    writeInspectionOutline(streams.out, inspection);
  }
  writeInspectionDiagnostics(streams.err, inspection, "rkv inspect: ");
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
  // Any number: 0 or less is passed on, and the generator refuses it (5031).
  sub.add_option("--timeout", options->timeout, "Seconds allowed for the download (default 5)")
      ->check(anySeconds());
  sub.add_flag("--wrapper", options->wrapper,
               "Read the document as the answer to a wrapper's ad tag (wrapper forms of errors)");
}

}  // namespace rkv::cli
