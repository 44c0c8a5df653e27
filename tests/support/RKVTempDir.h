// A fresh folder under the system's temporary folder, removed with everything in it when the
// object goes.
#pragma once

#include <filesystem>
#include <string>
#include <system_error>

#include <stdlib.h>

namespace rkv::test {

class RKVTempDir {
 public:
  RKVTempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "rkv-test-XXXXXX").string();
    if (mkdtemp(pattern.data())) path_ = pattern;
  }
  ~RKVTempDir() {
    std::error_code ec;
    if (!path_.empty()) std::filesystem::remove_all(path_, ec);
  }
  RKVTempDir(const RKVTempDir&) = delete;
  RKVTempDir& operator=(const RKVTempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::string file(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

}  // namespace rkv::test
