// RKVXMLDictionaryParser: reads an XML document into the dictionary tree (RKVXMLDictionary).
//
// The reader's eight options decide the tree's shape; every VAST reader relies on the defaults
// (text-only elements stay dictionaries, every child sits in a list, white space is trimmed,
// empty elements are stripped, only the root carries "__name"). sharedInstance() holds the
// option template: the entry points of RKVXMLDictionary parse with a fresh copy of it. Options
// are guarded by a mutex, so the template may be read and changed from any thread; one reader
// object parses one document at a time.
#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "rkv/RKVExport.h"
#include "rkv/xml/RKVXMLDictionary.h"
#include "rkv/xml/RKVXMLPushParser.h"

namespace rkv {

// How attributes are stored (looked at only when an element has at least one attribute).
enum RKVXMLDictionaryAttributesMode : int64_t {
  RKVXMLDictionaryAttributesModePrefixed = 0,    // under "_" + name in the element
  RKVXMLDictionaryAttributesModeDictionary = 1,  // the whole map under "__attributes"
  RKVXMLDictionaryAttributesModeUnprefixed = 2,  // merged under their plain names
  RKVXMLDictionaryAttributesModeDiscard = 3,     // dropped (so is any other value)
};

// When "__name" is written.
enum RKVXMLDictionaryNodeNameMode : int64_t {
  RKVXMLDictionaryNodeNameModeRootOnly = 0,
  RKVXMLDictionaryNodeNameModeAlways = 1,
  RKVXMLDictionaryNodeNameModeNever = 2,  // also any other value
};

class RKV_EXPORT RKVXMLDictionaryParser {
 public:
  struct Options {
    bool collapseTextNodes = false;
    bool stripEmptyNodes = true;
    bool trimWhiteSpace = true;
    bool alwaysUseArrays = true;
    bool preserveComments = false;
    bool wrapRootNode = false;
    int64_t attributesMode = RKVXMLDictionaryAttributesModePrefixed;
    int64_t nodeNameMode = RKVXMLDictionaryNodeNameModeRootOnly;
    // Not one of the classic eight: documents nested deeper are refused.
    size_t maximumDepth = RKVXMLPushParser::kDefaultMaximumDepth;

    friend bool operator==(const Options&, const Options&) = default;
  };

  // Receives each element directly under the document's root element as soon as it has ended
  // (the collapse and strip rules applied), with that root (its attributes complete, its later
  // children still to come) and the element's key. Answering true takes the element out of the
  // tree at once: it is removed from its list, the key staying (with an empty list when it was
  // the only one). Only elements held in a list are offered (all of them under alwaysUseArrays).
  using RootChildHandler = std::function<bool(const RKVXMLDictionary& root, std::string_view key,
                                              const RKVXMLDictionary& element)>;

  // A reader with the default options.
  RKVXMLDictionaryParser() = default;
  explicit RKVXMLDictionaryParser(const Options& options) : options_(options) {}
  // A copy has the same options and an empty parse state.
  RKVXMLDictionaryParser(const RKVXMLDictionaryParser& other);
  RKVXMLDictionaryParser& operator=(const RKVXMLDictionaryParser& other);

  // The process-wide option template, created once on first use.
  static RKVXMLDictionaryParser& sharedInstance();

  Options options() const;
  void setOptions(const Options& options);

  bool collapseTextNodes() const { return options().collapseTextNodes; }
  void setCollapseTextNodes(bool value);
  bool stripEmptyNodes() const { return options().stripEmptyNodes; }
  void setStripEmptyNodes(bool value);
  bool trimWhiteSpace() const { return options().trimWhiteSpace; }
  void setTrimWhiteSpace(bool value);
  bool alwaysUseArrays() const { return options().alwaysUseArrays; }
  void setAlwaysUseArrays(bool value);
  bool preserveComments() const { return options().preserveComments; }
  void setPreserveComments(bool value);
  bool wrapRootNode() const { return options().wrapRootNode; }
  void setWrapRootNode(bool value);
  int64_t attributesMode() const { return options().attributesMode; }
  void setAttributesMode(int64_t value);
  int64_t nodeNameMode() const { return options().nodeNameMode; }
  void setNodeNameMode(int64_t value);

  // Runs the push parser to the end and returns the root of the tree, or null when the parser
  // reported an error (a partly built tree is thrown away; the error is kept in parsingError).
  RKVXMLDictionaryPtr rkv_dictionaryWithParser(RKVXMLPushParser& parser);
  RKVXMLDictionaryPtr rkv_dictionaryWithData(std::string_view bytes);
  // The same, offering the root's children to `rootChildHandler` as they end, so that a reader
  // of a long document can take them one at a time instead of holding the whole tree. The
  // handler may see elements of a document that later fails to parse.
  RKVXMLDictionaryPtr rkv_dictionaryWithData(std::string_view bytes,
                                             const RootChildHandler& rootChildHandler);
  // A string is parsed as its UTF-8 bytes.
  RKVXMLDictionaryPtr rkv_dictionaryWithString(std::string_view string);
  // An unreadable file yields no bytes, so a parse error and null.
  RKVXMLDictionaryPtr rkv_dictionaryWithFile(const std::string& path);

  // The error of the last parse, if it failed.
  const std::optional<RKVXMLParseError>& parsingError() const { return parsingError_; }

  // Writes a value of the tree back as XML under the given element name: a list writes each
  // entry under the name (joined with "\n"), a dictionary its attributes and inner XML, anything
  // else its escaped text.
  static std::string XMLStringForNode(const RKVXMLValue& node, std::string_view name);
  static std::string XMLStringForNode(const RKVXMLDictionary& node, std::string_view name);

 private:
  RKVXMLDictionaryPtr parse(RKVXMLPushParser& parser, const RootChildHandler* rootChildHandler);

  mutable std::mutex mutex_;
  Options options_;
  std::optional<RKVXMLParseError> parsingError_;
};

}  // namespace rkv
