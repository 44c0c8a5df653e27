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
  // `rootChildHandler` (may be null) must outlive the builder.
  explicit RKVXMLTreeBuilder(
      const RKVXMLDictionaryParser::Options& options,
      const RKVXMLDictionaryParser::RootChildHandler* rootChildHandler = nullptr)
      : options_(options), rootChildHandler_(rootChildHandler) {}

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
  // Applies the collapse and strip rules to an element that has just ended; true when it stays
  // in the tree as an element.
  bool settle(RKVXMLDictionary& node, std::string_view name);
  // Offers an element that stays in the tree, if it is a child of the document's root.
  void offerRootChild(RKVXMLDictionary& node, std::string_view name);

  RKVXMLDictionaryParser::Options options_;
  const RKVXMLDictionaryParser::RootChildHandler* rootChildHandler_;
  RKVXMLDictionaryPtr root_;
  std::vector<RKVXMLDictionary*> stack_;  // open elements, innermost last; owned by root_
  std::string text_;
  bool hasText_ = false;  // a text run is pending (text_ may still be empty)
};

// Removes white space and line breaks (ASCII and Unicode separators) from both ends.
void trimWhiteSpaceAndNewlines(std::string& text);

}  // namespace rkv::internal
