#include "tests/support/RKVTestPaths.h"

#include <fstream>
#include <sstream>

namespace rkv::test {

std::filesystem::path sourceDir() {
  return RKV_SOURCE_DIR;
}

std::filesystem::path corpusDir() {
  return RKV_CORPUS_DIR;
}

std::filesystem::path toolPath() {
  return RKV_TOOL_PATH;
}

std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return {};
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

}  // namespace rkv::test
