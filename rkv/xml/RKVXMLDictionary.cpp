#include "rkv/xml/RKVXMLDictionary.h"

#include <algorithm>
#include <cstring>
#include <unordered_map>

#include <fmt/format.h>

#include "rkv/xml/RKVXMLDictionaryParser.h"
#include "rkv/xml/internal/RKVSipHash.h"
#include "rkv/xml/internal/RKVXMLDictionaryAccess.h"

namespace rkv {

// --- Iterative release -------------------------------------------------------------------------

// Takes apart the containers that are only owned by the values handed in, children first moved
// into a work list, so that destroying a tree of any depth uses constant stack.
struct RKVXMLTreeRelease {
  static bool holdsContainer(const RKVXMLValue& value) {
    return value.isDictionary() || value.isArray();
  }

  static void drain(std::vector<RKVXMLValue>& pending) {
    while (!pending.empty()) {
      RKVXMLValue value = std::move(pending.back());
      pending.pop_back();
      if (auto* dictionary = std::get_if<RKVXMLDictionaryPtr>(&value.value_)) {
        if (dictionary->use_count() == 1) {
          for (auto& entry : (*dictionary)->entries_) {
            if (holdsContainer(entry.second)) pending.push_back(std::move(entry.second));
          }
          (*dictionary)->entries_.clear();
          (*dictionary)->index_.reset();
        }
      } else if (auto* array = std::get_if<RKVXMLArrayPtr>(&value.value_)) {
        if (array->use_count() == 1) {
          for (auto& item : (*array)->items_) {
            if (holdsContainer(item)) pending.push_back(std::move(item));
          }
          (*array)->items_.clear();
        }
      }
      // `value` dies here; its container, if it was the last owner, is empty by now.
    }
  }
};

// --- RKVXMLValue -------------------------------------------------------------------------------

RKVXMLValue::RKVXMLValue(RKVXMLDictionaryPtr dictionary) {
  if (dictionary) value_ = std::move(dictionary);
}

RKVXMLValue::RKVXMLValue(RKVXMLArrayPtr array) {
  if (array) value_ = std::move(array);
}

RKVXMLDictionary* RKVXMLValue::dictionary() const {
  const auto* pointer = std::get_if<RKVXMLDictionaryPtr>(&value_);
  return pointer ? pointer->get() : nullptr;
}

RKVXMLArray* RKVXMLValue::array() const {
  const auto* pointer = std::get_if<RKVXMLArrayPtr>(&value_);
  return pointer ? pointer->get() : nullptr;
}

bool RKVXMLValue::isSameObject(const RKVXMLValue& other) const {
  if (value_.index() != other.value_.index()) return false;
  switch (value_.index()) {
    case 0:
      return true;
    case 1:
      return *string() == *other.string();
    case 2:
      return dictionary() == other.dictionary();
    default:
      return array() == other.array();
  }
}

bool RKVXMLValue::isEqual(const RKVXMLValue& other) const {
  std::vector<std::pair<const RKVXMLValue*, const RKVXMLValue*>> pending{{this, &other}};
  while (!pending.empty()) {
    auto [a, b] = pending.back();
    pending.pop_back();
    if (a->value_.index() != b->value_.index()) return false;
    switch (a->value_.index()) {
      case 0:
        break;
      case 1:
        if (*a->string() != *b->string()) return false;
        break;
      case 2: {
        const RKVXMLDictionary* da = a->dictionary();
        const RKVXMLDictionary* db = b->dictionary();
        if (da == db) break;
        if (da->size() != db->size()) return false;
        for (const auto& [key, value] : da->entries()) {
          const RKVXMLValue* match = db->find(key);
          if (!match) return false;
          pending.emplace_back(&value, match);
        }
        break;
      }
      default: {
        const RKVXMLArray* aa = a->array();
        const RKVXMLArray* ab = b->array();
        if (aa == ab) break;
        if (aa->size() != ab->size()) return false;
        for (size_t i = 0; i < aa->size(); ++i)
          pending.emplace_back(&(*aa)[i], &(*ab)[i]);
        break;
      }
    }
  }
  return true;
}

// --- RKVXMLArray -------------------------------------------------------------------------------

RKVXMLArray::RKVXMLArray(std::vector<RKVXMLValue> items) {
  items_.reserve(items.size());
  for (RKVXMLValue& item : items)
    items_.push_back(std::move(item));
}

RKVXMLArray::~RKVXMLArray() {
  std::vector<RKVXMLValue> pending;
  for (auto& item : items_) {
    if (RKVXMLTreeRelease::holdsContainer(item)) pending.push_back(std::move(item));
  }
  RKVXMLTreeRelease::drain(pending);
}

// --- RKVXMLDictionary --------------------------------------------------------------------------

namespace {

// Dictionaries with more keys than this get a hash index, so that documents with thousands of
// differently named siblings do not make every insertion a linear scan.
constexpr size_t kIndexThreshold = 16;

// Keyed with the process's secret: element names come from the network, and an unkeyed hash
// lets a document of names built to collide make every insertion walk one long chain. Not
// noexcept on purpose: libstdc++ then keeps each key's hash in its node instead of hashing keys
// again while it walks a bucket or rehashes.
struct KeyHash {
  using is_transparent = void;
  size_t operator()(std::string_view key) const {
    return static_cast<size_t>(internal::keyedHash(key));
  }
};

}  // namespace

struct RKVXMLDictionary::KeyIndex {
  std::unordered_map<std::string, size_t, KeyHash, std::equal_to<>> positions;
};

void RKVXMLDictionary::KeyIndexDeleter::operator()(KeyIndex* index) const {
  delete index;
}

size_t internal::RKVXMLDictionaryAccess::longestIndexChain(const RKVXMLDictionary& dictionary) {
  if (!dictionary.index_) return 0;
  const auto& positions = dictionary.index_->positions;
  size_t longest = 0;
  for (size_t bucket = 0; bucket < positions.bucket_count(); ++bucket)
    longest = std::max(longest, positions.bucket_size(bucket));
  return longest;
}

RKVXMLDictionary::RKVXMLDictionary(std::initializer_list<Entry> entries) {
  for (const auto& entry : entries)
    set(entry.first, entry.second);
}

RKVXMLDictionary::RKVXMLDictionary(const RKVXMLDictionary& other) : entries_(other.entries_) {
  if (other.index_) rebuildIndex();
}

RKVXMLDictionary& RKVXMLDictionary::operator=(const RKVXMLDictionary& other) {
  if (this != &other) {
    entries_ = other.entries_;
    index_.reset();
    if (entries_.size() > kIndexThreshold) rebuildIndex();
  }
  return *this;
}

RKVXMLDictionary::~RKVXMLDictionary() {
  std::vector<RKVXMLValue> pending;
  for (auto& entry : entries_) {
    if (RKVXMLTreeRelease::holdsContainer(entry.second)) pending.push_back(std::move(entry.second));
  }
  RKVXMLTreeRelease::drain(pending);
}

void RKVXMLDictionary::rebuildIndex() {
  index_.reset(new KeyIndex);
  index_->positions.reserve(entries_.size() * 2);
  for (size_t i = 0; i < entries_.size(); ++i)
    index_->positions.emplace(entries_[i].first, i);
}

ptrdiff_t RKVXMLDictionary::indexOf(std::string_view key) const {
  if (index_) {
    auto it = index_->positions.find(key);
    return it == index_->positions.end() ? -1 : static_cast<ptrdiff_t>(it->second);
  }
  // Keys of one element mostly differ in length or first character: test those before the
  // bytes.
  for (size_t i = 0; i < entries_.size(); ++i) {
    const std::string& candidate = entries_[i].first;
    if (candidate.size() != key.size()) continue;
    if (key.empty() || (candidate[0] == key[0] &&
                        std::memcmp(candidate.data() + 1, key.data() + 1, key.size() - 1) == 0))
      return static_cast<ptrdiff_t>(i);
  }
  return -1;
}

const RKVXMLValue* RKVXMLDictionary::find(std::string_view key) const {
  ptrdiff_t i = indexOf(key);
  return i < 0 ? nullptr : &entries_[static_cast<size_t>(i)].second;
}

RKVXMLValue* RKVXMLDictionary::find(std::string_view key) {
  ptrdiff_t i = indexOf(key);
  return i < 0 ? nullptr : &entries_[static_cast<size_t>(i)].second;
}

void RKVXMLDictionary::set(std::string_view key, RKVXMLValue value) {
  ptrdiff_t i = indexOf(key);
  if (i >= 0) {
    entries_[static_cast<size_t>(i)].second = std::move(value);
    return;
  }
  appendNewKey(std::string(key), std::move(value));
}

void RKVXMLDictionary::appendNewKey(std::string key, RKVXMLValue value) {
  entries_.emplace_back(std::move(key), std::move(value));
  if (index_) {
    index_->positions.emplace(entries_.back().first, entries_.size() - 1);
  } else if (entries_.size() > kIndexThreshold) {
    rebuildIndex();
  }
}

bool RKVXMLDictionary::erase(std::string_view key) {
  ptrdiff_t i = indexOf(key);
  if (i < 0) return false;
  entries_.erase(entries_.begin() + i);
  if (index_) {
    index_.reset();
    if (entries_.size() > kIndexThreshold) rebuildIndex();
  }
  return true;
}

const std::string* RKVXMLDictionary::rkv_nodeName() const {
  const RKVXMLValue* value = find("__name");
  return value ? value->string() : nullptr;
}

RKVXMLValue RKVXMLDictionary::rkv_comments() const {
  const RKVXMLValue* value = find("__comments");
  return value ? *value : RKVXMLValue();
}

std::optional<std::string> RKVXMLDictionary::rkv_innerText() const {
  const RKVXMLValue* value = find("__text");
  if (!value) return std::nullopt;
  if (const std::string* text = value->string()) return *text;
  if (const RKVXMLArray* runs = value->array()) {
    std::string joined;
    bool first = true;
    for (const RKVXMLValue& run : *runs) {
      const std::string* text = run.string();
      if (!text) continue;
      if (!first) joined += '\n';
      joined += *text;
      first = false;
    }
    return joined;
  }
  return std::nullopt;
}

RKVXMLDictionaryPtr RKVXMLDictionary::rkv_attributes() const {
  if (const RKVXMLValue* map = find("__attributes")) {
    RKVXMLDictionary* attributes = map->dictionary();
    if (!attributes || attributes->empty()) return nullptr;
    return *map->dictionaryPtr();
  }
  auto attributes = RKVXMLDictionary::make();
  for (const auto& [key, value] : entries_) {
    if (key.size() < 1 || key[0] != '_') continue;
    if (key == "__comments" || key == "__text" || key == "__name") continue;
    attributes->set(std::string_view(key).substr(1), value);
  }
  return attributes->empty() ? nullptr : attributes;
}

RKVXMLDictionaryPtr RKVXMLDictionary::rkv_childNodes() const {
  auto children = RKVXMLDictionary::make();
  for (const auto& [key, value] : entries_) {
    if (!key.empty() && key[0] == '_') continue;
    children->set(key, value);
  }
  return children->empty() ? nullptr : children;
}

std::string RKVXMLDictionary::rkv_innerXML() const {
  std::vector<std::string> parts;
  if (const RKVXMLValue* comments = find("__comments")) {
    if (const RKVXMLArray* list = comments->array()) {
      for (const RKVXMLValue& comment : *list) {
        if (const std::string* text = comment.string()) {
          parts.push_back(fmt::format("<!--{}-->", rkv_XMLEncodedString(*text)));
        }
      }
    }
  }
  for (const auto& [key, value] : entries_) {
    if (!key.empty() && key[0] == '_') continue;
    parts.push_back(RKVXMLDictionaryParser::XMLStringForNode(value, key));
  }
  if (std::optional<std::string> text = rkv_innerText()) {
    parts.push_back(rkv_XMLEncodedString(*text));
  }
  std::string joined;
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i) joined += '\n';
    joined += parts[i];
  }
  return joined;
}

std::string RKVXMLDictionary::rkv_XMLString() const {
  if (entries_.size() == 1 && !find("__name")) return rkv_innerXML();
  const std::string* name = rkv_nodeName();
  return RKVXMLDictionaryParser::XMLStringForNode(*this, name ? std::string_view(*name) : "root");
}

namespace {

RKVXMLValue valueForKey(const RKVXMLValue& value, std::string_view key) {
  if (const RKVXMLDictionary* dictionary = value.dictionary()) {
    const RKVXMLValue* found = dictionary->find(key);
    return found ? *found : RKVXMLValue();
  }
  if (const RKVXMLArray* array = value.array()) {
    std::vector<RKVXMLValue> results;
    results.reserve(array->size());
    for (const RKVXMLValue& item : *array)
      results.push_back(valueForKey(item, key));
    return RKVXMLArray::make(std::move(results));
  }
  return {};
}

RKVXMLValue firstIfList(RKVXMLValue value) {
  if (const RKVXMLArray* array = value.array()) {
    return array->empty() ? RKVXMLValue() : (*array)[0];
  }
  return value;
}

}  // namespace

RKVXMLValue RKVXMLDictionary::valueForKeyPath(std::string_view keyPath) const {
  size_t dot = keyPath.find('.');
  const RKVXMLValue* found = find(keyPath.substr(0, dot));
  RKVXMLValue current = found ? *found : RKVXMLValue();
  while (dot != std::string_view::npos && !current.isNull()) {
    keyPath.remove_prefix(dot + 1);
    dot = keyPath.find('.');
    current = valueForKey(current, keyPath.substr(0, dot));
  }
  return current;
}

RKVXMLArrayPtr RKVXMLDictionary::rkv_arrayValueForKeyPath(std::string_view keyPath) const {
  RKVXMLValue value = valueForKeyPath(keyPath);
  if (value.isNull()) return nullptr;
  if (const RKVXMLArrayPtr* array = value.arrayPtr()) return *array;
  return RKVXMLArray::make({std::move(value)});
}

RKVXMLValue RKVXMLDictionary::rkv_stringValueForKeyPath(std::string_view keyPath) const {
  RKVXMLValue value = firstIfList(valueForKeyPath(keyPath));
  if (const RKVXMLDictionary* element = value.dictionary()) {
    std::optional<std::string> text = element->rkv_innerText();
    return text ? RKVXMLValue(std::move(*text)) : RKVXMLValue();
  }
  return value;
}

RKVXMLValue RKVXMLDictionary::rkv_dictionaryValueForKeyPath(std::string_view keyPath) const {
  RKVXMLValue value = firstIfList(valueForKeyPath(keyPath));
  if (const std::string* text = value.string()) {
    return RKVXMLDictionary::make({{"__text", *text}});
  }
  return value;
}

std::string rkv_XMLEncodedString(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&apos;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

}  // namespace rkv
