// What the tests see of a dictionary's key index. Not for library code.
#pragma once

#include <cstddef>

#include "rkv/xml/RKVXMLDictionary.h"

namespace rkv::internal {

struct RKVXMLDictionaryAccess {
  // The most keys that share one bucket of the dictionary's hash index (the steps a look-up may
  // have to take), or 0 when the dictionary has no index (16 keys or fewer).
  static size_t longestIndexChain(const RKVXMLDictionary& dictionary);
};

}  // namespace rkv::internal
