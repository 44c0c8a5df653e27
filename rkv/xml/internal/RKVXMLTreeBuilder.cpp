#include "rkv/xml/internal/RKVXMLTreeBuilder.h"

#include <cstdint>

#include "rkv/foundation/internal/RKVText.h"
#include "rkv/xml/internal/RKVNodeCache.h"

namespace rkv::internal {

namespace {

// Whether `text` starts (or ends) with a non-ASCII white-space or line-break character
// (U+0085, U+00A0, U+1680, U+2000..U+200A, U+2028, U+2029, U+202F, U+205F, U+3000); its length in
// bytes, or 0. The text is valid UTF-8 (expat checked it).
size_t unicodeSpaceLength(std::string_view text, bool atEnd) {
  auto matches = [&](std::string_view sequence) {
    return atEnd ? text.ends_with(sequence) : text.starts_with(sequence);
  };
  static constexpr std::string_view kSpaces[] = {
      "\xC2\x85",     "\xC2\xA0",     "\xE1\x9A\x80", "\xE2\x80\x80", "\xE2\x80\x81",
      "\xE2\x80\x82", "\xE2\x80\x83", "\xE2\x80\x84", "\xE2\x80\x85", "\xE2\x80\x86",
      "\xE2\x80\x87", "\xE2\x80\x88", "\xE2\x80\x89", "\xE2\x80\x8A", "\xE2\x80\xA8",
      "\xE2\x80\xA9", "\xE2\x80\xAF", "\xE2\x81\x9F", "\xE3\x80\x80"};
  for (std::string_view space : kSpaces) {
    if (matches(space)) return space.size();
  }
  return 0;
}

// Whether the element holds anything that keeps it from being collapsed or stripped: a child
// element, comments, or attributes as rkv_attributes() sees them (the "__attributes" map decides
// when that key exists, else any other "_" key counts). One pass over the keys.
bool hasAttributesChildrenOrComments(const RKVXMLDictionary& node) {
  bool attributesKey = false, attributesMap = false, otherAttribute = false;
  for (const auto& [key, value] : node.entries()) {
    if (key.empty() || key[0] != '_') return true;  // a child element
    if (key == "__text" || key == "__name") continue;
    if (key == "__comments") return true;
    if (key == "__attributes") {
      attributesKey = true;
      const RKVXMLDictionary* attributes = value.dictionary();
      attributesMap = attributes && !attributes->empty();
    } else {
      otherAttribute = true;
    }
  }
  return attributesKey ? attributesMap : otherAttribute;
}

}  // namespace

void trimWhiteSpaceAndNewlines(std::string& text) {
  // Every character trimmed begins with a byte up to 0x20 (ASCII) or above 0x7F (UTF-8) and ends
  // with one too: most runs ("00:00:30", a URL) need no more than this look at their two ends.
  auto mayBeSpace = [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte <= 0x20 || byte >= 0x80;
  };
  if (text.empty() || (!mayBeSpace(text.front()) && !mayBeSpace(text.back()))) return;
  // ASCII white space (the indentation between elements, nearly always all there is) through the
  // shared helper, then any Unicode separator at either end, until neither end changes.
  std::string_view rest = text;
  for (;;) {
    rest = trimmed(rest);
    if (rest.empty() || (static_cast<unsigned char>(rest.front()) < 0x80 &&
                         static_cast<unsigned char>(rest.back()) < 0x80))
      break;
    size_t tail = unicodeSpaceLength(rest, true);
    rest.remove_suffix(tail);
    size_t head = unicodeSpaceLength(rest, false);
    rest.remove_prefix(head);
    if (head == 0 && tail == 0) break;
  }
  if (rest.size() == text.size()) return;
  const size_t begin = static_cast<size_t>(rest.data() - text.data());
  text.resize(begin + rest.size());
  text.erase(0, begin);
}

void RKVXMLTreeBuilder::addText(std::string_view piece) {
  if (!hasText_) {
    text_.clear();
    hasText_ = true;
  }
  // Trimming drops every leading white-space character anyway, so leading ASCII white space
  // (the indentation between elements, mostly) is not even copied.
  if (text_.empty() && options_.trimWhiteSpace) {
    size_t skip = piece.find_first_not_of(kASCIIWhiteSpace);
    piece.remove_prefix(skip == std::string_view::npos ? piece.size() : skip);
  }
  text_.append(piece);
}

void RKVXMLTreeBuilder::endText() {
  if (!hasText_) return;
  hasText_ = false;
  if (options_.trimWhiteSpace) trimWhiteSpaceAndNewlines(text_);
  if (text_.empty() || stack_.empty()) return;
  // The run is copied (not moved) out of the buffer, so the buffer keeps its capacity for the
  // next run: text arrives in pieces, and regrowing it for every run costs more than one copy.
  RKVXMLDictionary& node = *stack_.back();
  if (RKVXMLValue* existing = node.find("__text"); existing && !existing->isNull()) {
    if (RKVXMLArray* runs = existing->array()) {
      runs->push_back(RKVXMLValue(text_));
    } else {
      std::vector<RKVXMLValue> items;
      items.reserve(2);
      items.push_back(std::move(*existing));
      items.push_back(RKVXMLValue(text_));
      *existing = RKVXMLArray::make(std::move(items));
    }
  } else {
    node.appendNewKey("__text", RKVXMLValue(text_));
  }
  text_.clear();
}

void RKVXMLTreeBuilder::didStartElement(std::string_view name, const RKVXMLAttributes& attributes) {
  endText();
  auto node = makeNode<RKVXMLDictionary>();
  bool named = options_.nodeNameMode == RKVXMLDictionaryNodeNameModeRootOnly
                   ? root_ == nullptr
                   : options_.nodeNameMode == RKVXMLDictionaryNodeNameModeAlways;
  size_t attributeCount = attributes.size();
  // Room for the name, the attributes and one more key (the text or the first child's list).
  node->reserve(attributeCount + (named ? 2 : 1));
  if (named) node->appendNewKey("__name", std::string(name));
  if (attributeCount > 0) {
    switch (options_.attributesMode) {
      case RKVXMLDictionaryAttributesModePrefixed: {
        attributes.forEach([&](std::string_view attribute, std::string_view value) {
          std::string key;
          key.reserve(attribute.size() + 1);
          key += '_';
          key += attribute;
          // Attribute names are unique; only "_name" can meet a key set before ("__name").
          if (named && attribute == "_name") {
            node->set(key, std::string(value));
          } else {
            node->appendNewKey(std::move(key), std::string(value));
          }
        });
        break;
      }
      case RKVXMLDictionaryAttributesModeDictionary: {
        auto map = RKVXMLDictionary::make();
        attributes.forEach([&](std::string_view attribute, std::string_view value) {
          map->set(attribute, std::string(value));
        });
        node->set("__attributes", std::move(map));
        break;
      }
      case RKVXMLDictionaryAttributesModeUnprefixed:
        attributes.forEach([&](std::string_view attribute, std::string_view value) {
          node->set(attribute, std::string(value));
        });
        break;
      default:
        break;
    }
  }

  if (root_) {
    RKVXMLDictionary* raw = node.get();
    RKVXMLDictionary& parent = *stack_.back();
    RKVXMLValue* existing = parent.find(name);
    if (existing && existing->isArray()) {
      existing->array()->push_back(RKVXMLValue(std::move(node)));
    } else if (existing && !existing->isNull()) {
      std::vector<RKVXMLValue> items;
      items.reserve(2);
      items.push_back(std::move(*existing));
      items.emplace_back(std::move(node));
      *existing = RKVXMLArray::make(std::move(items));
    } else {
      RKVXMLValue value;
      if (options_.alwaysUseArrays) {
        RKVXMLArrayPtr list = makeNode<RKVXMLArray>();
        list->push_back(RKVXMLValue(std::move(node)));
        value = std::move(list);
      } else {
        value = std::move(node);
      }
      if (existing) {
        *existing = std::move(value);
      } else {
        parent.appendNewKey(std::string(name), std::move(value));
      }
    }
    stack_.push_back(raw);
  } else {
    root_ = node;
    stack_.assign(1, node.get());
    if (options_.wrapRootNode) {
      root_ = RKVXMLDictionary::make();
      root_->set(name, node);
      stack_.insert(stack_.begin(), root_.get());
    }
  }
}

void RKVXMLTreeBuilder::didEndElement(std::string_view name) {
  endText();
  if (stack_.empty()) return;
  RKVXMLDictionary* node = stack_.back();
  stack_.pop_back();
  if (settle(*node, name) && rootChildHandler_ != nullptr) offerRootChild(*node, name);
}

bool RKVXMLTreeBuilder::settle(RKVXMLDictionary& node, std::string_view name) {
  if (hasAttributesChildrenOrComments(node)) return true;
  if (stack_.empty()) return true;  // the root element is never collapsed or stripped
  RKVXMLDictionary& parent = *stack_.back();

  // The node's key in its parent: its "__name" when it carries one; otherwise the key under
  // which it was inserted, which is also the first key holding it or a dictionary equal to it
  // (no earlier sibling list can hold such a dictionary: those were collapsed or stripped in
  // their own turn).
  std::string_view key = name;
  std::string ownName;  // a copy: the node goes away when it is stripped
  if (const RKVXMLValue* nameValue = node.find("__name")) {
    const std::string* text = nameValue->string();
    if (!text) return true;  // a "__name" that is not a string names no key
    ownName = *text;
    key = ownName;
  }

  const RKVXMLValue* textValue = node.find("__text");
  bool hasInnerText = textValue && (textValue->isString() || textValue->isArray());
  if (hasInnerText && options_.collapseTextNodes) {
    std::string innerText = node.rkv_innerText().value_or(std::string());
    RKVXMLValue* value = parent.find(key);
    if (value && value->isArray()) {
      RKVXMLArray& list = *value->array();
      if (!list.empty()) list[list.size() - 1] = std::move(innerText);
    } else {
      parent.set(key, std::move(innerText));
    }
    return false;
  }
  if (!hasInnerText && options_.stripEmptyNodes) {
    RKVXMLValue* value = parent.find(key);
    if (value && value->isArray()) {
      RKVXMLArray& list = *value->array();
      if (!list.empty()) list.pop_back();
    } else {
      parent.erase(key);
    }
    return false;
  }
  if (!hasInnerText && !options_.collapseTextNodes && !options_.stripEmptyNodes) {
    node.set("__text", std::string());
  }
  return true;
}

void RKVXMLTreeBuilder::offerRootChild(RKVXMLDictionary& node, std::string_view name) {
  // The document's root sits under the wrapper when the root is wrapped.
  const size_t rootDepth = options_.wrapRootNode ? 2 : 1;
  if (stack_.size() != rootDepth) return;
  RKVXMLDictionary& root = *stack_.back();
  RKVXMLValue* value = root.find(name);
  RKVXMLArray* list = value != nullptr ? value->array() : nullptr;
  // Only an element that is the last entry of its list (where it was put) is offered.
  if (list == nullptr || list->empty() || (*list)[list->size() - 1].dictionary() != &node) return;
  if ((*rootChildHandler_)(root, name, node)) list->pop_back();
}

void RKVXMLTreeBuilder::foundComment(std::string_view text) {
  if (!options_.preserveComments || stack_.empty()) return;
  RKVXMLDictionary& node = *stack_.back();
  RKVXMLValue* comments = node.find("__comments");
  if (comments && comments->isArray()) {
    comments->array()->push_back(std::string(text));
  } else if (comments && !comments->isNull()) {
    *comments = RKVXMLArray::make({std::move(*comments), RKVXMLValue(std::string(text))});
  } else {
    node.set("__comments", RKVXMLArray::make({RKVXMLValue(std::string(text))}));
  }
}

RKVXMLDictionaryPtr RKVXMLTreeBuilder::takeRoot() {
  stack_.clear();
  text_.clear();
  hasText_ = false;
  return std::move(root_);
}

}  // namespace rkv::internal
