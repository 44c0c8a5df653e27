#include "rkv/net/internal/RKVCurlSession.h"

#include <algorithm>
#include <chrono>
#include <system_error>
#include <utility>

#include <pthread.h>
#include <signal.h>

#include "rkv/net/RKVURLError.h"

namespace rkv::internal {

namespace {

// The longest curl_multi_poll sleeps with nothing to do; new commands wake it at once, and
// libcurl shortens it to its own next time-out.
constexpr int kIdlePollMilliseconds = 1000;

RKVURLSessionResponse failure(int64_t code) {
  return RKVURLSessionResponse{std::nullopt, std::nullopt, RKVURLError::errorWithCode(code)};
}

RKVURLSessionResponse cancelled() {
  return failure(RKVURLError::Cancelled);
}

}  // namespace

bool curlGlobalInit() {
  static const bool ok = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  return ok;
}

std::shared_ptr<RKVCurlSession> RKVCurlSession::create(RKVURLSessionConfiguration configuration) {
  std::shared_ptr<RKVCurlSession> session(new RKVCurlSession(std::move(configuration)));
  RKVMutexLock lock(session->joinMutex_);
  try {
    // A lambda rather than &run: std::thread's state type for a function pointer taking an
    // internal type would be exported from the shared library.
    session->thread_ = std::thread([self = session]() mutable { run(std::move(self)); });
  } catch (const std::system_error&) {
    // No thread to run anything: every request ends at once (see RKVCurlTransfer::resume).
    RKVMutexLock stateLock(session->mutex_);
    session->stopping_ = true;
  }
  return session;
}

RKVCurlSession::RKVCurlSession(RKVURLSessionConfiguration configuration)
    : configuration_(std::move(configuration)) {
  if (curlGlobalInit()) multi_.reset(curl_multi_init());
  if (multi_) {
    curl_multi_setopt(multi_.get(), CURLMOPT_MAX_HOST_CONNECTIONS,
                      std::max(1L, configuration_.maximumConnectionsPerHost));
  }
}

RKVCurlSession::~RKVCurlSession() {
  // The network thread holds a reference until it has left its loop, so by now it is ending or
  // gone. When this runs on it (its reference was the last), it cannot join itself.
  RKVMutexLock lock(joinMutex_);
  if (thread_.joinable()) {
    if (thread_.get_id() == std::this_thread::get_id()) {
      thread_.detach();
    } else {
      thread_.join();
    }
  }
}

std::shared_ptr<RKVCurlTransfer> RKVCurlSession::dataTask(const RKVURLRequest& request,
                                                          RKVCurlTransfer::Completion completion) {
  return std::make_shared<RKVCurlTransfer>(weak_from_this(), nextIdentifier_.fetch_add(1), request,
                                           std::move(completion));
}

bool RKVCurlSession::enqueueStart(std::shared_ptr<RKVCurlTransfer> transfer) {
  return enqueue(Command{CommandKind::Start, std::move(transfer)});
}

bool RKVCurlSession::enqueueCancel(std::shared_ptr<RKVCurlTransfer> transfer) {
  return enqueue(Command{CommandKind::Cancel, std::move(transfer)});
}

bool RKVCurlSession::enqueue(Command command) {
  {
    RKVMutexLock lock(mutex_);
    if (stopping_) return false;
    commands_.push_back(std::move(command));
  }
  wake();
  return true;
}

void RKVCurlSession::wake() {
  if (multi_) curl_multi_wakeup(multi_.get());
  commandsChanged_.notifyAll();
}

void RKVCurlSession::waitForCommands(std::chrono::milliseconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  RKVMutexLock lock(mutex_);
  while (!stopping_ && commands_.empty()) {
    if (!commandsChanged_.waitUntil(mutex_, deadline)) return;
  }
}

RKVURLSessionResponse RKVCurlSession::perform(const RKVURLRequest& request) {
  // Only this thread ever sees the transfer: it is never resumed nor cancelled as a task.
  RKVCurlTransfer transfer(weak_from_this(), nextIdentifier_.fetch_add(1), request, nullptr);
  std::unique_ptr<CallerDriver> driver = takeDriver();
  if (!driver) return cancelled();
  RKVURLSessionResponse response = drive(*driver, transfer);
  giveBackDriver(std::move(driver));
  return response;
}

std::unique_ptr<RKVCurlSession::CallerDriver> RKVCurlSession::takeDriver() {
  std::unique_ptr<CallerDriver> driver;
  {
    RKVMutexLock lock(mutex_);
    if (stopping_) return nullptr;
    if (!idleDrivers_.empty()) {
      driver = std::move(idleDrivers_.back());
      idleDrivers_.pop_back();
      runningDrivers_.push_back(driver.get());
      return driver;
    }
  }
  driver = std::make_unique<CallerDriver>();
  if (curlGlobalInit()) driver->multi.reset(curl_multi_init());
  RKVMutexLock lock(mutex_);
  if (stopping_) return nullptr;
  runningDrivers_.push_back(driver.get());
  return driver;
}

void RKVCurlSession::giveBackDriver(std::unique_ptr<CallerDriver> driver) {
  std::unique_ptr<CallerDriver> discarded;
  {
    RKVMutexLock lock(mutex_);
    std::erase(runningDrivers_, driver.get());
    if (stopping_ || !driver->multi || idleDrivers_.size() >= kMaximumIdleDrivers) {
      discarded = std::move(driver);
    } else {
      idleDrivers_.push_back(std::move(driver));
    }
  }
  // Closing its connections happens here, outside the mutex.
}

RKVURLSessionResponse RKVCurlSession::drive(CallerDriver& driver, RKVCurlTransfer& transfer) {
  if (!driver.multi) return failure(RKVURLError::Unknown);
  if (auto error = transfer.prepare(configuration_, std::move(driver.easy))) {
    driver.easy = transfer.takeHandle();
    return RKVURLSessionResponse{std::nullopt, std::nullopt, std::move(error)};
  }
  CURLM* multi = driver.multi.get();
  // No SIGPIPE handling here: libcurl sends with MSG_NOSIGNAL (TLS records included), and the
  // caller's signal mask is the caller's. The tests upload to a resetting peer under the
  // signal's default action on this path too.
  if (curl_multi_add_handle(multi, transfer.handle()) != CURLM_OK) {
    driver.easy = transfer.takeHandle();
    return failure(RKVURLError::Unknown);
  }
  std::optional<CURLcode> result;
  // shutdown() wakes the poll after setting the flag, and a wake-up that comes before the poll
  // is kept for it, so the loop sees the flag within one turn.
  while (!stoppingFlag_.load()) {
    int active = 0;
    curl_multi_perform(multi, &active);
    int queued = 0;
    while (CURLMsg* message = curl_multi_info_read(multi, &queued)) {
      if (message->msg == CURLMSG_DONE) result = message->data.result;
    }
    if (result) break;
    if (curl_multi_poll(multi, nullptr, 0, kIdlePollMilliseconds, nullptr) != CURLM_OK) {
      // Never seen in practice; waiting a little keeps a failing poll from spinning.
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
  curl_multi_remove_handle(multi, transfer.handle());
  RKVURLSessionResponse response = result ? transfer.finishedResponse(*result) : cancelled();
  driver.easy = transfer.takeHandle();
  return response;
}

void RKVCurlSession::shutdown() {
  std::vector<std::unique_ptr<CallerDriver>> idleDrivers;
  {
    RKVMutexLock lock(mutex_);
    stopping_ = true;
    stoppingFlag_.store(true);
    idleDrivers.swap(idleDrivers_);
    for (CallerDriver* driver : runningDrivers_)
      curl_multi_wakeup(driver->multi.get());
  }
  idleDrivers.clear();
  wake();
  // From a completion: the loop ends once the completion returns.
  if (isNetworkThread()) return;
  RKVMutexLock lock(joinMutex_);
  if (thread_.joinable()) thread_.join();
}

void RKVCurlSession::run(std::shared_ptr<RKVCurlSession> self) {
  // libcurl is told not to use signals (CURLOPT_NOSIGNAL) and sends with MSG_NOSIGNAL, but a
  // write on a connection the peer has reset must never raise SIGPIPE, whose default action
  // ends the process: it stays blocked on this thread (and on the resolver threads libcurl
  // starts from it). The process-wide disposition is the host's business.
  sigset_t pipe;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe, nullptr);
  self->threadID_.store(std::this_thread::get_id());
  self->runLoop();
  self->threadID_.store(std::thread::id());
}

void RKVCurlSession::runLoop() {
  while (true) {
    std::vector<Command> commands;
    bool stopping;
    {
      RKVMutexLock lock(mutex_);
      commands.swap(commands_);
      stopping = stopping_;
    }
    for (auto& command : commands) {
      if (command.kind == CommandKind::Start && !stopping) {
        start(command.transfer);
      } else {
        cancel(command.transfer);
      }
    }
    if (stopping) break;
    if (!multi_) {
      // Without a multi handle start() fails every transfer; only commands can change that.
      waitForCommands(std::chrono::milliseconds(kIdlePollMilliseconds));
      continue;
    }
    int active = 0;
    curl_multi_perform(multi_.get(), &active);
    collectFinished();
    if (curl_multi_poll(multi_.get(), nullptr, 0, kIdlePollMilliseconds, nullptr) != CURLM_OK) {
      // Never seen in practice; waiting a little keeps a failing poll from spinning.
      waitForCommands(std::chrono::milliseconds(10));
    }
  }
  cancelEverything();
}

void RKVCurlSession::start(const std::shared_ptr<RKVCurlTransfer>& transfer) {
  if (transfer->state != RKVCurlTransfer::State::Idle) return;
  transfer->state = RKVCurlTransfer::State::Done;
  if (!multi_) {
    transfer->complete(RKVURLSessionResponse{std::nullopt, std::nullopt,
                                             RKVURLError::errorWithCode(RKVURLError::Unknown)});
    return;
  }
  if (auto error = transfer->prepare(configuration_)) {
    transfer->releaseHandle();
    transfer->complete(RKVURLSessionResponse{std::nullopt, std::nullopt, std::move(error)});
    return;
  }
  if (curl_multi_add_handle(multi_.get(), transfer->handle()) != CURLM_OK) {
    transfer->releaseHandle();
    transfer->complete(RKVURLSessionResponse{std::nullopt, std::nullopt,
                                             RKVURLError::errorWithCode(RKVURLError::Unknown)});
    return;
  }
  transfer->state = RKVCurlTransfer::State::Running;
  running_.emplace(transfer->handle(), transfer);
}

void RKVCurlSession::cancel(const std::shared_ptr<RKVCurlTransfer>& transfer) {
  switch (transfer->state) {
    case RKVCurlTransfer::State::Done:
      return;
    case RKVCurlTransfer::State::Running:
      curl_multi_remove_handle(multi_.get(), transfer->handle());
      running_.erase(transfer->handle());
      transfer->releaseHandle();
      break;
    case RKVCurlTransfer::State::Idle:
      break;
  }
  transfer->state = RKVCurlTransfer::State::Done;
  transfer->complete(cancelled());
}

void RKVCurlSession::collectFinished() {
  int queued = 0;
  while (CURLMsg* message = curl_multi_info_read(multi_.get(), &queued)) {
    if (message->msg != CURLMSG_DONE) continue;
    CURL* handle = message->easy_handle;
    const CURLcode result = message->data.result;
    auto it = running_.find(handle);
    if (it == running_.end()) continue;
    std::shared_ptr<RKVCurlTransfer> transfer = std::move(it->second);
    running_.erase(it);
    curl_multi_remove_handle(multi_.get(), handle);
    RKVURLSessionResponse response = transfer->finishedResponse(result);
    transfer->releaseHandle();
    transfer->state = RKVCurlTransfer::State::Done;
    // The completion may start or cancel transfers: that only queues commands, which the next
    // turn of the loop takes.
    transfer->complete(std::move(response));
  }
}

void RKVCurlSession::cancelEverything() {
  // Commands queued before stopping_ was seen were taken by the last turn; none come after.
  auto running = std::move(running_);
  running_.clear();
  for (auto& [handle, transfer] : running) {
    curl_multi_remove_handle(multi_.get(), handle);
    transfer->releaseHandle();
    transfer->state = RKVCurlTransfer::State::Done;
  }
  for (auto& [handle, transfer] : running)
    transfer->complete(cancelled());
}

}  // namespace rkv::internal
