#include "tests/support/RKVTestHTTPServer.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace rkv::test {

namespace {

bool sameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return std::tolower(static_cast<unsigned char>(x)) ==
                  std::tolower(static_cast<unsigned char>(y));
         });
}

std::string_view trimmed(std::string_view text) {
  size_t begin = text.find_first_not_of(" \t");
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

std::string pathOf(std::string_view target) {
  return std::string(target.substr(0, target.find('?')));
}

const char* reasonPhrase(int status) {
  switch (status) {
    case 200:
      return "OK";
    case 204:
      return "No Content";
    case 301:
      return "Moved Permanently";
    case 302:
      return "Found";
    case 303:
      return "See Other";
    case 307:
      return "Temporary Redirect";
    case 404:
      return "Not Found";
    case 500:
      return "Internal Server Error";
    default:
      return "Status";
  }
}

// Sends everything; false when the peer is gone. Never raises SIGPIPE.
bool sendAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
  return true;
}

// Reads more bytes into `buffer`; false at end of stream or on error.
bool receiveMore(int fd, std::string& buffer) {
  char chunk[16384];
  while (true) {
    ssize_t got = ::recv(fd, chunk, sizeof chunk, 0);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    buffer.append(chunk, static_cast<size_t>(got));
    return true;
  }
}

}  // namespace

RKVTestRoute RKVTestRoute::answer(int status, std::string body, std::chrono::milliseconds delay) {
  RKVTestRoute route;
  route.status = status;
  route.body = std::move(body);
  route.delay = delay;
  return route;
}

RKVTestRoute RKVTestRoute::redirect(std::string location, int status) {
  RKVTestRoute route;
  route.status = status;
  route.headers.emplace_back("Location", std::move(location));
  return route;
}

RKVTestRoute RKVTestRoute::misbehaving(RKVTestServerBehavior behavior) {
  RKVTestRoute route;
  route.behavior = behavior;
  route.body = std::string(100, 'x');  // what Drip sends
  return route;
}

std::optional<std::string> RKVTestRequest::header(std::string_view name) const {
  for (const auto& [field, value] : headers) {
    if (sameName(field, name)) return value;
  }
  return std::nullopt;
}

RKVTestHTTPServer::RKVTestHTTPServer() {
  listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  int on = 1;
  ::setsockopt(listener_, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = 0;
  if (::bind(listener_, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      ::listen(listener_, 64) != 0) {
    std::abort();  // a test machine without loopback cannot run these tests at all
  }
  socklen_t length = sizeof address;
  ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length);
  port_ = ntohs(address.sin_port);
  if (::pipe2(wakePipe_, O_CLOEXEC) != 0) std::abort();
  acceptThread_ = std::thread([this] { acceptLoop(); });
}

RKVTestHTTPServer::~RKVTestHTTPServer() {
  stop();
}

void RKVTestHTTPServer::setRoute(std::string path, RKVTestRoute route) {
  std::lock_guard lock(mutex_);
  routes_[std::move(path)] = std::move(route);
}

void RKVTestHTTPServer::setStallConnections(bool stall) {
  std::lock_guard lock(mutex_);
  stall_ = stall;
}

std::string RKVTestHTTPServer::url(std::string_view pathAndQuery) const {
  return "http://127.0.0.1:" + std::to_string(port_) + std::string(pathAndQuery);
}

int RKVTestHTTPServer::connectionCount() const {
  std::lock_guard lock(mutex_);
  return connections_;
}

std::vector<RKVTestRequest> RKVTestHTTPServer::requests() const {
  std::lock_guard lock(mutex_);
  return requests_;
}

size_t RKVTestHTTPServer::requestCount(std::string_view path) const {
  std::lock_guard lock(mutex_);
  return static_cast<size_t>(std::count_if(
      requests_.begin(), requests_.end(), [&](const auto& r) { return pathOf(r.target) == path; }));
}

void RKVTestHTTPServer::stop() {
  {
    std::lock_guard lock(mutex_);
    if (stopping_) return;
    stopping_ = true;
    for (int fd : openConnections_)
      ::shutdown(fd, SHUT_RDWR);
  }
  stopped_.notify_all();
  char byte = 0;
  [[maybe_unused]] ssize_t written = ::write(wakePipe_[1], &byte, 1);
  acceptThread_.join();
  // No new connection threads start once the accept loop has ended.
  for (auto& thread : connectionThreads_)
    thread.join();
  ::close(listener_);
  ::close(wakePipe_[0]);
  ::close(wakePipe_[1]);
}

uint16_t RKVTestHTTPServer::closedPort() {
  int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
  socklen_t length = sizeof address;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
  ::close(fd);
  return ntohs(address.sin_port);
}

void RKVTestHTTPServer::acceptLoop() {
  while (true) {
    pollfd fds[2] = {{listener_, POLLIN, 0}, {wakePipe_[0], POLLIN, 0}};
    if (::poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (fds[1].revents != 0) return;
    int fd = ::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) continue;
    std::lock_guard lock(mutex_);
    if (stopping_) {
      ::close(fd);
      return;
    }
    int connection = ++connections_;
    openConnections_.insert(fd);
    connectionThreads_.emplace_back([this, fd, connection] { serve(fd, connection); });
  }
}

bool RKVTestHTTPServer::sleepFor(std::chrono::milliseconds duration) {
  std::unique_lock lock(mutex_);
  return !stopped_.wait_for(lock, duration, [&] { return stopping_; });
}

void RKVTestHTTPServer::closeConnection(int fd, bool reset) {
  {
    std::lock_guard lock(mutex_);
    openConnections_.erase(fd);
  }
  if (reset) {
    linger abort{1, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &abort, sizeof abort);
  }
  ::close(fd);
}

RKVTestRoute RKVTestHTTPServer::routeFor(const std::string& path) const {
  std::lock_guard lock(mutex_);
  auto it = routes_.find(path);
  if (it != routes_.end()) return it->second;
  return RKVTestRoute::answer(404, "not found");
}

void RKVTestHTTPServer::serve(int fd, int connection) {
  {
    std::unique_lock lock(mutex_);
    if (stall_) {
      stopped_.wait(lock, [&] { return stopping_; });
      lock.unlock();
      closeConnection(fd, false);
      return;
    }
  }
  std::string buffer;
  while (true) {
    size_t headEnd;
    while ((headEnd = buffer.find("\r\n\r\n")) == std::string::npos) {
      if (!receiveMore(fd, buffer)) return closeConnection(fd, false);
    }
    RKVTestRequest request;
    request.connection = connection;
    std::string_view head(buffer.data(), headEnd);
    size_t lineEnd = head.find("\r\n");
    std::string_view requestLine = head.substr(0, lineEnd);
    size_t space1 = requestLine.find(' ');
    size_t space2 = requestLine.find(' ', space1 + 1);
    request.method = std::string(requestLine.substr(0, space1));
    request.target = std::string(requestLine.substr(space1 + 1, space2 - space1 - 1));
    size_t contentLength = 0;
    bool close = false;
    while (lineEnd != std::string_view::npos && lineEnd < head.size()) {
      size_t next = head.find("\r\n", lineEnd + 2);
      std::string_view line =
          head.substr(lineEnd + 2,
                      next == std::string_view::npos ? std::string_view::npos : next - lineEnd - 2);
      size_t colon = line.find(':');
      if (colon != std::string_view::npos) {
        std::string name(trimmed(line.substr(0, colon)));
        std::string value(trimmed(line.substr(colon + 1)));
        if (sameName(name, "Content-Length")) contentLength = std::stoul(value);
        if (sameName(name, "Connection") && sameName(value, "close")) close = true;
        request.headers.emplace_back(std::move(name), std::move(value));
      }
      lineEnd = next;
    }
    buffer.erase(0, headEnd + 4);
    const RKVTestRoute route = routeFor(pathOf(request.target));

    if (route.behavior == RKVTestServerBehavior::Reset ||
        route.behavior == RKVTestServerBehavior::Close) {
      {
        std::lock_guard lock(mutex_);
        requests_.push_back(std::move(request));
      }
      return closeConnection(fd, route.behavior == RKVTestServerBehavior::Reset);
    }
    while (buffer.size() < contentLength) {
      if (!receiveMore(fd, buffer)) return closeConnection(fd, false);
    }
    request.body = buffer.substr(0, contentLength);
    buffer.erase(0, contentLength);
    const bool headOnly = request.method == "HEAD";
    {
      std::lock_guard lock(mutex_);
      requests_.push_back(std::move(request));
    }

    switch (route.behavior) {
      case RKVTestServerBehavior::NeverAnswer:
        sleepFor(std::chrono::hours(24));
        return closeConnection(fd, false);
      case RKVTestServerBehavior::Drip: {
        std::string headBytes =
            "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(route.body.size()) + "\r\n\r\n";
        if (!sendAll(fd, headBytes)) return closeConnection(fd, false);
        for (char byte : route.body) {
          if (!sleepFor(route.dripInterval) || !sendAll(fd, std::string_view(&byte, 1))) break;
        }
        return closeConnection(fd, false);
      }
      case RKVTestServerBehavior::EndlessBody: {
        const std::string chunk(64 * 1024, 'v');
        if (sendAll(fd, "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n")) {
          while (sendAll(fd, chunk)) {
            std::lock_guard lock(mutex_);
            if (stopping_) break;
          }
        }
        return closeConnection(fd, false);
      }
      case RKVTestServerBehavior::Answer: {
        if (route.delay.count() > 0 && !sleepFor(route.delay)) return closeConnection(fd, false);
        std::string answer =
            "HTTP/1.1 " + std::to_string(route.status) + " " + reasonPhrase(route.status) + "\r\n";
        bool hasLength = false;
        for (const auto& [name, value] : route.headers) {
          if (sameName(name, "Content-Length")) hasLength = true;
          answer += name + ": " + value + "\r\n";
        }
        if (!hasLength) answer += "Content-Length: " + std::to_string(route.body.size()) + "\r\n";
        answer += "\r\n";
        if (!headOnly) answer += route.body;
        if (!sendAll(fd, answer) || close) return closeConnection(fd, false);
        break;
      }
      case RKVTestServerBehavior::Reset:
      case RKVTestServerBehavior::Close:
        break;
    }
  }
}

}  // namespace rkv::test
