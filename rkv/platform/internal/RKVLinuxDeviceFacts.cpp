#include "rkv/platform/internal/RKVLinuxDeviceFacts.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <limits>
#include <vector>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "rkv/foundation/internal/RKVText.h"

namespace rkv::internal {

namespace {

constexpr uint32_t kRouteUp = 0x1;  // RTF_UP
// System files read here are a few kilobytes; anything bigger is not what we expect.
constexpr size_t kMaxSystemFileSize = 1 << 20;

// Blanks between the fields of a line (LF ends the line).
constexpr std::string_view kBlanks = " \t\r";
bool isBlank(char c) {
  return kBlanks.find(c) != std::string_view::npos;
}

std::vector<std::string_view> lines(std::string_view text) {
  std::vector<std::string_view> result;
  size_t start = 0;
  while (start <= text.size()) {
    const size_t end = text.find('\n', start);
    if (end == std::string_view::npos) {
      if (start < text.size()) result.push_back(text.substr(start));
      break;
    }
    result.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return result;
}

std::vector<std::string_view> fields(std::string_view line) {
  std::vector<std::string_view> result;
  size_t i = 0;
  while (i < line.size()) {
    while (i < line.size() && isBlank(line[i]))
      ++i;
    const size_t start = i;
    while (i < line.size() && !isBlank(line[i]))
      ++i;
    if (i > start) result.push_back(line.substr(start, i - start));
  }
  return result;
}

template <typename T>
std::optional<T> parseNumber(std::string_view text, int base) {
  T value{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

// An os-release value: a quoted shell word (with backslash escapes inside double quotes) or a
// bare one.
std::string unquote(std::string_view value) {
  value = value.substr(0, value.find_last_not_of(kBlanks) + 1);  // npos + 1: nothing left
  if (value.empty() || (value.front() != '"' && value.front() != '\'')) return std::string(value);
  const char quote = value.front();
  std::string result;
  for (size_t i = 1; i < value.size(); ++i) {
    const char c = value[i];
    if (c == quote) break;
    if (quote == '"' && c == '\\' && i + 1 < value.size()) {
      result.push_back(value[++i]);
    } else {
      result.push_back(c);
    }
  }
  return result;
}

}  // namespace

std::optional<std::string> osReleaseVersionID(std::string_view osRelease) {
  std::optional<std::string> version;
  constexpr std::string_view kKey = "VERSION_ID=";
  for (std::string_view line : lines(osRelease)) {
    line = trimmed(line, kBlanks);
    if (!line.starts_with(kKey)) continue;
    std::string value = unquote(line.substr(kKey.size()));
    // The last assignment wins, as when the file is sourced by a shell.
    version = value.empty() ? std::nullopt : std::optional<std::string>(std::move(value));
  }
  return version;
}

std::optional<std::string> defaultRouteInterface(std::string_view routeTable) {
  std::optional<std::string> best;
  uint64_t bestMetric = std::numeric_limits<uint64_t>::max();
  bool header = true;
  for (std::string_view line : lines(routeTable)) {
    if (header) {  // "Iface Destination Gateway Flags RefCnt Use Metric Mask ..."
      header = false;
      continue;
    }
    const auto f = fields(line);
    if (f.size() < 8) continue;
    const auto destination = parseNumber<uint32_t>(f[1], 16);
    const auto flags = parseNumber<uint32_t>(f[3], 16);
    const auto metric = parseNumber<uint64_t>(f[6], 10);
    const auto mask = parseNumber<uint32_t>(f[7], 16);
    if (!destination || !flags || !metric || !mask) continue;
    if (*destination != 0 || *mask != 0 || (*flags & kRouteUp) == 0) continue;
    if (!best || *metric < bestMetric) {
      best = std::string(f[0]);
      bestMetric = *metric;
    }
  }
  return best;
}

std::optional<std::string> IPv4AddressOfInterface(std::string_view interfaceName) {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return std::nullopt;
  std::optional<std::string> address;
  for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
    if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET) continue;
    if (entry->ifa_name == nullptr || interfaceName != entry->ifa_name) continue;
    sockaddr_in ipv4{};
    std::memcpy(&ipv4, entry->ifa_addr, sizeof ipv4);
    char text[INET_ADDRSTRLEN] = {};
    if (inet_ntop(AF_INET, &ipv4.sin_addr, text, sizeof text) != nullptr) {
      address = text;
      break;
    }
  }
  freeifaddrs(list);
  return address;
}

std::optional<std::string> languageTagFromLocaleName(std::string_view localeName) {
  const size_t end = localeName.find_first_of(".@");
  std::string_view name = localeName.substr(0, end);
  if (name.empty() || name == "C" || name == "POSIX") return std::nullopt;
  std::string tag;
  size_t letters = 0;  // of the language part
  bool inLanguage = true;
  for (char c : name) {
    if (c == '_' || c == '-') {
      if (tag.empty() || tag.back() == '-') return std::nullopt;
      inLanguage = false;
      tag.push_back('-');
    } else if (isASCIIAlpha(c) || (!inLanguage && isASCIIDigit(c))) {
      if (inLanguage) ++letters;
      tag.push_back(c);
    } else {
      return std::nullopt;
    }
  }
  if (letters < 2 || letters > 8 || tag.back() == '-') return std::nullopt;
  return tag;
}

std::optional<std::string> preferredLanguage(
    const std::function<const char*(const char*)>& getEnvironment) {
  // LANGUAGE is a colon-separated list of preferred languages (a GNU extension).
  if (const char* languages = getEnvironment("LANGUAGE")) {
    std::string_view list(languages);
    size_t start = 0;
    while (start <= list.size()) {
      const size_t colon = std::min(list.find(':', start), list.size());
      if (auto tag = languageTagFromLocaleName(list.substr(start, colon - start))) return tag;
      start = colon + 1;
    }
  }
  // Otherwise the locale of messages, with the usual precedence: the first one set decides.
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = getEnvironment(variable);
    if (value != nullptr && *value != '\0') return languageTagFromLocaleName(value);
  }
  return std::nullopt;
}

int compareNumerically(std::string_view a, std::string_view b) {
  size_t i = 0;
  size_t j = 0;
  while (i < a.size() && j < b.size()) {
    if (isASCIIDigit(a[i]) && isASCIIDigit(b[j])) {
      size_t aEnd = i;
      size_t bEnd = j;
      while (aEnd < a.size() && isASCIIDigit(a[aEnd]))
        ++aEnd;
      while (bEnd < b.size() && isASCIIDigit(b[bEnd]))
        ++bEnd;
      std::string_view aRun = a.substr(i, aEnd - i);
      std::string_view bRun = b.substr(j, bEnd - j);
      while (aRun.size() > 1 && aRun.front() == '0')
        aRun.remove_prefix(1);
      while (bRun.size() > 1 && bRun.front() == '0')
        bRun.remove_prefix(1);
      if (aRun.size() != bRun.size()) return aRun.size() < bRun.size() ? -1 : 1;
      if (const int order = aRun.compare(bRun); order != 0) return order < 0 ? -1 : 1;
      i = aEnd;
      j = bEnd;
      continue;
    }
    const auto ca = static_cast<unsigned char>(a[i]);
    const auto cb = static_cast<unsigned char>(b[j]);
    if (ca != cb) return ca < cb ? -1 : 1;
    ++i;
    ++j;
  }
  if (i < a.size()) return 1;
  if (j < b.size()) return -1;
  return 0;
}

std::optional<std::string> readSystemFile(const char* path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return std::nullopt;
  std::string content;
  char buffer[4096];
  while (in.read(buffer, sizeof buffer) || in.gcount() > 0) {
    content.append(buffer, static_cast<size_t>(in.gcount()));
    if (content.size() > kMaxSystemFileSize) return std::nullopt;
  }
  return content;
}

}  // namespace rkv::internal
