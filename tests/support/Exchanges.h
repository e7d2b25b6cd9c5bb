#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include <ptzd/Exchange.h>
#include "simulators/engine/RequestLog.h"

namespace ptzd::test {

/// Keeps what it is told.
class Exchanges final : public ExchangeSink {
 public:
  void Begun(const Exchange& exchange) override {
    const std::lock_guard lock(Mutex_);
    Begun_.push_back(exchange);
  }
  void Ended(const Exchange& exchange) override {
    const std::lock_guard lock(Mutex_);
    Ended_.push_back(exchange);
    Changed_.notify_all();
  }
  std::size_t WantsOfReply() const override { return Wanted; }

  std::size_t Wanted = 0;  ///< bytes of each reply

  std::vector<Exchange> Beginnings() const {
    const std::lock_guard lock(Mutex_);
    return Begun_;
  }
  std::vector<Exchange> Ends() const {
    const std::lock_guard lock(Mutex_);
    return Ended_;
  }
  /// False when so many never end.
  bool WaitForEnds(std::size_t count) const {
    std::unique_lock lock(Mutex_);
    return Changed_.wait_for(lock, ptzsim::RequestLog::Deadline, [&] { return Ended_.size() >= count; });
  }

 private:
  mutable std::mutex Mutex_;
  mutable std::condition_variable Changed_;
  std::vector<Exchange> Begun_, Ended_;
};

}  // namespace ptzd::test
