#include "rkv/vast/model/RKVVASTMediaFile.h"

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>
#include <utility>

#include "rkv/foundation/RKVTextValues.h"
#include "rkv/vast/model/RKVVASTURL.h"
#include "rkv/vast/model/internal/RKVElementReading.h"
#include "rkv/xml/RKVXMLDictionaryUtils.h"

namespace rkv {

namespace {

// True when the text, upper-cased, equals `upper` (which is upper case).
bool equalsUpperCased(const std::optional<std::string>& text, std::string_view upper) {
  if (!text || text->size() != upper.size()) return false;
  for (size_t i = 0; i < upper.size(); ++i) {
    char c = (*text)[i];
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    if (c != upper[i]) return false;
  }
  return true;
}

// True when the text starts with a number as RKVTextValues reads one: white space, an optional
// sign, then a digit, or a '.' followed by a digit. "inf", "nan" and the empty text do not.
bool startsWithNumber(const std::string* text) {
  if (text == nullptr) return false;
  auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  size_t i = 0;
  while (i < text->size() && ((*text)[i] == ' ' || ((*text)[i] >= '\t' && (*text)[i] <= '\r')))
    ++i;
  if (i < text->size() && ((*text)[i] == '+' || (*text)[i] == '-')) ++i;
  if (i < text->size() && (*text)[i] == '.') ++i;
  return i < text->size() && isDigit((*text)[i]);
}

constexpr std::string_view kPlayableTypes[] = {
    "VIDEO/MP4",
    "VIDEO/3GPP",
    "VIDEO/M4V",
    "APPLICATION/VND.APPLE.MPEGURL",
    "APPLICATION/X-MPEGURL",
    "VIDEO/MPEGURL",
};

// The keys a media file reads.
enum class Field : uint8_t {
  text,
  id,
  delivery,
  type,
  scalable,
  maintainAspectRatio,
  codec,
  apiFramework,
  bitrate,
  minBitrate,
  maxBitrate,
  width,
  height,
  fileSize,
  none,
};
constexpr size_t kFieldCount = static_cast<size_t>(Field::none);

struct NamedField {
  std::string_view key;
  Field field;
};

constexpr NamedField kFields[] = {
    {"__text", Field::text},
    {"_id", Field::id},
    {"_delivery", Field::delivery},
    {"_type", Field::type},
    {"_scalable", Field::scalable},
    {"_maintainAspectRatio", Field::maintainAspectRatio},
    {"_codec", Field::codec},
    {"_apiFramework", Field::apiFramework},
    {"_bitrate", Field::bitrate},
    {"_minBitrate", Field::minBitrate},
    {"_maxBitrate", Field::maxBitrate},
    {"_width", Field::width},
    {"_height", Field::height},
    {"_fileSize", Field::fileSize},
};
static_assert(std::size(kFields) == kFieldCount);

Field fieldOfKey(std::string_view key) {
  // Every key read starts with '_'; children (the common non-match) never do.
  if (key.size() < 3 || key[0] != '_') return Field::none;
  for (const NamedField& named : kFields) {
    // The second and last characters tell most keys of equal length apart before comparing.
    if (named.key.size() == key.size() && named.key[1] == key[1] &&
        named.key.back() == key.back() && named.key == key)
      return named.field;
  }
  return Field::none;
}

}  // namespace

std::shared_ptr<RKVVASTMediaFile> RKVVASTMediaFile::withDictionary(
    const RKVXMLDictionary& element) {
  // The element is walked once instead of looking each of its fourteen keys up: a media file
  // carries a dozen attributes and documents carry hundreds of files. The rule is the look-up
  // rule (an attribute is the string under its "_" key, the text the string under "__text");
  // keys are unique, so the first match is the only one.
  const std::string* found[kFieldCount] = {};
  for (const RKVXMLDictionary::Entry& entry : element.entries()) {
    const Field field = fieldOfKey(entry.first);
    if (field != Field::none) found[static_cast<size_t>(field)] = entry.second.string();
  }
  auto text = [&found](Field field) { return found[static_cast<size_t>(field)]; };

  std::shared_ptr<RKVVASTMediaFile> file(new RKVVASTMediaFile());
  // What decides validity is read first, so that a file that is dropped costs little.
  file->type_ = internal::optionalText(text(Field::type));
  file->apiFramework_ = internal::optionalText(text(Field::apiFramework));
  if (!file->isSupported()) return nullptr;
  std::optional<RKVVASTURL> url = RKVVASTURL::fromXML(text(Field::text));
  if (!url) return nullptr;
  file->url_ = std::move(*url).url();
  file->id_ = internal::optionalText(text(Field::id));
  file->delivery_ = internal::optionalText(text(Field::delivery));
  file->scalable_ = RKVTextValues::boolValue(text(Field::scalable));
  file->maintainAspectRatio_ = RKVTextValues::boolValue(text(Field::maintainAspectRatio));
  file->codec_ = internal::optionalText(text(Field::codec));
  file->declaresBitrate_ = startsWithNumber(text(Field::bitrate));
  file->bitrate_ = RKVTextValues::floatValue(text(Field::bitrate));
  file->minBitrate_ = RKVTextValues::floatValue(text(Field::minBitrate));
  file->maxBitrate_ = RKVTextValues::floatValue(text(Field::maxBitrate));
  file->width_ = RKVTextValues::floatValue(text(Field::width));
  file->height_ = RKVTextValues::floatValue(text(Field::height));
  file->fileSize_ = RKVTextValues::floatValue(text(Field::fileSize));
  return file;
}

bool RKVVASTMediaFile::isValid() const {
  return url_.has_value() && isSupported();
}

bool RKVVASTMediaFile::isSupported() const {
  for (std::string_view playable : kPlayableTypes) {
    if (equalsUpperCased(type_, playable)) return true;
  }
  return isVPAID();
}

bool RKVVASTMediaFile::isJavascript() const {
  return equalsUpperCased(type_, "APPLICATION/X-JAVASCRIPT") ||
         equalsUpperCased(type_, "APPLICATION/JAVASCRIPT");
}

bool RKVVASTMediaFile::isVPAID() const {
  return isJavascript() && equalsUpperCased(apiFramework_, "VPAID");
}

}  // namespace rkv
