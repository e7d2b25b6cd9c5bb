#pragma once

#include <ptzd/Exchange.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <vector>

#include "control/Verdict.h"

namespace ptzd {

/// Gathers what a driver's members exchange with the camera, to judge them by.
class ExchangeCollector final : public ExchangeSink {
 public:
  /// `next` is told everything too; may be null.
  explicit ExchangeCollector(std::shared_ptr<ExchangeSink> next) : Next_(std::move(next)) {}

  void Begun(const Exchange& exchange) override;
  void Ended(const Exchange& exchange) override;
  std::size_t WantsOfReply() const override { return Next_ ? Next_->WantsOfReply() : 0; }

  /// Forgets what was exchanged, and no longer waits for what is under way.
  void Clear();
  /// Those that ended since `Clear`, in the order of their ends.
  std::vector<Exchange> Take();
  /// Whether some ended since `Clear`, and none of them, nor of those under way, is more than a question
  /// where the camera is.
  bool OnlyAsked() const;
  /// Blocks until none is under way that nobody else waits for, the time is over, or `Interrupt` ends it.
  /// Whether none is.
  bool Wait(std::chrono::steady_clock::time_point deadline);
  /// Ends the wait under way, and every later one at once until `Clear`.
  void Interrupt();
  bool WasInterrupted() const;

 private:
  const std::shared_ptr<ExchangeSink> Next_;
  mutable std::mutex Mutex_;
  std::condition_variable Changed_;
  std::vector<Exchange> Ended_;
  std::set<std::uint64_t> UnderWay_;
  bool Asked_ = false, Commanded_ = false;
  bool Interrupted_ = false;
};

/// Calls a member of a driver, and waits for replies that the member does not wait for itself, for five
/// seconds at most.
MemberCall CallMember(const std::function<std::optional<bool>()>& member, ExchangeCollector& collector);

}  // namespace ptzd
