#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/posix/SystemInternetLoop.h"
#include "platform/posix/SystemInternetTransfer.h"

namespace ptzd::internet {

struct AsyncSession;

/// A request on its way through the worker.
struct AsyncRequest {
  std::shared_ptr<AsyncSession> session;
  Origin origin;
  Message message;
  Timeouts timeouts;
  std::function<void()> completed;       ///< called once, on the worker's thread
  std::unique_ptr<Transfer> transfer{};  ///< while it is being sent
  std::atomic<bool> abandoned = false;   ///< set from any thread: not worth going on with
  std::atomic<bool> complete = false;
};

/// An asynchronous session as the worker sees it; touched by no other thread.
struct AsyncSession {
  explicit AsyncSession(std::string agentText) : agent(std::move(agentText)) {}
  /// Closes what is kept for later requests once none can come.
  void FreeIfDone();

  std::string agent;
  std::shared_ptr<Channel> channel;  ///< from the first request on
  std::deque<std::shared_ptr<AsyncRequest>> waiting;
  const AsyncRequest* writing = nullptr;
  int inFlight = 0;
  bool closed = false;
};

/// The thread that sends asynchronous requests, one for the process. A session's requests leave in the order
/// in which they were handed over: the next one starts when the one before is written, over a connection of
/// its own if that one's answer is still out. Sessions do not wait for one another.
class AsyncWorker {
 public:
  /// Starts the thread when called for the first time.
  static AsyncWorker& Instance();

  /// False once the process is ending.
  bool Send(std::shared_ptr<AsyncRequest> request);
  void Abandon(AsyncRequest& request);
  /// What waits is still written; no reply is waited for any more.
  void Close(std::shared_ptr<AsyncSession> session);

 private:
  using Job = std::function<void(AsyncWorker&)>;

  AsyncWorker();
  ~AsyncWorker() = default;
  bool Post(Job job);
  void Wake();
  void Stop();

  void Run();
  /// False when the thread is to end.
  bool TakeJobs();
  void StartNext(std::shared_ptr<AsyncSession> session);
  void FinishOver();
  void Complete(const std::shared_ptr<AsyncRequest>& request);
  void GiveUpAll();
  TimePoint NextDeadline() const;

  std::mutex Mutex_;
  std::vector<Job> Inbox_;
  bool Stopping_ = false;
  int WakeDescriptor_;

  // The thread's own.
  std::shared_ptr<Loop> Loop_;
  std::vector<std::shared_ptr<AsyncRequest>> Active_;
  TimePoint GiveUpAt_ = TimePoint::max();

  std::thread Thread_;
};

}  // namespace ptzd::internet
