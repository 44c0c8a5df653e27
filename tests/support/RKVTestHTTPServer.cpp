#include "tests/support/RKVTestHTTPServer.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <tuple>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

namespace rkv::test {

namespace {

bool sameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::string_view pathOf(std::string_view target) {
  return target.substr(0, target.find('?'));
}

// A TCP socket bound to 127.0.0.1 at a port of the system's choosing, and that port.
std::pair<int, uint16_t> boundLoopbackSocket() {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0)
    std::abort();  // a test machine without loopback cannot run these tests at all
  return {fd, ntohs(address.sin_port)};
}

// Sends everything; false when the peer is gone. Never raises SIGPIPE.
bool sendAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
  return true;
}

// Reads into `buffer` until it holds `size` bytes; false at end of stream or on error.
bool receiveUntil(int fd, std::string& buffer, size_t size) {
  char chunk[16384];
  while (buffer.size() < size) {
    const ssize_t got = ::recv(fd, chunk, sizeof chunk, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    buffer.append(chunk, static_cast<size_t>(got));
  }
  return true;
}

}  // namespace

std::optional<std::string> RKVTestRequest::header(std::string_view name) const {
  for (const auto& [field, value] : headers)
    if (sameName(field, name)) return value;
  return std::nullopt;
}

RKVTestHTTPServer::RKVTestHTTPServer() {
  std::tie(listener_, port_) = boundLoopbackSocket();
  if (::listen(listener_, 64) != 0) std::abort();
  acceptThread_ = std::thread([this] { acceptLoop(); });
}

void RKVTestHTTPServer::stop() {
  {
    std::lock_guard lock(mutex_);
    if (stopping_) return;
    stopping_ = true;
    // Shutting a socket down wakes the thread blocked on it: accept() fails, recv() ends.
    ::shutdown(listener_, SHUT_RDWR);
    for (int fd : openConnections_)
      ::shutdown(fd, SHUT_RDWR);
  }
  stopped_.notify_all();
  acceptThread_.join();
  // No new connection threads start once the accept loop has ended.
  for (auto& thread : connectionThreads_)
    thread.join();
  ::close(listener_);
}

uint16_t RKVTestHTTPServer::closedPort() {
  const auto [fd, port] = boundLoopbackSocket();
  ::close(fd);
  return port;
}

void RKVTestHTTPServer::acceptLoop() {
  while (true) {
    const int fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    std::lock_guard lock(mutex_);
    if (stopping_) {
      if (fd >= 0) ::close(fd);
      return;
    }
    if (fd < 0) continue;
    ++connections_;
    openConnections_.insert(fd);
    connectionThreads_.emplace_back([this, fd] { serve(fd); });
  }
}

bool RKVTestHTTPServer::sleepFor(std::chrono::milliseconds duration) {
  std::unique_lock lock(mutex_);
  return !stopped_.wait_for(lock, duration, [&] { return stopping_; });
}

void RKVTestHTTPServer::serve(int fd) {
  if (stall_) sleepFor(std::chrono::hours(24));  // until the server stops
  std::string buffer;
  while (serveRequest(fd, buffer)) {
  }
  std::lock_guard lock(mutex_);
  openConnections_.erase(fd);
  ::close(fd);
}

bool RKVTestHTTPServer::serveRequest(int fd, std::string& buffer) {
  size_t headEnd;
  while ((headEnd = buffer.find("\r\n\r\n")) == std::string::npos)
    if (!receiveUntil(fd, buffer, buffer.size() + 1)) return false;
  // The request line ("METHOD target HTTP/1.1"), then one field per line.
  RKVTestRequest request;
  size_t contentLength = 0;
  bool close = false;
  const size_t space = buffer.find(' ');
  request.method = buffer.substr(0, space);
  request.target = buffer.substr(space + 1, buffer.find(' ', space + 1) - space - 1);
  size_t lineEnd = buffer.find("\r\n");
  for (size_t start = lineEnd + 2; start < headEnd + 2; start = lineEnd + 2) {
    lineEnd = buffer.find("\r\n", start);
    const std::string_view line(buffer.data() + start, lineEnd - start);
    const size_t colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    const std::string_view name = line.substr(0, colon);
    const std::string_view value =
        line.substr(std::min(line.find_first_not_of(' ', colon + 1), line.size()));
    if (sameName(name, "Content-Length")) contentLength = std::stoul(std::string(value));
    close = close || (sameName(name, "Connection") && sameName(value, "close"));
    request.headers.emplace_back(name, value);
  }
  buffer.erase(0, headEnd + 4);
  std::unique_lock lock(mutex_);
  auto it = routes_.find(pathOf(request.target));
  const RKVTestRoute route =
      it != routes_.end() ? it->second : RKVTestRoute::answer(404, "not found");
  lock.unlock();
  // A connection that is reset leaves the request's body unread.
  if (route.behavior != RKVTestServerBehavior::Reset) {
    if (!receiveUntil(fd, buffer, contentLength)) return false;
    request.body = buffer.substr(0, contentLength);
    buffer.erase(0, contentLength);
  }
  const bool headOnly = request.method == "HEAD";
  lock.lock();
  if (recordsRequests_) requests_.push_back(std::move(request));
  lock.unlock();

  switch (route.behavior) {
    case RKVTestServerBehavior::Reset: {
      const linger abort{1, 0};  // closing now sends RST
      ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
      return false;
    }
    case RKVTestServerBehavior::NeverAnswer:
      sleepFor(std::chrono::hours(24));
      return false;
    case RKVTestServerBehavior::NotHTTP:
      sendAll(fd, route.body);
      return false;
    case RKVTestServerBehavior::Drip:
      if (sendAll(fd, "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(route.body.size()) +
                          "\r\n\r\n")) {
        for (char byte : route.body)
          if (!sleepFor(std::chrono::seconds(1)) || !sendAll(fd, std::string_view(&byte, 1))) break;
      }
      return false;
    case RKVTestServerBehavior::EndlessBody:
      // Ends when the client goes away or stop() shuts the connection down.
      if (sendAll(fd, "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n")) {
        const std::string chunk(64 * 1024, 'v');
        while (sendAll(fd, chunk)) {
        }
      }
      return false;
    case RKVTestServerBehavior::Answer:
      break;
  }
  if (route.delay.count() > 0 && !sleepFor(route.delay)) return false;
  // The reason phrase is not read by clients; one serves every status.
  std::string answer = "HTTP/1.1 " + std::to_string(route.status) + " Status\r\n";
  bool hasLength = false;
  for (const auto& [name, value] : route.headers) {
    hasLength = hasLength || sameName(name, "Content-Length");
    answer += name + ": " + value + "\r\n";
  }
  if (!hasLength) answer += "Content-Length: " + std::to_string(route.body.size()) + "\r\n";
  answer += "\r\n" + (headOnly ? std::string() : route.body);
  return sendAll(fd, answer) && !close;
}

}  // namespace rkv::test
