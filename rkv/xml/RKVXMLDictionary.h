// The dictionary tree: the nested form of an XML document that every VAST class reads.
//
// A value of the tree is absent, a string, a dictionary or a list. Dictionaries and lists are
// shared objects (std::shared_ptr), so "the same object" is a pointer comparison; dictionaries
// keep their keys in insertion order. Trees are built by RKVXMLDictionaryParser; they are not
// synchronised: build on one thread, then share read-only. Destroying a tree never recurses per
// level, however deep it is.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "rkv/RKVExport.h"
#include "rkv/xml/internal/RKVInlineVector.h"

namespace rkv {

class RKVXMLDictionary;
class RKVXMLArray;
class RKVXMLPushParser;
namespace internal {
struct RKVXMLDictionaryAccess;
}
using RKVXMLDictionaryPtr = std::shared_ptr<RKVXMLDictionary>;
using RKVXMLArrayPtr = std::shared_ptr<RKVXMLArray>;

// One value of the tree. Copying a value shares its dictionary or list (like an object
// reference); strings are copied.
class RKV_EXPORT RKVXMLValue {
 public:
  RKVXMLValue() = default;  // absent
  RKVXMLValue(std::string string) : value_(std::move(string)) {}
  RKVXMLValue(const char* string) : value_(std::string(string)) {}
  RKVXMLValue(RKVXMLDictionaryPtr dictionary);  // a null pointer gives an absent value
  RKVXMLValue(RKVXMLArrayPtr array);            // a null pointer gives an absent value

  bool isNull() const { return value_.index() == 0; }
  bool isString() const { return value_.index() == 1; }
  bool isDictionary() const { return value_.index() == 2; }
  bool isArray() const { return value_.index() == 3; }
  explicit operator bool() const { return !isNull(); }

  // The held value, or null when the value is of another kind.
  const std::string* string() const { return std::get_if<std::string>(&value_); }
  std::string* string() { return std::get_if<std::string>(&value_); }
  RKVXMLDictionary* dictionary() const;
  RKVXMLArray* array() const;
  const RKVXMLDictionaryPtr* dictionaryPtr() const { return std::get_if<2>(&value_); }
  const RKVXMLArrayPtr* arrayPtr() const { return std::get_if<3>(&value_); }

  // True when both hold the same dictionary or list object, or equal strings, or are absent.
  bool isSameObject(const RKVXMLValue& other) const;
  // Deep value equality (dictionaries compare as unordered maps, like the platform's). Never
  // recurses per level.
  bool isEqual(const RKVXMLValue& other) const;

 private:
  friend class RKVXMLDictionary;
  friend class RKVXMLArray;
  friend struct RKVXMLTreeRelease;
  std::variant<std::monostate, std::string, RKVXMLDictionaryPtr, RKVXMLArrayPtr> value_;
};

// A mutable list of values.
class RKV_EXPORT RKVXMLArray {
 public:
  RKVXMLArray() = default;
  explicit RKVXMLArray(std::vector<RKVXMLValue> items);
  RKVXMLArray(const RKVXMLArray&) = default;  // shallow: the items' objects are shared
  RKVXMLArray& operator=(const RKVXMLArray&) = default;
  ~RKVXMLArray();

  static RKVXMLArrayPtr make() { return std::make_shared<RKVXMLArray>(); }
  static RKVXMLArrayPtr make(std::vector<RKVXMLValue> items) {
    return std::make_shared<RKVXMLArray>(std::move(items));
  }

  size_t size() const { return items_.size(); }
  bool empty() const { return items_.empty(); }
  const RKVXMLValue& operator[](size_t index) const { return items_[index]; }
  RKVXMLValue& operator[](size_t index) { return items_[index]; }
  std::span<const RKVXMLValue> items() const { return {items_.data(), items_.size()}; }
  const RKVXMLValue* begin() const { return items_.begin(); }
  const RKVXMLValue* end() const { return items_.end(); }
  void push_back(RKVXMLValue value) { items_.push_back(std::move(value)); }
  void pop_back() { items_.pop_back(); }  // the list must not be empty
  void erase(size_t index) { items_.erase(items_.begin() + index); }
  void clear() { items_.clear(); }

 private:
  friend struct RKVXMLTreeRelease;
  // One child inline: most child names of an element occur once.
  internal::RKVInlineVector<RKVXMLValue, 1> items_;
};

// A mutable dictionary with string keys, in insertion order (the "key order" of the tree).
//
// Besides the container operations it offers the tree's read-back operations (the rkv_ family)
// that interpret the reserved keys: "__name", "__text", "__attributes", "__comments" and
// "_"-prefixed attributes.
class RKV_EXPORT RKVXMLDictionary {
 public:
  using Entry = std::pair<std::string, RKVXMLValue>;

  RKVXMLDictionary() = default;
  RKVXMLDictionary(std::initializer_list<Entry> entries);
  RKVXMLDictionary(const RKVXMLDictionary& other);  // shallow: values' objects are shared
  RKVXMLDictionary& operator=(const RKVXMLDictionary& other);
  ~RKVXMLDictionary();

  static RKVXMLDictionaryPtr make() { return std::make_shared<RKVXMLDictionary>(); }
  static RKVXMLDictionaryPtr make(std::initializer_list<Entry> entries) {
    return std::make_shared<RKVXMLDictionary>(entries);
  }

  // The value under key, or null when the key is absent.
  const RKVXMLValue* find(std::string_view key) const;
  RKVXMLValue* find(std::string_view key);
  bool contains(std::string_view key) const { return find(key) != nullptr; }
  // Replaces the value of an existing key in place, or appends a new key at the end.
  void set(std::string_view key, RKVXMLValue value);
  // Appends a key the caller knows to be absent (no look-up; a duplicate key is a bug).
  void appendNewKey(std::string key, RKVXMLValue value);
  // Removes the key; false when it was absent.
  bool erase(std::string_view key);

  size_t size() const { return entries_.size(); }
  bool empty() const { return entries_.empty(); }
  // Entries in key order. Values may be changed in place; keys are changed only through set and
  // erase.
  std::span<const Entry> entries() const { return {entries_.data(), entries_.size()}; }
  RKVXMLValue& valueAt(size_t index) { return entries_[index].second; }
  void reserve(size_t count) { entries_.reserve(count); }

  // --- Entry points: parse with a fresh copy of RKVXMLDictionaryParser::sharedInstance() ---

  // The root of the document's tree, or null when the document could not be parsed.
  static RKVXMLDictionaryPtr rkv_dictionaryWithXMLParser(RKVXMLPushParser& parser);
  static RKVXMLDictionaryPtr rkv_dictionaryWithXMLData(std::string_view bytes);
  static RKVXMLDictionaryPtr rkv_dictionaryWithXMLString(std::string_view string);
  static RKVXMLDictionaryPtr rkv_dictionaryWithXMLFile(const std::string& path);

  // --- Read-back operations of the tree ---

  // "__name", or null when absent or not a string.
  const std::string* rkv_nodeName() const;
  // "__comments", or absent.
  RKVXMLValue rkv_comments() const;
  // "__text"; a list of text runs is joined with "\n". Absent when there is no text.
  std::optional<std::string> rkv_innerText() const;
  // The attributes as a new dictionary (plain names, no "_"), or null when there are none.
  RKVXMLDictionaryPtr rkv_attributes() const;
  // The child elements (every key not beginning with "_") as a new dictionary, or null.
  RKVXMLDictionaryPtr rkv_childNodes() const;
  // Comments, children and text written back as XML, joined with "\n".
  std::string rkv_innerXML() const;
  // The element written back as XML (a wrapped root is written as its content).
  std::string rkv_XMLString() const;

  // Dotted key paths: each step looks a key up in a dictionary; a step that meets a list applies
  // itself to every element and yields the list of results (absent results become absent
  // entries). A step that meets a string or nothing yields absent.
  RKVXMLValue valueForKeyPath(std::string_view keyPath) const;
  // The found value; a found value that is not a list comes wrapped in a one-element list.
  RKVXMLArrayPtr rkv_arrayValueForKeyPath(std::string_view keyPath) const;
  // The found value; of a list, its first element; of an element dictionary, its inner text
  // (absent when it has none); anything else as it is.
  RKVXMLValue rkv_stringValueForKeyPath(std::string_view keyPath) const;
  // The found value; of a list, its first element; a string becomes { "__text": string }.
  RKVXMLValue rkv_dictionaryValueForKeyPath(std::string_view keyPath) const;

 private:
  friend struct RKVXMLTreeRelease;
  friend struct internal::RKVXMLDictionaryAccess;
  struct KeyIndex;  // hash index over the keys of a large dictionary
  struct KeyIndexDeleter {
    void operator()(KeyIndex* index) const;
  };
  ptrdiff_t indexOf(std::string_view key) const;
  void rebuildIndex();

  // Two entries inline: a leaf element is usually an attribute or two, or one and its text.
  internal::RKVInlineVector<Entry, 2> entries_;
  std::unique_ptr<KeyIndex, KeyIndexDeleter> index_;
};

// The text with "&", "<", ">", "\"" and "'" escaped as XML entities (ampersand first).
RKV_EXPORT std::string rkv_XMLEncodedString(std::string_view text);

}  // namespace rkv
