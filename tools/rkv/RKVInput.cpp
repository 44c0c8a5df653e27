#include "tools/rkv/RKVInput.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <istream>
#include <streambuf>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace rkv::cli {

namespace {

char asciiLower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool isSchemeCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '+' ||
         c == '-' || c == '.';
}

// A scheme (a letter, then letters, digits, "+", "-" or ".") followed by "://".
bool looksLikeURL(std::string_view text) {
  const size_t colon = text.find("://");
  if (colon == std::string_view::npos || colon == 0) return false;
  const char first = text[0];
  if (!((first >= 'a' && first <= 'z') || (first >= 'A' && first <= 'Z'))) return false;
  for (size_t i = 1; i < colon; ++i) {
    if (!isSchemeCharacter(text[i])) return false;
  }
  return true;
}

std::string tooLarge(size_t maximumBytes) {
  return "more than " + std::to_string(maximumBytes) + " bytes";
}

// The whole file; nullopt with errno's text in `reason` when it cannot be read, or when it holds
// more than `maximumBytes` (an endless device such as /dev/zero).
std::optional<std::string> readFile(const std::string& path, size_t maximumBytes,
                                    std::string& reason) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    reason = std::strerror(errno);
    return std::nullopt;
  }
  std::string bytes;
  struct stat info {};
  if (::fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0)
    bytes.reserve(std::min(static_cast<size_t>(info.st_size), maximumBytes + 1));
  char buffer[64 * 1024];
  while (true) {
    const ssize_t got = ::read(fd, buffer, sizeof buffer);
    if (got > 0) {
      if (static_cast<size_t>(got) > maximumBytes - bytes.size()) {
        reason = tooLarge(maximumBytes);
        ::close(fd);
        return std::nullopt;
      }
      bytes.append(buffer, static_cast<size_t>(got));
    } else if (got == 0) {
      break;
    } else if (errno != EINTR) {
      reason = std::strerror(errno);  // a directory fails here, with EISDIR
      ::close(fd);
      return std::nullopt;
    }
  }
  ::close(fd);
  return bytes;
}

}  // namespace

bool equalsIgnoringASCIICase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (asciiLower(a[i]) != asciiLower(b[i])) return false;
  }
  return true;
}

std::optional<RKVInput> readInput(const std::string& argument, std::istream& standardInput,
                                  std::string& problem, size_t maximumBytes) {
  RKVInput input;
  if (argument == "-") {
    std::clearerr(stdin);
    std::string bytes;
    std::streambuf* const source = standardInput.rdbuf();
    char buffer[64 * 1024];
    std::streamsize got = 0;
    while (source && (got = source->sgetn(buffer, sizeof buffer)) > 0) {
      if (static_cast<size_t>(got) > maximumBytes - bytes.size()) {
        problem = "cannot read standard input: " + tooLarge(maximumBytes);
        return std::nullopt;
      }
      bytes.append(buffer, static_cast<size_t>(got));
    }
    // std::cin reads through stdio and ends a failed read (a directory, a closed descriptor)
    // as if the input had ended: only the FILE's error flag tells the two apart.
    const bool failed = &standardInput == &std::cin && std::ferror(stdin);
    const int error = errno;
    if (standardInput.bad() || failed) {
      problem = "cannot read standard input";
      if (failed) problem += std::string(": ") + std::strerror(error);
      return std::nullopt;
    }
    input.bytes = std::move(bytes);
  } else if (looksLikeURL(argument)) {
    std::optional<RKVURL> url = RKVURL::withString(argument);
    if (!url || !url->hasAuthority() || !url->host() || url->host()->empty()) {
      problem = "not a valid URL: " + argument;
      return std::nullopt;
    }
    const std::string_view scheme = url->scheme().value_or("");
    if (!equalsIgnoringASCIICase(scheme, "http") && !equalsIgnoringASCIICase(scheme, "https")) {
      problem = "not an http or https URL: " + argument;
      return std::nullopt;
    }
    input.url = std::move(url);
  } else {
    std::string reason;
    input.bytes = readFile(argument, maximumBytes, reason);
    if (!input.bytes) {
      problem = "cannot read " + argument + ": " + reason;
      return std::nullopt;
    }
  }
  return input;
}

}  // namespace rkv::cli
