#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace ptzgate {

/// How long something took, as Prometheus counts it: in buckets, each with all that took no longer.
class Durations {
 public:
  /// Seconds.
  static constexpr std::array<double, 13> Bounds{0.001, 0.0025, 0.005, 0.01, 0.025, 0.05, 0.1,
                                                 0.25,  0.5,    1,     2.5,  5,     10};
  void Add(std::chrono::nanoseconds took);

  struct Counts {
    std::array<std::uint64_t, Bounds.size()> AtMost{};
    std::uint64_t All = 0;
    double Sum = 0;
  };
  Counts Read() const;

 private:
  mutable std::mutex Mutex_;
  Counts Counts_;
};

/// What the gateway counts. May be used on any thread.
class Metrics {
 public:
  /// Of exchanges, by the driver's ProgID; lives as long as this.
  Durations& ExchangesOf(std::string_view driver);
  /// From a stop's wish until the camera took it.
  Durations Stops;
  std::atomic<std::uint64_t> FailedExchanges = 0, FailedStops = 0;
  std::atomic<std::uint64_t> EndedLeases = 0;  ///< drives that stopped because nobody renewed them
  std::atomic<std::uint64_t> Wishes = 0, Refusals = 0;
  std::atomic<std::uint64_t> FailedLogins = 0;
  std::atomic<bool> IsBrokerThere = false;  ///< connected, and wishes from there are obeyed

  /// Calls `visit` for each driver that had exchanges.
  template <typename Visit>
  void ForEachDriver(const Visit& visit) const {
    const std::lock_guard lock(Mutex_);
    for (const auto& [driver, durations] : Exchanges_) visit(driver, durations);
  }

 private:
  mutable std::mutex Mutex_;
  std::map<std::string, Durations, std::less<>> Exchanges_;
};

}  // namespace ptzgate
