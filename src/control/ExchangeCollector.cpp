#include "control/ExchangeCollector.h"

#include <utility>

#include "drivers/kit/ReadingScope.h"

namespace ptzd {

void ExchangeCollector::Begun(const Exchange& exchange) {
  {
    const std::lock_guard lock(Mutex_);
    UnderWay_.insert(exchange.Number);
    Commanded_ = true;  // nobody asks without waiting for the answer
  }
  if (Next_) Next_->Begun(exchange);
}

void ExchangeCollector::Ended(const Exchange& exchange) {
  {
    const std::lock_guard lock(Mutex_);
    // One that was cleared away says nothing of what is judged now.
    const bool counts = exchange.Awaited || UnderWay_.erase(exchange.Number) != 0;
    if (counts) Ended_.push_back(exchange);
    if (exchange.Awaited) (ReadingScope::IsOpen() ? Asked_ : Commanded_) = true;
    Changed_.notify_all();
  }
  if (Next_) Next_->Ended(exchange);
}

void ExchangeCollector::Clear() {
  const std::lock_guard lock(Mutex_);
  Ended_.clear();
  UnderWay_.clear();
  Asked_ = Commanded_ = Interrupted_ = false;
}

std::vector<Exchange> ExchangeCollector::Take() {
  const std::lock_guard lock(Mutex_);
  return std::exchange(Ended_, {});
}

bool ExchangeCollector::OnlyAsked() const {
  const std::lock_guard lock(Mutex_);
  return Asked_ && !Commanded_;
}

bool ExchangeCollector::Wait(std::chrono::steady_clock::time_point deadline) {
  std::unique_lock lock(Mutex_);
  Changed_.wait_until(lock, deadline, [this] { return UnderWay_.empty() || Interrupted_; });
  return UnderWay_.empty();
}

void ExchangeCollector::Interrupt() {
  const std::lock_guard lock(Mutex_);
  Interrupted_ = true;
  Changed_.notify_all();
}

bool ExchangeCollector::WasInterrupted() const {
  const std::lock_guard lock(Mutex_);
  return Interrupted_;
}

MemberCall CallMember(const std::function<std::optional<bool>()>& member, ExchangeCollector& collector) {
  constexpr std::chrono::seconds answerTime(5);
  MemberCall call;
  try {
    call.Answer = member();
  } catch (const Error& error) {
    call.Raised = error;
  } catch (const std::exception& error) {
    call.Raised = Error(ErrorInvalidCall, error.what());
  }
  call.Unanswered = !collector.Wait(std::chrono::steady_clock::now() + answerTime);
  call.OnlyAsked = collector.OnlyAsked();
  call.Exchanges = collector.Take();
  call.Interrupted = call.Unanswered && collector.WasInterrupted();
  return call;
}

}  // namespace ptzd
