// Locations of the shared VAST corpus and the built tool, for tests.
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
// The rkv executable built beside the tests.
inline std::filesystem::path toolPath() {
  return RKV_TOOL_PATH;
}
// The whole content of a file; an empty string when it cannot be read.
inline std::string readFile(const std::filesystem::path& path) {
  std::ostringstream out;
  out << std::ifstream(path, std::ios::binary).rdbuf();
  return out.str();
}

}  // namespace rkv::test
