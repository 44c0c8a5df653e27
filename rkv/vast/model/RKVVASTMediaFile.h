// RKVVASTMediaFile: one rendition of a linear creative's video, from a MediaFile or
// InteractiveCreativeFile element. Built on one thread and then read.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "rkv/RKVExport.h"
#include "rkv/foundation/RKVURL.h"
#include "rkv/xml/RKVXMLDictionary.h"

namespace rkv {

class RKV_EXPORT RKVVASTMediaFile {
 public:
  // Reads the element's attributes and its text as the URL (RKVVASTURL::fromXML). Null unless
  // the result isValid.
  static std::shared_ptr<RKVVASTMediaFile> withDictionary(const RKVXMLDictionary& element);

  // The attributes as written; nullopt when absent.
  const std::optional<std::string>& id() const { return id_; }
  const std::optional<std::string>& delivery() const { return delivery_; }
  const std::optional<std::string>& type() const { return type_; }  // the MIME type
  const std::optional<std::string>& codec() const { return codec_; }
  const std::optional<std::string>& apiFramework() const { return apiFramework_; }
  // Boolean readings of the attributes (RKVTextValues::boolValue); false when absent.
  bool scalable() const { return scalable_; }
  bool maintainAspectRatio() const { return maintainAspectRatio_; }
  // Float readings of the attributes (RKVTextValues::floatValue); 0 when absent or not a number.
  float bitrate() const { return bitrate_; }  // kbit/s
  // Whether the bitrate attribute is present and starts with a number (after white space, an
  // optional sign, then a digit or a '.' and a digit). A file for which this is false has a
  // bitrate() of 0 but declares none: the media file selector takes it as the "no bitrate"
  // marker -1, as it takes a written -1.
  bool declaresBitrate() const { return declaresBitrate_; }
  float minBitrate() const { return minBitrate_; }
  float maxBitrate() const { return maxBitrate_; }
  float width() const { return width_; }  // pixels
  float height() const { return height_; }
  float fileSize() const { return fileSize_; }  // bytes
  // The file's URL; present in every media file that withDictionary answers.
  const std::optional<RKVURL>& url() const { return url_; }

  // The URL is present and the file isSupported.
  bool isValid() const;
  // Type and API framework are compared without regard to ASCII case.
  //
  // The type, upper-cased, is one of VIDEO/MP4, VIDEO/3GPP, VIDEO/M4V,
  // APPLICATION/VND.APPLE.MPEGURL, APPLICATION/X-MPEGURL, VIDEO/MPEGURL; or the file isVPAID.
  // The delivery is not looked at.
  bool isSupported() const;
  // The type, upper-cased, is APPLICATION/X-JAVASCRIPT or APPLICATION/JAVASCRIPT.
  bool isJavascript() const;
  // isJavascript, and the API framework, upper-cased, is VPAID.
  bool isVPAID() const;

 private:
  RKVVASTMediaFile() = default;

  std::optional<std::string> id_;
  std::optional<std::string> delivery_;
  std::optional<std::string> type_;
  std::optional<std::string> codec_;
  std::optional<std::string> apiFramework_;
  bool scalable_ = false;
  bool maintainAspectRatio_ = false;
  bool declaresBitrate_ = false;
  float bitrate_ = 0;
  float minBitrate_ = 0;
  float maxBitrate_ = 0;
  float width_ = 0;
  float height_ = 0;
  float fileSize_ = 0;
  std::optional<RKVURL> url_;
};

}  // namespace rkv
