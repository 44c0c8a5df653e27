// A real HTTP/1.1 server on 127.0.0.1 for tests: serves fixed answers by path, counts the
// connections it accepts and records the requests it reads, and can misbehave on purpose.
// Thread-safe.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace rkv::test {

// After reading a request: the route's status, fields and body after its delay, the connection
// kept open; silence until the server stops; the body's length, then a byte a second; a 200 head
// without a length, then bytes until the client goes; a reset (RST) without an answer; or the
// route's body alone, no status line or header (an HTTP/0.9 reply).
enum class RKVTestServerBehavior { Answer, NeverAnswer, Drip, EndlessBody, Reset, NotHTTP };

using RKVTestHeaderFields = std::vector<std::pair<std::string, std::string>>;

struct RKVTestRoute {
  int status = 200;
  std::string body;
  RKVTestHeaderFields headers;
  std::chrono::milliseconds delay{0};
  RKVTestServerBehavior behavior = RKVTestServerBehavior::Answer;

  static RKVTestRoute answer(int status, std::string body, std::chrono::milliseconds delay = {}) {
    return {status, std::move(body), {}, delay};
  }
  static RKVTestRoute redirect(std::string location, int status = 302) {
    return {status, "", {{"Location", std::move(location)}}};
  }
  static RKVTestRoute misbehaving(RKVTestServerBehavior behavior) {
    return {200, std::string(100, 'x'), {}, {}, behavior};  // the body is what Drip sends
  }
};

struct RKVTestRequest {
  std::string method;
  std::string target;  // path and query as sent
  RKVTestHeaderFields headers;
  std::string body;

  // The first field of that name, compared without regard to ASCII case.
  std::optional<std::string> header(std::string_view name) const;
};

class RKVTestHTTPServer {
 public:
  RKVTestHTTPServer();  // listening on 127.0.0.1 at a port of the system's choosing
  ~RKVTestHTTPServer() { stop(); }

  // Serves `path` (the target without its query). Unrouted paths get 404 "not found".
  void setRoute(std::string path, RKVTestRoute route) {
    std::lock_guard lock(mutex_);
    routes_[std::move(path)] = std::move(route);
  }
  // Whether requests() keeps what was read (on by default). Benchmarks that send millions of
  // requests turn it off, so that the record neither grows without end nor slows the server.
  void setRecordsRequests(bool records) { recordsRequests_ = records; }
  // While set, connections are accepted (and counted) but never read or answered.
  void setStallConnections(bool stall) { stall_ = stall; }

  // "http://127.0.0.1:<port>" followed by `pathAndQuery`.
  std::string url(std::string_view pathAndQuery) const {
    return "http://127.0.0.1:" + std::to_string(port_) + std::string(pathAndQuery);
  }
  int connectionCount() const { return connections_; }
  std::vector<RKVTestRequest> requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
  }
  // Requests read for that path (query ignored).
  size_t requestCount(std::string_view path) const {
    return static_cast<size_t>(std::ranges::count_if(requests(), [&](const RKVTestRequest& r) {
      return r.target.substr(0, r.target.find('?')) == path;
    }));
  }

  // Closes the listener and every connection and joins every thread. Later calls do nothing.
  void stop();

  // A port on 127.0.0.1 that nothing listens on (bound, then released).
  static uint16_t closedPort();

 private:
  void acceptLoop();
  void serve(int fd);
  // Reads and answers one request; false when the connection is to be closed.
  bool serveRequest(int fd, std::string& buffer);
  // Sleeps for `duration` unless the server stops first; false when it stopped.
  bool sleepFor(std::chrono::milliseconds duration);

  int listener_ = -1;
  uint16_t port_ = 0;
  std::thread acceptThread_;

  mutable std::mutex mutex_;
  std::condition_variable stopped_;
  bool stopping_ = false;
  std::atomic<bool> stall_ = false, recordsRequests_ = true;
  std::atomic<int> connections_ = 0;
  std::map<std::string, RKVTestRoute, std::less<>> routes_;
  std::vector<RKVTestRequest> requests_;
  std::set<int> openConnections_;
  std::vector<std::thread> connectionThreads_;
};

}  // namespace rkv::test
