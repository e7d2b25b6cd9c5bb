#include "platform/posix/SystemInternetWorker.h"

#include <sched.h>

#include <algorithm>
#include <exception>
#include <iterator>
#include <string>

#include <ptzd/Logging.h>
#include "platform/posix/SystemInternetErrors.h"

namespace ptzd::internet {

namespace {

/// How long the end of the process may wait for requests that are not written yet.
constexpr std::chrono::milliseconds ExitGrace{500};
/// How long a request waits for the answer to the one before it.
struct AnswerWait {
  std::chrono::milliseconds Usual;
  std::chrono::milliseconds Pressed;  ///< where it has waited for `Patience` already, behind others
};
constexpr AnswerWait WaitForAnswer{std::chrono::milliseconds(100), std::chrono::milliseconds(25)};
/// Of a camera that is silent: only as long as it may take to see which request came first.
constexpr AnswerWait WaitForSilent{std::chrono::milliseconds(10), std::chrono::milliseconds(0)};
constexpr std::chrono::milliseconds Patience{100};
/// How long a request may take to be written once others wait behind it.
constexpr std::chrono::seconds WriteWait{5};
/// Requests that one session has on the wire.
constexpr std::size_t MaxOnWire = 4;
/// Sessions that one turn of the thread looks at because they have something new, or are due.
constexpr std::size_t SessionsPerTurn = 8;

/// Keeps this thread, when it is woken, from taking the processor away from who handed a request over, who
/// would then wait for it as for a blocking request. It runs where a processor is free, else once the sender
/// waits or its time slice ends.
void YieldToSenders() {
  if (sched_getscheduler(0) != SCHED_OTHER) return;  // a real-time host's own choice
  const sched_param priority{};
  // Where it is refused, senders are only slower.
  [[maybe_unused]] const int result = sched_setscheduler(0, SCHED_BATCH, &priority);
}

}  // namespace

TimePoint AsyncSession::NextStart() const {
  if (Latest == nullptr) return TimePoint::min();
  if (!Latest->WrittenAt) return TimePoint::max();
  const auto written = *Latest->WrittenAt;
  const auto& wait = Silent ? WaitForSilent : WaitForAnswer;
  return std::min(written + wait.Usual,
                  std::max(Waiting.front()->HandedOverAt + Patience, written + wait.Pressed));
}

TimePoint AsyncSession::Due() const {
  auto due = TimePoint::max();
  for (const auto& request : OnWire) due = std::min(due, request->Transfer->Deadline());
  if (Waiting.empty() || Ready) return due;
  return std::min(due, Latest->WrittenAt ? NextStart() : Latest->StartedAt + WriteWait);
}

AsyncWorker& AsyncWorker::Instance() {
  // Never destroyed, since sessions may be closed after it in the order of destruction; its thread is ended.
  static AsyncWorker& worker = *new AsyncWorker;
  static const struct Stopper {
    ~Stopper() { worker.Stop(); }
  } stopper;
  return worker;
}

// The loop has initialised libcurl before the thread starts, so that what that undoes at exit comes after the
// end of the thread.
AsyncWorker::AsyncWorker() : Thread_([this] { Run(); }) {}

bool AsyncWorker::Send(RequestPointer request) {
  request->HandedOverAt = std::chrono::steady_clock::now();
  const std::lock_guard lock(Mutex_);
  if (Stopping_) return false;
  WakeUnlessBusy();
  Callers_.push_back(request->Session);
  auto& handedOver = request->Session->HandedOver;
  handedOver.push_back(std::move(request));
  return true;
}

void AsyncWorker::Abandon(RequestPointer request) {
  Post([request = std::move(request)](AsyncWorker& worker) {
    const auto session = request->Session;
    if (!session) return;
    worker.Receive(session);
    worker.End(request);
    worker.Serve(session);
  });
}

void AsyncWorker::Close(SessionPointer session) {
  // Taken along to the thread, so that what the session has there is freed there.
  Post([session = std::move(session)](AsyncWorker& worker) {
    worker.Receive(session);
    session->Closed = true;
    worker.Serve(session);
  });
}

bool AsyncWorker::Post(Job job) {
  const std::lock_guard lock(Mutex_);
  if (Stopping_) return false;
  WakeUnlessBusy();
  Jobs_.push_back(std::move(job));
  return true;
}

/// Under the lock because once the process is ending, the thread takes the loop along.
void AsyncWorker::WakeUnlessBusy() {
  if (Jobs_.empty() && Callers_.empty()) Loop_->Wake();
}

void AsyncWorker::Stop() {
  {
    const std::lock_guard lock(Mutex_);
    Stopping_ = true;
    Loop_->Wake();
  }
  Thread_.join();
}

void AsyncWorker::Run() {
  YieldToSenders();
  Loop_->Adopt();
  while (TakeJobs()) {
    StartSome();
    const auto due = Schedule_.empty() ? TimePoint::max() : Schedule_.begin()->first;
    const bool mayWait = Ready_.empty() && !MoreCallers_;
    for (const auto* transfer : Loop_->Step(mayWait ? std::min(due, GiveUpAt_) : TimePoint::min()))
      if (const auto found = OnWire_.find(transfer); found != OnWire_.end())
        Serve(SessionPointer(found->second));
    ServeDue();
  }
  while (!Schedule_.empty()) {
    const auto session = Schedule_.begin()->second;
    EndAll(*session);
    Serve(session);
  }
  Loop_.reset();
}

bool AsyncWorker::TakeJobs() {
  std::vector<Job> jobs;
  std::vector<SessionPointer> callers;
  bool stopping = false;
  {
    const std::lock_guard lock(Mutex_);
    jobs.swap(Jobs_);
    stopping = Stopping_;
    const auto most = stopping ? Callers_.size() : std::min(Callers_.size(), SessionsPerTurn);
    while (callers.size() < most) {
      const bool newest = callers.size() % 2 == 0;
      callers.push_back(std::move(newest ? Callers_.back() : Callers_.front()));
      newest ? Callers_.pop_back() : Callers_.pop_front();
    }
    MoreCallers_ = !Callers_.empty();
  }
  // The newest last, so that it starts first.
  for (auto caller = callers.rbegin(); caller != callers.rend(); ++caller) Receive(*caller);
  for (const auto& job : jobs) job(*this);
  if (!stopping) return true;

  const auto now = std::chrono::steady_clock::now();
  if (GiveUpAt_ == TimePoint::max()) GiveUpAt_ = now + ExitGrace;
  return now < GiveUpAt_ &&
         std::ranges::any_of(Schedule_, [](const auto& entry) { return entry.second->Unwritten(); });
}

/// Takes over all that was handed over for a session, which may be nothing any more.
void AsyncWorker::Receive(const SessionPointer& session) {
  std::vector<RequestPointer> requests;
  {
    const std::lock_guard lock(Mutex_);
    requests.swap(session->HandedOver);
  }
  if (requests.empty()) return;
  std::ranges::move(requests, std::back_inserter(session->Waiting));
  Serve(session);
  if (session->Ready) Ready_.splice(Ready_.begin(), Ready_, *session->Ready);
}

/// Few requests at a time, so that one which is handed over meanwhile need not wait for all the others: in
/// turns of the session that was handed one last, for that may be a stop, and of the one that waits longest.
void AsyncWorker::StartSome() {
  if (!Ready_.empty()) Start(SessionPointer(Ready_.front()));
  if (!Ready_.empty()) Start(SessionPointer(Ready_.back()));
}

void AsyncWorker::ServeDue() {
  const auto end = Schedule_.upper_bound(std::chrono::steady_clock::now());
  std::vector<SessionPointer> due;
  for (auto entry = Schedule_.begin(); entry != end && due.size() < SessionsPerTurn; ++entry)
    due.push_back(entry->second);
  for (const auto& session : due) Serve(session);
}

void AsyncWorker::Serve(const SessionPointer& session) {
  const auto now = std::chrono::steady_clock::now();
  for (const auto& request : std::vector(session->OnWire)) Check(request, now);

  if (const auto* latest = session->Latest) {
    if (latest->WrittenAt && *latest->WrittenAt + WaitForAnswer.Usual <= now) session->Silent = true;
    if (!latest->WrittenAt && latest->StartedAt + WriteWait <= now && !session->Waiting.empty()) {
      // The newest may be a stop, and what it is to stop may have been written before.
      End(session->OnWire.back());
      while (session->Waiting.size() > 1) End(session->Waiting.front());
    }
  }
  if (session->OnWire.empty()) session->Silent = false;

  if (!session->Ready && !session->Waiting.empty() && session->NextStart() <= now)
    session->Ready = Ready_.insert(Ready_.begin(), session);

  const bool busy = !session->OnWire.empty() || !session->Waiting.empty();
  const auto due = session->Due();
  if (session->Scheduled && (!busy || (*session->Scheduled)->first != due))
    Schedule_.erase(*std::exchange(session->Scheduled, std::nullopt));
  if (busy && !session->Scheduled) session->Scheduled = Schedule_.emplace(due, session);
  // Nothing is kept for later requests once none can come.
  if (session->Closed && !busy) session->Channel.reset();
}

void AsyncWorker::Check(const RequestPointer& request, TimePoint now) {
  auto& session = *request->Session;
  auto& transfer = *request->Transfer;
  if (transfer.NeedsRetry() && transfer.Over() && !session.Closed) {
    Loop_->Remove(transfer);
    transfer.PrepareRetry(request->Message);
    request->WrittenAt.reset();
    if (Loop_->Start(transfer)) return;
  }
  if (transfer.Over()) session.Silent = false;
  if (!request->WrittenAt && transfer.Written()) request->WrittenAt = now;
  const bool isWaitedFor = session.Latest == request.get() && !session.Waiting.empty();
  const bool isDone = session.Closed && request->WrittenAt && !isWaitedFor;
  const bool isLate = transfer.Deadline() <= now;
  if (transfer.Over() || isLate || isDone) End(request, isLate ? ErrorTimeout : SystemErrorCancelled);
}

void AsyncWorker::Start(const SessionPointer& session) {
  Ready_.erase(*std::exchange(session->Ready, std::nullopt));
  if (session->Waiting.empty()) return;
  const auto request = std::move(session->Waiting.front());
  session->Waiting.pop_front();
  // What a login was agreed on with is known to one transfer alone, and the next request needs it.
  const std::size_t others = request->Origin.Authenticates ? 0 : MaxOnWire - 1;
  while (session->OnWire.size() > others) End(session->OnWire.front());
  try {
    if (const auto error = PutOnWire(request); error != SystemErrorNone) End(request, error);
  } catch (const std::exception& error) {
    LogMessage(std::string("Asynchronous request failed, ") + error.what(), LogLevel::Error);
    End(request, ErrorOutOfMemory);
  }
  Serve(session);
}

std::uint32_t AsyncWorker::PutOnWire(const RequestPointer& request) {
  auto& session = *request->Session;
  if (!session.Channel) session.Channel = std::make_shared<Channel>(session.Agent);
  request->Transfer = session.Channel->Take(request->Origin);
  auto& transfer = *request->Transfer;
  OnWire_.emplace(&transfer, request->Session);
  // One connection is enough to keep.
  transfer.KeepsConnection(session.OnWire.empty());
  session.OnWire.push_back(request);
  session.Latest = request.get();
  request->StartedAt = std::chrono::steady_clock::now();
  const auto error = transfer.Prepare(request->Message, request->Timeouts, false);
  return error != SystemErrorNone || Loop_->Start(transfer) ? error : ErrorInternal;
}

/// Takes part in owning the request, whose list it leaves.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void AsyncWorker::End(RequestPointer request, std::uint32_t error) {
  const auto session = std::move(request->Session);
  if (auto* transfer = request->Transfer.get()) {
    if (transfer->HasHeaders()) error = transfer->ReplyError();
    Loop_->Remove(*transfer);
    OnWire_.erase(transfer);
    std::erase(session->OnWire, request);
    if (session->Latest == request.get()) session->Latest = nullptr;
  } else {
    std::erase(session->Waiting, request);
  }
  request->Error = error;
  request->Complete = true;
  request->Completed();
  if (request->Transfer) session->Channel->GiveBack(std::move(request->Transfer));
}

void AsyncWorker::EndAll(AsyncSession& session) {
  while (!session.OnWire.empty()) End(session.OnWire.back());
  while (!session.Waiting.empty()) End(session.Waiting.back());
}

}  // namespace ptzd::internet
