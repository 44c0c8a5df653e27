#include "tests/support/RKVTestTLSServer.h"

#include <chrono>
#include <cstdlib>

#include <httplib.h>
#include <stdlib.h>

namespace rkv::test {

RKVTestTLSServer::RKVTestTLSServer(std::string body) {
  std::string pattern = (std::filesystem::temp_directory_path() / "rkv-tls-XXXXXX").string();
  if (!::mkdtemp(pattern.data())) return;
  directory_ = pattern;
  certificate_ = directory_ / "certificate.pem";
  const auto key = directory_ / "key.pem";
  const std::string command =
      "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2"
      " -subj /CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1 -keyout '" +
      key.string() + "' -out '" + certificate_.string() + "' >/dev/null 2>&1";
  if (std::system(command.c_str()) != 0) return;

  server_ = std::make_unique<httplib::SSLServer>(certificate_.c_str(), key.c_str());
  if (!server_->is_valid()) return;
  server_->Get(".*",
               [body = std::move(body)](const httplib::Request&, httplib::Response& response) {
                 response.set_content(body, "text/plain");
               });
  port_ = server_->bind_to_any_port("127.0.0.1");
  if (port_ <= 0) return;
  thread_ = std::thread([this] { server_->listen_after_bind(); });
  // stop() is only heard once the server runs; wait for it so that the destructor can stop it.
  for (int i = 0; i < 10000 && !server_->is_running(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  running_ = server_->is_running();
}

RKVTestTLSServer::~RKVTestTLSServer() {
  if (thread_.joinable()) {
    server_->stop();
    thread_.join();
  }
  std::error_code ignored;
  if (!directory_.empty()) std::filesystem::remove_all(directory_, ignored);
}

std::string RKVTestTLSServer::url(std::string_view path) const {
  return "https://127.0.0.1:" + std::to_string(port_) + std::string(path);
}

}  // namespace rkv::test
