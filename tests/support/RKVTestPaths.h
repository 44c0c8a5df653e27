// Locations of the source tree, the shared VAST corpus and the built tool, for tests.
#pragma once

#include <filesystem>
#include <string>

namespace rkv::test {

// The project's source directory (the folder holding CMakeLists.txt).
std::filesystem::path sourceDir();
// The folder of third-party VAST documents: iab/ (the IAB samples) and synthetic/.
std::filesystem::path corpusDir();
// The rkv executable built beside the tests.
std::filesystem::path toolPath();
// The whole content of a file; an empty string when it cannot be read.
std::string readFile(const std::filesystem::path& path);

}  // namespace rkv::test
