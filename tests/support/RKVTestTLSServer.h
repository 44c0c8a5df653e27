// An HTTPS server on 127.0.0.1 for tests, with a self-signed certificate for "127.0.0.1" made
// when it starts (by the openssl command). Serves `body` with status 200 at every path.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include <httplib.h>

#include "tests/support/RKVTempDir.h"
#include "tests/support/RKVTestThreads.h"

namespace rkv::test {

class RKVTestTLSServer {
 public:
  explicit RKVTestTLSServer(std::string body) {
    if (directory_.path().empty()) return;
    const std::string key = directory_.file("key.pem");
    const std::string command =
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2"
        " -subj /CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1 -keyout '" +
        key + "' -out '" + certificateFile().string() + "' >/dev/null 2>&1";
    if (std::system(command.c_str()) != 0) return;
    server_ = std::make_unique<httplib::SSLServer>(certificateFile().c_str(), key.c_str());
    server_->Get(".*", [body](const httplib::Request&, httplib::Response& response) {
      response.set_content(body, "text/plain");
    });
    port_ = server_->is_valid() ? server_->bind_to_any_port("127.0.0.1") : -1;
    if (port_ <= 0) return;
    thread_ = std::thread([this] { server_->listen_after_bind(); });
    // stop() is only heard once the server runs; wait for it so that the destructor can stop it.
    running_ = eventually([this] { return server_->is_running(); });
  }
  ~RKVTestTLSServer() {
    if (thread_.joinable()) {
      server_->stop();
      thread_.join();
    }
  }

  // False when no certificate could be made or the server could not start.
  bool isRunning() const { return running_; }
  // "https://127.0.0.1:<port>" followed by `path`.
  std::string url(std::string_view path) const {
    return "https://127.0.0.1:" + std::to_string(port_) + std::string(path);
  }
  // The PEM file of the self-signed certificate (its own certificate authority).
  std::filesystem::path certificateFile() const { return directory_.file("certificate.pem"); }

 private:
  RKVTempDir directory_;
  std::unique_ptr<httplib::SSLServer> server_;
  std::thread thread_;
  int port_ = 0;
  bool running_ = false;
};

}  // namespace rkv::test
