// Builds dictionary trees for the model tests from small XML texts.
#pragma once

#include <string_view>

#include <gtest/gtest.h>

#include "rkv/xml/RKVXMLDictionary.h"

namespace rkv::test {

// The root element of the text's tree; the test fails when the text does not parse.
inline RKVXMLDictionaryPtr element(std::string_view xml) {
  RKVXMLDictionaryPtr root = RKVXMLDictionary::rkv_dictionaryWithXMLString(xml);
  EXPECT_NE(root, nullptr) << xml;
  return root ? root : RKVXMLDictionary::make();
}

}  // namespace rkv::test
