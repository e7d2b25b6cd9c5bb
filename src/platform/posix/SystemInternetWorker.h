#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/Internet.h"
#include "platform/posix/SystemInternetTransfer.h"
#include "platform/posix/SystemInternetWorkerLoop.h"

namespace ptzd::internet {

struct AsyncSession;

/// A request on its way through the worker.
struct AsyncRequest {
  std::shared_ptr<AsyncSession> Session;  ///< null from completion on
  internet::Origin Origin;
  internet::Message Message;
  internet::Timeouts Timeouts;
  std::function<void()> Completed;     ///< called once, on the worker's thread
  std::atomic<bool> Complete = false;  ///< may be asked on any thread
  std::uint32_t Error = 0;             ///< from completion on: why there is no reply, 0 where there is one

  // The worker's own.
  TimePoint HandedOverAt{};
  std::unique_ptr<internet::Transfer> Transfer{};  ///< while it is on the wire, and within `completed`
  TimePoint StartedAt{};
  std::optional<TimePoint> WrittenAt{};
};

/// An asynchronous session as the worker sees it; but for `HandedOver` touched by no other thread.
struct AsyncSession {
  explicit AsyncSession(std::string agentText) : Agent(std::move(agentText)) {}

  using List = std::list<std::shared_ptr<AsyncSession>>;
  using Schedule = std::multimap<TimePoint, std::shared_ptr<AsyncSession>>;

  bool Unwritten() const { return !Waiting.empty() || (Latest != nullptr && !Latest->WrittenAt); }
  /// When the next request that waits may be written, whatever becomes of the one before it.
  TimePoint NextStart() const;
  /// When there is something to do for it even if nothing happens.
  TimePoint Due() const;

  std::vector<std::shared_ptr<AsyncRequest>> HandedOver;  ///< oldest first; the worker's mutex guards it

  std::string Agent;
  std::shared_ptr<internet::Channel> Channel;         ///< from the first request on
  std::deque<std::shared_ptr<AsyncRequest>> Waiting;  ///< oldest first, as those on the wire
  std::vector<std::shared_ptr<AsyncRequest>> OnWire;  ///< being written, or without a reply yet
  const AsyncRequest* Latest = nullptr;               ///< the one started last, while it is on the wire
  bool Silent = false;                                ///< the camera holds replies back
  bool Closed = false;

  std::optional<List::iterator> Ready;          ///< its place among those that may start a request
  std::optional<Schedule::iterator> Scheduled;  ///< while it has requests
};

/// The thread that sends asynchronous requests, one for the process.
///
/// A session's requests leave in the order in which they were handed over. The next one is written when the
/// one before is answered, so that a camera which serves its connections side by side cannot take a stop
/// before its motion. No camera holds a stop up so: answers are waited for 100 ms, less where requests come
/// faster than answers, and hardly at all of a camera that is silent; then each request gets a connection of
/// its own, and the oldest of too many is given up. What cannot be written is not piled up, so that no
/// motions are replayed to a camera that comes back. Sessions do not wait for one another: between any two
/// of its short turns the thread takes up what was handed over last, however much waits before it.
class AsyncWorker {
 public:
  /// Starts the thread when called for the first time. Throws where the system has none to give, or no
  /// descriptor; a later call tries again.
  static AsyncWorker& Instance();

  /// False once the process is ending.
  bool Send(std::shared_ptr<AsyncRequest> request);
  /// The request is not worth going on with.
  void Abandon(std::shared_ptr<AsyncRequest> request);
  /// What waits is still written; no reply is waited for any more.
  void Close(std::shared_ptr<AsyncSession> session);

 private:
  using Job = std::function<void(AsyncWorker&)>;
  using RequestPointer = std::shared_ptr<AsyncRequest>;
  using SessionPointer = std::shared_ptr<AsyncSession>;

  AsyncWorker();
  ~AsyncWorker() = default;
  bool Post(Job job);
  /// Under the lock, before something is added that the thread has to take up.
  void WakeUnlessBusy();
  void Stop();

  void Run();
  /// False when the thread is to end.
  bool TakeJobs();
  void Receive(const SessionPointer& session);
  void StartSome();
  void ServeDue();
  /// Does all there is to do for a session but starting its next request.
  void Serve(const SessionPointer& session);
  void Check(const RequestPointer& request, TimePoint now);
  void Start(const SessionPointer& session);
  /// 0, or why it cannot be sent.
  std::uint32_t PutOnWire(const RequestPointer& request);
  /// Completes a request, wherever it is; `error` says why where its transfer does not.
  void End(RequestPointer request, std::uint32_t error = SystemErrorCancelled);
  void EndAll(AsyncSession& session);

  std::mutex Mutex_;
  std::vector<Job> Jobs_;
  std::deque<SessionPointer> Callers_;  ///< one a request handed over, oldest first
  bool Stopping_ = false;
  std::shared_ptr<WorkerLoop> Loop_ = std::make_shared<WorkerLoop>();

  // The thread's own.
  bool MoreCallers_ = false;
  std::unordered_map<const Transfer*, SessionPointer> OnWire_;
  AsyncSession::List Ready_;  ///< those that were handed a request last come first
  AsyncSession::Schedule Schedule_;
  TimePoint GiveUpAt_ = TimePoint::max();

  std::thread Thread_;
};

}  // namespace ptzd::internet
