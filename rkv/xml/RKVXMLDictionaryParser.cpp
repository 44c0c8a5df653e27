#include "rkv/xml/RKVXMLDictionaryParser.h"

#include <fstream>
#include <iterator>
#include <vector>

#include <fmt/format.h>

#include "rkv/xml/internal/RKVXMLTreeBuilder.h"

namespace rkv {

RKVXMLDictionaryParser::RKVXMLDictionaryParser(const RKVXMLDictionaryParser& other)
    : options_(other.options()) {}

RKVXMLDictionaryParser& RKVXMLDictionaryParser::operator=(const RKVXMLDictionaryParser& other) {
  if (this != &other) {
    Options copied = other.options();
    std::lock_guard lock(mutex_);
    options_ = copied;
    parsingError_.reset();
  }
  return *this;
}

RKVXMLDictionaryParser& RKVXMLDictionaryParser::sharedInstance() {
  static RKVXMLDictionaryParser instance;
  return instance;
}

RKVXMLDictionaryParser::Options RKVXMLDictionaryParser::options() const {
  std::lock_guard lock(mutex_);
  return options_;
}

void RKVXMLDictionaryParser::setOptions(const Options& options) {
  std::lock_guard lock(mutex_);
  options_ = options;
}

#define RKV_XML_OPTION_SETTER(Setter, field, Type)  \
  void RKVXMLDictionaryParser::Setter(Type value) { \
    std::lock_guard lock(mutex_);                   \
    options_.field = value;                         \
  }
RKV_XML_OPTION_SETTER(setCollapseTextNodes, collapseTextNodes, bool)
RKV_XML_OPTION_SETTER(setStripEmptyNodes, stripEmptyNodes, bool)
RKV_XML_OPTION_SETTER(setTrimWhiteSpace, trimWhiteSpace, bool)
RKV_XML_OPTION_SETTER(setAlwaysUseArrays, alwaysUseArrays, bool)
RKV_XML_OPTION_SETTER(setPreserveComments, preserveComments, bool)
RKV_XML_OPTION_SETTER(setWrapRootNode, wrapRootNode, bool)
RKV_XML_OPTION_SETTER(setAttributesMode, attributesMode, int64_t)
RKV_XML_OPTION_SETTER(setNodeNameMode, nodeNameMode, int64_t)
#undef RKV_XML_OPTION_SETTER

RKVXMLDictionaryPtr RKVXMLDictionaryParser::rkv_dictionaryWithParser(RKVXMLPushParser& parser) {
  return parse(parser, nullptr);
}

RKVXMLDictionaryPtr RKVXMLDictionaryParser::parse(RKVXMLPushParser& parser,
                                                  const RootChildHandler* rootChildHandler) {
  parsingError_.reset();
  Options options = this->options();
  internal::RKVXMLTreeBuilder builder(options, rootChildHandler);
  parser.setMaximumDepth(options.maximumDepth);
  parser.setReportsComments(options.preserveComments);
  if (!parser.parse(builder)) {
    parsingError_ = parser.error();
    return nullptr;
  }
  return builder.takeRoot();
}

RKVXMLDictionaryPtr RKVXMLDictionaryParser::rkv_dictionaryWithData(std::string_view bytes) {
  RKVXMLPushParser parser(bytes);
  return rkv_dictionaryWithParser(parser);
}

RKVXMLDictionaryPtr RKVXMLDictionaryParser::rkv_dictionaryWithData(
    std::string_view bytes, const RootChildHandler& rootChildHandler) {
  RKVXMLPushParser parser(bytes);
  return parse(parser, rootChildHandler ? &rootChildHandler : nullptr);
}

RKVXMLDictionaryPtr RKVXMLDictionaryParser::rkv_dictionaryWithString(std::string_view string) {
  return rkv_dictionaryWithData(string);
}

RKVXMLDictionaryPtr RKVXMLDictionaryParser::rkv_dictionaryWithFile(const std::string& path) {
  std::string bytes;
  std::ifstream in(path, std::ios::binary);
  if (in) bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  return rkv_dictionaryWithData(bytes);
}

std::string RKVXMLDictionaryParser::XMLStringForNode(const RKVXMLDictionary& node,
                                                     std::string_view name) {
  std::string attributeText;
  if (RKVXMLDictionaryPtr attributes = node.rkv_attributes()) {
    for (const auto& [key, value] : attributes->entries()) {
      std::string valueText;
      if (const std::string* text = value.string()) {
        valueText = *text;
      } else if (const RKVXMLDictionary* element = value.dictionary()) {
        valueText = element->rkv_innerText().value_or("");
      }
      attributeText +=
          fmt::format(" {}=\"{}\"", rkv_XMLEncodedString(key), rkv_XMLEncodedString(valueText));
    }
  }
  std::string inner = node.rkv_innerXML();
  if (!inner.empty()) return fmt::format("<{0}{1}>{2}</{0}>", name, attributeText, inner);
  return fmt::format("<{}{}/>", name, attributeText);
}

std::string RKVXMLDictionaryParser::XMLStringForNode(const RKVXMLValue& node,
                                                     std::string_view name) {
  if (const RKVXMLArray* list = node.array()) {
    std::string joined;
    for (size_t i = 0; i < list->size(); ++i) {
      if (i) joined += '\n';
      joined += XMLStringForNode((*list)[i], name);
    }
    return joined;
  }
  if (const RKVXMLDictionary* dictionary = node.dictionary()) {
    return XMLStringForNode(*dictionary, name);
  }
  const std::string* text = node.string();
  return fmt::format("<{0}>{1}</{0}>", name, rkv_XMLEncodedString(text ? *text : ""));
}

// --- Entry points on the tree type --------------------------------------------------------------

RKVXMLDictionaryPtr RKVXMLDictionary::rkv_dictionaryWithXMLParser(RKVXMLPushParser& parser) {
  RKVXMLDictionaryParser reader(RKVXMLDictionaryParser::sharedInstance());
  return reader.rkv_dictionaryWithParser(parser);
}

RKVXMLDictionaryPtr RKVXMLDictionary::rkv_dictionaryWithXMLData(std::string_view bytes) {
  RKVXMLDictionaryParser reader(RKVXMLDictionaryParser::sharedInstance());
  return reader.rkv_dictionaryWithData(bytes);
}

RKVXMLDictionaryPtr RKVXMLDictionary::rkv_dictionaryWithXMLString(std::string_view string) {
  RKVXMLDictionaryParser reader(RKVXMLDictionaryParser::sharedInstance());
  return reader.rkv_dictionaryWithString(string);
}

RKVXMLDictionaryPtr RKVXMLDictionary::rkv_dictionaryWithXMLFile(const std::string& path) {
  RKVXMLDictionaryParser reader(RKVXMLDictionaryParser::sharedInstance());
  return reader.rkv_dictionaryWithFile(path);
}

}  // namespace rkv
