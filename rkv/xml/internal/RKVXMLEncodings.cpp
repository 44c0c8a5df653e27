#include "rkv/xml/internal/RKVXMLEncodings.h"

#include <cerrno>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include <iconv.h>

#include "rkv/foundation/RKVMutex.h"
#include "rkv/foundation/internal/RKVText.h"

namespace rkv::internal {

namespace {

// Encoding names are short runs of letters, digits, ".", "_" and "-" (XML's EncName); anything
// else (an iconv suffix such as "//TRANSLIT", a path) is refused before iconv sees it.
constexpr size_t kLongestName = 64;

bool isPlausibleName(std::string_view name) {
  if (name.empty() || name.size() > kLongestName) return false;
  for (char c : name) {
    if (!isASCIIAlpha(c) && !isASCIIDigit(c) && c != '.' && c != '_' && c != '-') return false;
  }
  return true;
}

// Whether ASCII character c may be encoded differently: expat needs every other ASCII character
// that can appear in markup as its own byte.
bool mayDifferFromASCII(int c) {
  if (c < 0x20) return c != '\t' && c != '\n' && c != '\r';
  return c == '$' || c == '@' || c == '\\' || c == '^' || c == '`' || c == '{' || c == '}' ||
         c == '~' || c == 0x7F;
}

struct IconvCloser {
  void operator()(iconv_t cd) const noexcept { iconv_close(cd); }
};
using Converter = std::unique_ptr<std::remove_pointer_t<iconv_t>, IconvCloser>;

// What one byte decodes to on its own: a scalar value, nothing (-1), or nullopt when the byte
// only starts a longer sequence or changes a shift state (not a single-byte encoding).
std::optional<int> decodeByte(iconv_t cd, unsigned char byte) {
  iconv(cd, nullptr, nullptr, nullptr, nullptr);  // back to the initial state
  char in = static_cast<char>(byte);
  char* inPointer = &in;
  size_t inLeft = 1;
  uint8_t out[64];
  char* outPointer = reinterpret_cast<char*>(out);
  size_t outLeft = sizeof(out);
  if (iconv(cd, &inPointer, &inLeft, &outPointer, &outLeft) == static_cast<size_t>(-1)) {
    if (errno == EINVAL) return std::nullopt;  // an incomplete sequence
    return -1;
  }
  // Some decoders (windows-1255, windows-1258) hold a character back to combine it with the
  // next one: flush it.
  if (iconv(cd, nullptr, nullptr, &outPointer, &outLeft) == static_cast<size_t>(-1)) return -1;
  size_t produced = sizeof(out) - outLeft;
  if (produced == 0) return std::nullopt;  // a shift sequence
  if (produced != 4) return -1;            // one byte for two characters
  uint32_t c =
      uint32_t{out[0]} | uint32_t{out[1]} << 8 | uint32_t{out[2]} << 16 | uint32_t{out[3]} << 24;
  if (c > 0xFFFF || (c >= 0xD800 && c <= 0xDFFF)) return -1;
  return static_cast<int>(c);
}

// The table of an encoding iconv knows, or nullopt when it is not a single-byte encoding that
// expat can read.
std::optional<RKVSingleByteTable> buildTable(iconv_t cd) {
  RKVSingleByteTable table;
  std::vector<bool> taken(0x10000);  // each character may have one byte only
  for (int b = 0; b < 256; ++b) {
    std::optional<int> c = decodeByte(cd, static_cast<unsigned char>(b));
    if (!c) return std::nullopt;
    if (b < 0x80 && *c != b && !mayDifferFromASCII(b)) return std::nullopt;
    if (*c >= 0 && (taken[static_cast<size_t>(*c)] || (b >= 0x80 && *c < 0x80))) c = -1;
    table[static_cast<size_t>(b)] = *c;
    if (*c >= 0) taken[static_cast<size_t>(*c)] = true;
  }
  // An ASCII character must not be claimed by a byte other than its own.
  for (int b = 0; b < 0x80; ++b) {
    int c = table[static_cast<size_t>(b)];
    if (c >= 0 && c < 0x80 && c != b && !mayDifferFromASCII(c)) return std::nullopt;
  }
  return table;
}

// Every name asked for whose encoding iconv knows, with its table or null. Bounded by the names
// iconv knows (about 1,200 on glibc, about a megabyte of tables if every one were asked for);
// names iconv does not know are not kept, so documents with made-up names cannot grow it.
struct Cache {
  RKVMutex mu;
  std::map<std::string, std::unique_ptr<const RKVSingleByteTable>, std::less<>> tables
      RKV_GUARDED_BY(mu);
};

Cache& cache() {
  static Cache* instance = new Cache;  // never destroyed: parses may run while the process exits
  return *instance;
}

}  // namespace

const RKVSingleByteTable* singleByteEncodingTable(std::string_view name) {
  if (!isPlausibleName(name)) return nullptr;
  const std::string key = asciiLowercased(name);
  Cache& c = cache();
  {
    RKVMutexLock lock(c.mu);
    if (auto it = c.tables.find(key); it != c.tables.end()) return it->second.get();
  }
  // Built outside the lock: two threads may build the same table; the first one stored wins.
  Converter cd(iconv_open("UTF-32LE", key.c_str()));
  if (cd.get() == reinterpret_cast<iconv_t>(-1)) {
    cd.release();
    return nullptr;
  }
  std::optional<RKVSingleByteTable> table = buildTable(cd.get());
  RKVMutexLock lock(c.mu);
  auto [it, inserted] = c.tables.try_emplace(key);
  if (inserted && table) it->second = std::make_unique<const RKVSingleByteTable>(*table);
  return it->second.get();
}

}  // namespace rkv::internal
