#include "tools/rkv/RKVInspection.h"

#include <ostream>
#include <string>
#include <unordered_map>
#include <utility>

#include <nlohmann/json.hpp>

#include "rkv/net/RKVURLSession.h"
#include "rkv/vast/RKVVASTModelGenerator.h"
#include "rkv/vast/model/RKVVASTAdWrapper.h"
#include "rkv/xml/RKVXMLDictionaryParser.h"

#include "tools/rkv/RKVAdJSON.h"
#include "tools/rkv/RKVShownText.h"

namespace rkv::cli {

namespace {

using Json = nlohmann::ordered_json;

RKVVASTErrorHandler recorder(RKVInspection& inspection) {
  return [&inspection](const RKVVASTError& error, std::vector<RKVVASTURL>& errorURLs,
                       const std::optional<std::string>& /*vastText*/) {
    inspection.reported.push_back({error, errorURLs});
  };
}

// The expat error of the bytes, when the reading reported an XML parsing error and they are
// indeed not XML (a well-formed Ad without InLine is reported the same way).
std::optional<RKVXMLParseError> xmlErrorOf(const RKVInspection& inspection,
                                           std::optional<std::string_view> bytes) {
  if (!bytes) return std::nullopt;
  bool parsingErrorReported = false;
  for (const RKVReportedError& report : inspection.reported) {
    parsingErrorReported = parsingErrorReported ||
                           report.error == RKVVASTError::XML_PARSING_ERROR() ||
                           report.error == RKVVASTError::XML_PARSING_ERROR_WRAPPER();
  }
  if (!parsingErrorReported) return std::nullopt;
  return xmlParseError(*bytes);
}

// Positions of the model's ads, for the main and passback lists.
Json indicesJSON(const RKVVASTModel::Ads& ads,
                 const std::unordered_map<const RKVVASTAd*, size_t>& positions) {
  Json list = Json::array();
  for (const auto& ad : ads) {
    auto found = positions.find(ad.get());
    if (found != positions.end()) list.push_back(found->second);
  }
  return list;
}

std::string quoted(const std::optional<std::string>& text) {
  return text ? "\"" + shownText(*text) + "\"" : std::string("(none)");
}

std::string shown(const RKVVASTURL& url) {
  return shownText(url.url().absoluteString());
}

std::string number(double value) {
  std::string text = Json(value).dump();
  if (text.size() > 2 && text.compare(text.size() - 2, 2, ".0") == 0) text.resize(text.size() - 2);
  return text;
}

void writeURLs(std::ostream& out, const char* indent, const char* label,
               const std::vector<RKVVASTURL>& urls) {
  for (const RKVVASTURL& url : urls)
    out << indent << label << ' ' << shown(url) << '\n';
}

void writeTracking(std::ostream& out, const char* indent, const RKVVASTCreative& creative) {
  for (const auto& event : creative.trackingEvents()) {
    out << indent << "tracking " << shownText(event->name());
    if (event->offset()) out << " at " << shownText(*event->offset());
    out << ' ' << shownText(event->url().absoluteString()) << '\n';
  }
  if (creative.clickThrough())
    out << indent << "click-through " << shown(*creative.clickThrough()) << '\n';
  writeURLs(out, indent, "click tracking", creative.clickTracking());
}

template <typename Creative>
void writeResource(std::ostream& out, const Creative& creative) {
  if (creative.staticResource()) out << ", static " << shown(*creative.staticResource());
  if (creative.iFrameResource()) out << ", iframe " << shown(*creative.iFrameResource());
  if (creative.htmlResource()) out << ", html " << shown(*creative.htmlResource());
}

void writeAd(std::ostream& out, size_t index, const RKVVASTAd& ad) {
  out << '#' << index << ' '
      << (ad.isInline()    ? "inline"
          : ad.isWrapper() ? "wrapper"
                           : "plain")
      << " ad, id " << quoted(ad.adID()) << ", sequence " << quoted(ad.adSequence()) << " ("
      << (ad.isValid() ? "valid" : "invalid") << ")\n";
  out << "   system " << quoted(ad.adSystem()) << ", title " << quoted(ad.adTitle()) << '\n';
  if (const auto* wrapper = dynamic_cast<const RKVVASTAdWrapper*>(&ad)) {
    out << "   ad tag " << (wrapper->adTagURL() ? shown(*wrapper->adTagURL()) : "(none)") << '\n';
  }
  writeURLs(out, "   ", "impression", ad.impressions());
  writeURLs(out, "   ", "error pixel", ad.errorPixels());
  for (const auto& event : ad.viewabilityEvents())
    out << "   " << shownText(event->name()) << ' ' << shownText(event->url().absoluteString())
        << '\n';

  size_t n = 0;
  for (const auto& linear : ad.linearCreatives()) {
    out << "   linear creative " << ++n << ": duration "
        << shownText(linear->duration().value_or("(none)"));
    if (linear->skipOffset()) out << ", skip offset " << shownText(*linear->skipOffset());
    out << ", " << linear->mediaFiles().size() << " media file(s)\n";
    const auto chosen = linear->mostAppropriateMediaFile();
    for (const auto& file : linear->mediaFiles()) {
      out << "     media file " << shownText(file->type().value_or("(no type)")) << ' '
          << number(file->width()) << 'x' << number(file->height()) << ' '
          << number(file->bitrate()) << " kbit/s " << shownText(file->url()->absoluteString())
          << (file == chosen ? " (chosen)" : "") << '\n';
    }
    writeTracking(out, "     ", *linear);
    for (const auto& icon : linear->icons()) {
      out << "     icon " << quoted(icon->program()) << ' ' << number(icon->width()) << 'x'
          << number(icon->height());
      writeResource(out, *icon);
      out << '\n';
    }
    for (const auto& id : linear->universalAdIds())
      out << "     universal ad id " << shownText(id.registry()) << ' ' << shownText(id.value())
          << '\n';
  }
  n = 0;
  for (const auto& nonLinear : ad.nonLinearCreatives()) {
    out << "   non-linear creative " << ++n << ": " << number(nonLinear->width()) << 'x'
        << number(nonLinear->height());
    writeResource(out, *nonLinear);
    out << '\n';
    writeTracking(out, "     ", *nonLinear);
  }
  n = 0;
  for (const auto& companion : ad.companionCreatives()) {
    out << "   companion creative " << ++n << ": " << number(companion->width()) << 'x'
        << number(companion->height());
    writeResource(out, *companion);
    out << '\n';
    writeTracking(out, "     ", *companion);
  }
  for (const auto& verification : ad.adVerifications()) {
    out << "   verification " << quoted(verification->vendor()) << '\n';
    for (const auto& resource : verification->resources())
      out << "     script " << shownText(resource->url().absoluteString()) << '\n';
  }
  if (const auto& extension = ad.extensions()) {
    out << "   extension";
    if (extension->metrics()) out << ", " << extension->metrics()->size() << " metric(s)";
    if (extension->adVerifications())
      out << ", " << extension->adVerifications()->size() << " script(s)";
    out << '\n';
  }
}

}  // namespace

RKVInspection inspectBytes(std::string_view bytes, bool isWrapper, double timeout) {
  RKVInspection inspection;
  // Bytes in hand need no transport: a session without provider spares starting the shared
  // one (its thread and the TLS library).
  const RKVVASTModelGenerator generator(std::make_shared<RKVURLSession>(nullptr), isWrapper);
  inspection.response =
      generator.generateVASTModelFromXML(bytes, std::nullopt, timeout, recorder(inspection));
  inspection.xmlError = xmlErrorOf(inspection, bytes);
  return inspection;
}

RKVInspection inspectURL(const RKVURL& url, bool isWrapper, double timeout,
                         std::shared_ptr<RKVURLSessionProviderProtocol> provider) {
  RKVInspection inspection;
  const auto transport = std::make_shared<RKVTransportLog>(std::move(provider), true);
  const RKVVASTModelGenerator generator(std::make_shared<RKVURLSession>(transport), isWrapper);
  inspection.response =
      generator.generateVASTModelFromXML(std::nullopt, url, timeout, recorder(inspection));
  inspection.transportFailures = transport->failures();
  const std::optional<std::string> body = transport->lastBody();
  inspection.xmlError =
      xmlErrorOf(inspection, body ? std::optional<std::string_view>(*body) : std::nullopt);
  return inspection;
}

void writeInspectionDiagnostics(std::ostream& err, const RKVInspection& inspection,
                                std::string_view prefix) {
  for (const RKVTransportLog::Failure& failure : inspection.transportFailures) {
    err << prefix << "download of " << shownText(failure.url)
        << " failed: " << shownText(failure.error.description()) << '\n';
  }
  if (inspection.xmlError)
    writeXMLParseError(err, prefix, "not well-formed XML", *inspection.xmlError);
}

std::optional<RKVXMLParseError> xmlParseError(std::string_view bytes) {
  RKVXMLDictionaryParser reader(RKVXMLDictionaryParser::sharedInstance());
  if (reader.rkv_dictionaryWithData(bytes)) return std::nullopt;
  return reader.parsingError();
}

void writeXMLParseError(std::ostream& err, std::string_view prefix, std::string_view what,
                        const RKVXMLParseError& error) {
  err << prefix << what << " at line " << error.line << ", column " << error.column + 1 << ": "
      << shownText(error.description) << '\n';
}

void writeInspectionJSON(std::ostream& out, const RKVInspection& inspection) {
  const std::shared_ptr<RKVVASTModel>& model = inspection.response.model();
  Json head;
  head["ok"] = model != nullptr;
  head["error"] = errorJSON(inspection.response.error());
  Json reported = Json::array();
  for (const RKVReportedError& report : inspection.reported) {
    reported.push_back({{"name", textJSON(report.error.errorName())},
                        {"vastCode", report.error.VASTCode()},
                        {"vendorCode", report.error.vireoCode()},
                        {"errorURLs", urlsJSON(report.errorURLs)}});
  }
  head["reported"] = std::move(reported);
  std::unordered_map<const RKVVASTAd*, size_t> positions;
  if (model) {
    for (size_t i = 0; i < model->ads().size(); ++i)
      positions.emplace(model->ads()[i].get(), i);
  }
  head["version"] = model ? Json(model->version()) : Json(nullptr);
  head["errorPixels"] = model ? urlsJSON(model->errorPixels()) : Json::array();
  head["isAdPod"] = model && model->isAdPod();
  head["mainAds"] = model ? indicesJSON(model->mainAds(), positions) : Json::array();
  head["passbackAds"] = model ? indicesJSON(model->passbackAds(), positions) : Json::array();

  // The head without its closing brace, then the ads one at a time.
  std::string text = dumpJSON(head);
  text.resize(text.size() - 2);  // "\n}"
  out << text << ",\n  \"ads\": [";
  if (model) {
    const char* separator = "\n    ";
    for (const auto& ad : model->ads()) {
      out << separator << dumpJSON(adJSON(*ad), 2, 2);
      separator = ",\n    ";
    }
    if (!model->ads().empty()) out << "\n  ";
  }
  out << "]\n}\n";
}

void writeInspectionOutline(std::ostream& out, const RKVInspection& inspection) {
  const std::shared_ptr<RKVVASTModel>& model = inspection.response.model();
  if (model) {
    out << "VAST " << model->version() << ": " << model->ads().size() << " ad(s)"
        << (model->isAdPod() ? ", an ad pod" : "") << '\n';
    std::unordered_map<const RKVVASTAd*, size_t> positions;
    for (size_t i = 0; i < model->ads().size(); ++i)
      positions.emplace(model->ads()[i].get(), i + 1);
    for (const auto& [label, ads] : {std::pair{"main ads:", model->mainAds()},
                                     std::pair{"passback ads:", model->passbackAds()}}) {
      out << "  " << label;
      if (ads.empty()) out << " none";
      for (const auto& ad : ads)
        out << " #" << positions[ad.get()];
      out << '\n';
    }
    writeURLs(out, "  ", "error pixel", model->errorPixels());
    for (size_t i = 0; i < model->ads().size(); ++i)
      writeAd(out, i + 1, *model->ads()[i]);
  } else {
    out << "No VAST model.\n";
  }
  if (!inspection.reported.empty()) {
    out << "Reported errors (" << inspection.reported.size() << "):\n";
    for (const RKVReportedError& report : inspection.reported) {
      out << "  " << shownText(report.error.errorName().value_or("(null)")) << ": VAST code "
          << report.error.VASTCode() << ", vendor code " << report.error.vireoCode() << '\n';
      writeURLs(out, "    ", "error URL", report.errorURLs);
    }
  }
  if (inspection.response.error())
    out << "Result: " << shownText(inspection.response.error()->description()) << '\n';
}

}  // namespace rkv::cli
