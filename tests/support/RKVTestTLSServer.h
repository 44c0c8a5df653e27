// An HTTPS server on 127.0.0.1 for tests, with a self-signed certificate for "127.0.0.1" made
// when it starts (by the openssl command). Serves `body` with status 200 at every path.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

namespace httplib {
class SSLServer;
}

namespace rkv::test {

class RKVTestTLSServer {
 public:
  explicit RKVTestTLSServer(std::string body);
  ~RKVTestTLSServer();

  RKVTestTLSServer(const RKVTestTLSServer&) = delete;
  RKVTestTLSServer& operator=(const RKVTestTLSServer&) = delete;

  // False when no certificate could be made or the server could not start.
  bool isRunning() const { return running_; }
  // "https://127.0.0.1:<port>" followed by `path`.
  std::string url(std::string_view path) const;
  // The PEM file of the self-signed certificate (its own certificate authority).
  const std::filesystem::path& certificateFile() const { return certificate_; }

 private:
  std::filesystem::path directory_;
  std::filesystem::path certificate_;
  std::unique_ptr<httplib::SSLServer> server_;
  std::thread thread_;
  int port_ = 0;
  bool running_ = false;
};

}  // namespace rkv::test
