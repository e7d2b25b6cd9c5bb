#include "platform/posix/SystemInternetWorker.h"

#include <sched.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "platform/Internet.h"

namespace ptzd::internet {

namespace {

/// How long the end of the process may wait for requests that are not written yet.
constexpr std::chrono::milliseconds ExitGrace{500};

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

void AsyncSession::FreeIfDone() {
  if (closed && inFlight == 0 && waiting.empty()) channel.reset();
}

AsyncWorker& AsyncWorker::Instance() {
  // Never destroyed, since sessions may be closed after it in the order of destruction; its thread is ended.
  static AsyncWorker& worker = *new AsyncWorker;
  static const struct Stopper {
    ~Stopper() { worker.Stop(); }
  } stopper;
  return worker;
}

AsyncWorker::AsyncWorker() : WakeDescriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  if (WakeDescriptor_ < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
  InitialiseLibrary();  // here, so that what it undoes at exit comes after the end of the thread
  Thread_ = std::thread([this] { Run(); });
}

bool AsyncWorker::Send(std::shared_ptr<AsyncRequest> request) {
  return Post([request = std::move(request)](AsyncWorker& worker) {
    request->session->waiting.push_back(request);
    worker.StartNext(request->session);
  });
}

void AsyncWorker::Abandon(AsyncRequest& request) {
  request.abandoned = true;
  Wake();
}

void AsyncWorker::Close(std::shared_ptr<AsyncSession> session) {
  // Taken along to the thread, so that what the session has there is freed there.
  Post([session = std::move(session)](AsyncWorker&) {
    session->closed = true;
    session->FreeIfDone();
  });
}

bool AsyncWorker::Post(Job job) {
  bool sleeping = false;
  {
    const std::lock_guard lock(Mutex_);
    if (Stopping_) return false;
    sleeping = Inbox_.empty();
    Inbox_.push_back(std::move(job));
  }
  if (sleeping) Wake();
  return true;
}

void AsyncWorker::Wake() {
  // Fails only where the counter is full, and then the thread wakes anyhow.
  [[maybe_unused]] const int result = eventfd_write(WakeDescriptor_, 1);
}

void AsyncWorker::Stop() {
  {
    const std::lock_guard lock(Mutex_);
    Stopping_ = true;
  }
  Wake();
  Thread_.join();
}

void AsyncWorker::Run() {
  YieldToSenders();
  Loop_ = std::make_shared<Loop>();
  while (TakeJobs()) {
    Loop_->Step(WakeDescriptor_, NextDeadline());
    FinishOver();
  }
  GiveUpAll();
  Loop_.reset();
}

bool AsyncWorker::TakeJobs() {
  eventfd_t count = 0;
  eventfd_read(WakeDescriptor_, &count);
  std::vector<Job> jobs;
  bool stopping = false;
  {
    const std::lock_guard lock(Mutex_);
    jobs.swap(Inbox_);
    stopping = Stopping_;
  }
  for (const auto& job : jobs) job(*this);
  FinishOver();
  if (!stopping) return true;

  const auto now = std::chrono::steady_clock::now();
  if (GiveUpAt_ == TimePoint::max()) GiveUpAt_ = now + ExitGrace;
  const auto unwritten = [](const auto& request) { return request->session->writing == request.get(); };
  return now < GiveUpAt_ && std::ranges::any_of(Active_, unwritten);
}

/// Takes part in owning the session: a request that is completed at once may have been its last owner.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
void AsyncWorker::StartNext(std::shared_ptr<AsyncSession> owned) {
  auto& session = *owned;
  while (session.writing == nullptr && !session.waiting.empty()) {
    const auto request = std::move(session.waiting.front());
    session.waiting.pop_front();
    if (!session.channel) session.channel = std::make_shared<Channel>(session.agent);
    request->transfer = session.channel->Take(request->origin);
    // One connection is enough to keep.
    request->transfer->KeepsConnection(session.inFlight++ == 0);
    if (request->abandoned ||
        request->transfer->Prepare(request->message, request->timeouts, false) != SystemErrorNone ||
        !Loop_->Add(*request->transfer)) {
      Complete(request);
      continue;
    }
    session.writing = request.get();
    Active_.push_back(request);
  }
}

void AsyncWorker::FinishOver() {
  const auto now = std::chrono::steady_clock::now();
  // By position: a request that is written lets the next one of its session in at the end.
  for (std::size_t i = 0; i < Active_.size();) {
    const auto request = Active_[i];
    auto& transfer = *request->transfer;
    const auto session = request->session;
    const bool late = transfer.Deadline() <= now;
    const bool written = transfer.Written() || late || request->abandoned;
    const bool over = transfer.Over() || late || request->abandoned || (written && session->closed);
    if (over) {
      Loop_->Remove(transfer);
      if (transfer.NeedsRetry() && !session->closed) {
        transfer.PrepareRetry(request->message);
        if (Loop_->Add(transfer)) continue;
      }
      Active_.erase(Active_.begin() + static_cast<std::ptrdiff_t>(i));
    } else {
      ++i;
    }
    if (written && session->writing == request.get()) {
      session->writing = nullptr;
      StartNext(session);
    }
    if (over) Complete(request);
  }
}

void AsyncWorker::Complete(const std::shared_ptr<AsyncRequest>& request) {
  const auto session = std::move(request->session);
  session->channel->GiveBack(std::move(request->transfer));
  --session->inFlight;
  session->FreeIfDone();
  request->complete = true;
  request->completed();
}

void AsyncWorker::GiveUpAll() {
  while (!Active_.empty()) {
    const auto request = std::move(Active_.back());
    Active_.pop_back();
    const auto session = request->session;
    Loop_->Remove(*request->transfer);
    Complete(request);
    for (auto& unsent : std::exchange(session->waiting, {})) {
      unsent->complete = true;
      unsent->completed();
    }
  }
}

TimePoint AsyncWorker::NextDeadline() const {
  auto deadline = GiveUpAt_;
  for (const auto& request : Active_) deadline = std::min(deadline, request->transfer->Deadline());
  return deadline;
}

}  // namespace ptzd::internet
