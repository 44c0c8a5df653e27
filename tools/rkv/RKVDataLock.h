// The lock that serialises rkv processes over one data folder. The pixel store is loaded once
// and written whole, so two processes that each loaded it would each write back a list without
// the other's changes; a subcommand that touches the store holds this lock from before it loads
// until after its last save.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>

namespace rkv::cli {

class RKVDataLock {
 public:
  // Takes an exclusive flock(2) on FOLDER/rkv.lock (folder and file created when missing),
  // waiting for whoever holds it; says on `err` that it waits, with `who` as the line's prefix.
  // std::nullopt, with `problem` set, when the folder or file cannot be made or locked.
  static std::optional<RKVDataLock> acquire(const std::string& folder, std::ostream& err,
                                            const std::string& who, std::string& problem);

  RKVDataLock(RKVDataLock&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  RKVDataLock& operator=(RKVDataLock&&) = delete;
  RKVDataLock(const RKVDataLock&) = delete;
  RKVDataLock& operator=(const RKVDataLock&) = delete;
  // Closing the file releases the lock (as the process's death does).
  ~RKVDataLock();

 private:
  explicit RKVDataLock(int fd) : fd_(fd) {}
  int fd_;
};

}  // namespace rkv::cli
