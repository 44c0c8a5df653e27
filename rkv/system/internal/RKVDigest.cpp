#include "rkv/system/internal/RKVDigest.h"

#include <openssl/evp.h>

#include "rkv/foundation/RKVRandom.h"

namespace rkv::internal {

namespace {

constexpr char kLowerDigits[] = "0123456789abcdef";
constexpr char kUpperDigits[] = "0123456789ABCDEF";

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Sets the version nibble and the RFC 4122 variant bits (10xx).
void stamp(UUIDBytes& bytes, uint8_t version) {
  bytes[6] = static_cast<uint8_t>((bytes[6] & 0x0F) | (version << 4));
  bytes[8] = static_cast<uint8_t>((bytes[8] & 0x3F) | 0x80);
}

}  // namespace

std::optional<std::string> digestOf(DigestAlgorithm algorithm, std::string_view data) {
  const EVP_MD* type = algorithm == DigestAlgorithm::md5 ? EVP_md5() : EVP_sha1();
  if (type == nullptr) return std::nullopt;
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  if (EVP_Digest(data.data(), data.size(), digest, &size, type, nullptr) != 1) return std::nullopt;
  return std::string(reinterpret_cast<const char*>(digest), size);
}

std::string lowerHex(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size() * 2);
  for (unsigned char byte : bytes) {
    text += kLowerDigits[byte >> 4];
    text += kLowerDigits[byte & 0x0F];
  }
  return text;
}

std::string uuidString(const UUIDBytes& bytes) {
  std::string text;
  text.reserve(36);
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    text += kUpperDigits[bytes[i] >> 4];
    text += kUpperDigits[bytes[i] & 0x0F];
  }
  return text;
}

std::optional<UUIDBytes> parseUUID(std::string_view text) {
  if (text.size() != 36) return std::nullopt;
  UUIDBytes bytes{};
  size_t at = 0;
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) {
      if (text[at++] != '-') return std::nullopt;
    }
    const int high = hexValue(text[at++]);
    const int low = hexValue(text[at++]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes[i] = static_cast<uint8_t>(high << 4 | low);
  }
  return bytes;
}

UUIDBytes randomUUID() {
  UUIDBytes bytes{};
  RKVRandom::randomBytes(bytes.data(), bytes.size());
  stamp(bytes, 4);
  return bytes;
}

std::optional<UUIDBytes> nameBasedUUID(const UUIDBytes& nameSpace, std::string_view name) {
  std::string input(reinterpret_cast<const char*>(nameSpace.data()), nameSpace.size());
  input.append(name);
  auto digest = digestOf(DigestAlgorithm::sha1, input);
  if (!digest || digest->size() < 16) return std::nullopt;
  UUIDBytes bytes{};
  for (size_t i = 0; i < bytes.size(); ++i)
    bytes[i] = static_cast<uint8_t>((*digest)[i]);
  stamp(bytes, 5);
  return bytes;
}

std::optional<UUIDBytes> machineIDFromText(std::string_view text) {
  const size_t end = text.find_last_not_of(" \t\n\r");
  text = text.substr(0, end == std::string_view::npos ? 0 : end + 1);
  if (text.size() != 32) return std::nullopt;
  UUIDBytes bytes{};
  bool allZero = true;
  for (size_t i = 0; i < bytes.size(); ++i) {
    const int high = hexValue(text[2 * i]);
    const int low = hexValue(text[2 * i + 1]);
    if (high < 0 || low < 0) return std::nullopt;
    bytes[i] = static_cast<uint8_t>(high << 4 | low);
    allZero = allZero && bytes[i] == 0;
  }
  if (allZero) return std::nullopt;
  return bytes;
}

}  // namespace rkv::internal
