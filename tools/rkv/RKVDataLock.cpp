#include "tools/rkv/RKVDataLock.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <ostream>
#include <system_error>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace rkv::cli {

std::optional<RKVDataLock> RKVDataLock::acquire(const std::string& folder, std::ostream& err,
                                                const std::string& who, std::string& problem) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error) {
    problem = "cannot create the data folder " + folder + ": " + error.message();
    return std::nullopt;
  }
  const std::string path = (std::filesystem::path(folder) / "rkv.lock").string();
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  if (fd < 0) {
    problem = "cannot open " + path + ": " + std::strerror(errno);
    return std::nullopt;
  }
  RKVDataLock lock(fd);
  if (::flock(fd, LOCK_EX | LOCK_NB) == 0) return lock;
  if (errno == EWOULDBLOCK) {
    err << who << ": waiting for another rkv command on " << folder << " (" << path << ")\n";
    err.flush();
  }
  int result;
  do {
    result = ::flock(fd, LOCK_EX);
  } while (result != 0 && errno == EINTR);
  if (result != 0) {
    problem = "cannot lock " + path + ": " + std::strerror(errno);
    return std::nullopt;
  }
  return lock;
}

RKVDataLock::~RKVDataLock() {
  if (fd_ >= 0) ::close(fd_);
}

}  // namespace rkv::cli
