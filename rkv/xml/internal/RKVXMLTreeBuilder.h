// Builds the dictionary tree from push-parser events, following the reader's options.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "rkv/xml/RKVXMLDictionary.h"
#include "rkv/xml/RKVXMLDictionaryParser.h"
#include "rkv/xml/RKVXMLPushParser.h"

namespace rkv::internal {

class RKVXMLTreeBuilder final : public RKVXMLPushParserDelegate {
 public:
  explicit RKVXMLTreeBuilder(const RKVXMLDictionaryParser::Options& options) : options_(options) {}

  void didStartElement(std::string_view name, const RKVXMLAttributes& attributes) override;
  void didEndElement(std::string_view name) override;
  void foundCharacters(std::string_view text) override { addText(text); }
  void foundCDATA(std::string_view bytes) override { addText(bytes); }
  void foundComment(std::string_view text) override;
  void parseErrorOccurred(const RKVXMLParseError&) override {}

  // The finished tree (null before the first element); clears the builder's state.
  RKVXMLDictionaryPtr takeRoot();

 private:
  void addText(std::string_view piece);
  void endText();

  RKVXMLDictionaryParser::Options options_;
  RKVXMLDictionaryPtr root_;
  std::vector<RKVXMLDictionary*> stack_;  // open elements, innermost last; owned by root_
  std::string text_;
  bool hasText_ = false;  // a text run is pending (text_ may still be empty)
};

// Removes white space and line breaks (ASCII and Unicode separators) from both ends.
void trimWhiteSpaceAndNewlines(std::string& text);

}  // namespace rkv::internal
