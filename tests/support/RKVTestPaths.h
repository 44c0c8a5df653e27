// The shared VAST corpus, for tests.
#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

namespace rkv::test {

// The folder of third-party VAST documents: iab/ (the IAB samples) and synthetic/.
inline std::filesystem::path corpusDir() {
  return RKV_CORPUS_DIR;
}
// The whole content of a file; an empty string when it cannot be read.
inline std::string readFile(const std::filesystem::path& path) {
  std::ostringstream out;
  out << std::ifstream(path, std::ios::binary).rdbuf();
  return out.str();
}

}  // namespace rkv::test
