// RKVVASTUniversalAdId: the registry and identifier of a creative, from a UniversalAdId element.
// An immutable value; safe to copy and share between threads.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "rkv/RKVExport.h"
#include "rkv/xml/RKVXMLDictionary.h"

namespace rkv {

class RKV_EXPORT RKVVASTUniversalAdId {
 public:
  // nullopt when the pair is not isValid.
  static std::optional<RKVVASTUniversalAdId> withRegistry(std::string registry, std::string value);
  // A UniversalAdId element: needs "_idRegistry" and either a "__text" or an "_idValue"; the
  // value is the text, or "_idValue" when the text is absent or empty (the older form). nullopt
  // when something is missing or the result is not isValid.
  static std::optional<RKVVASTUniversalAdId> withDictionary(const RKVXMLDictionary& element);

  // The idRegistry attribute.
  const std::string& registry() const { return registry_; }
  // The identifier.
  const std::string& value() const { return value_; }

  // False when the value is exactly "unknown" (VAST's placeholder, case-sensitive: "Unknown" is
  // an identifier), whatever the registry; otherwise true when both are non-empty.
  bool isValid() const;

  bool isEqualToUniversalAdId(const RKVVASTUniversalAdId& other) const {
    return registry_ == other.registry_ && value_ == other.value_;
  }
  friend bool operator==(const RKVVASTUniversalAdId& a, const RKVVASTUniversalAdId& b) {
    return a.isEqualToUniversalAdId(b);
  }

  // Keys "registry", "value".
  std::string archive() const;
  // nullopt when the text is not a JSON object, a key is missing or the pair is not isValid.
  static std::optional<RKVVASTUniversalAdId> unarchive(std::string_view json);

 private:
  RKVVASTUniversalAdId(std::string registry, std::string value);

  std::string registry_;
  std::string value_;
};

}  // namespace rkv
