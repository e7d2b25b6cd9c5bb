#include "gateway/core/Metrics.h"

#include <algorithm>

namespace ptzgate {

void Durations::Add(std::chrono::nanoseconds took) {
  const auto seconds = std::chrono::duration<double>(took).count();
  const std::lock_guard lock(Mutex_);
  for (std::size_t i = 0; i < Bounds.size(); ++i)
    if (seconds <= Bounds[i]) ++Counts_.AtMost[i];
  ++Counts_.All;
  Counts_.Sum += std::max(seconds, 0.0);
}

Durations::Counts Durations::Read() const {
  const std::lock_guard lock(Mutex_);
  return Counts_;
}

Durations& Metrics::ExchangesOf(std::string_view driver) {
  const std::lock_guard lock(Mutex_);
  const auto known = Exchanges_.find(driver);
  return known != Exchanges_.end() ? known->second : Exchanges_[std::string(driver)];
}

}  // namespace ptzgate
