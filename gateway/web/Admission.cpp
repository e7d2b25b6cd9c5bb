#include "gateway/web/Admission.h"

#include <algorithm>
#include <cmath>

#include "gateway/web/Server.h"

namespace ptzgate {

double TokenBucket::Left(double perSecond, double burst, Clock::time_point now) const {
  const double since = std::chrono::duration<double>(now - When_).count();
  return burst - std::max(Taken_ - since * perSecond, 0.0);
}

bool TokenBucket::Take(double perSecond, double burst, Clock::time_point now) {
  if (perSecond <= 0) return true;
  const double left = Left(perSecond, burst, now);
  Taken_ = burst - left;
  When_ = now;
  if (left < 1) return false;
  ++Taken_;
  return true;
}

std::chrono::seconds TokenBucket::Wait(double perSecond) const {
  return std::chrono::seconds(std::clamp<std::int64_t>(std::llround(std::ceil(1 / perSecond)), 1, 3600));
}

bool TokenBucket::IsFull(double perSecond, double burst, Clock::time_point now) const {
  return Left(perSecond, burst, now) >= burst;
}

Admission::Verdict Admission::Enter(const std::string& address, const ServerLimits& limits) {
  constexpr std::size_t Refusals = 16;  // at a time, beyond the limits
  if (Connections_ >= limits.Connections + Refusals) return Verdict::Ignore;
  Forget(limits);
  auto& guest = Guests_[address];
  if (guest.Connections >= limits.ConnectionsPerAddress + Refusals) return Verdict::Ignore;
  ++Connections_;
  ++guest.Connections;
  return Connections_ > limits.Connections || guest.Connections > limits.ConnectionsPerAddress
             ? Verdict::Refuse
             : Verdict::Welcome;
}

void Admission::Leave(const std::string& address) {
  --Connections_;
  --Guests_[address].Connections;
}

std::chrono::seconds Admission::Delay(const std::string& address, const ServerLimits& limits) {
  auto& requests = Guests_[address].Requests;
  const bool may = requests.Take(limits.RequestsPerSecond, limits.RequestBurst);
  return may ? std::chrono::seconds(0) : requests.Wait(limits.RequestsPerSecond);
}

// An address that has gone is remembered until nothing is held against it.
void Admission::Forget(const ServerLimits& limits) {
  if (Guests_.size() < 2 * limits.Connections) return;
  const auto now = TokenBucket::Clock::now();
  std::erase_if(Guests_, [&](const auto& guest) {
    return guest.second.Connections == 0 &&
           guest.second.Requests.IsFull(limits.RequestsPerSecond, limits.RequestBurst, now);
  });
}

}  // namespace ptzgate
