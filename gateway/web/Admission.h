#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <string>

namespace ptzgate {

struct ServerLimits;

/// Lets through what comes at a rate. It begins full.
class TokenBucket {
 public:
  using Clock = std::chrono::steady_clock;

  /// Takes a token if there is one. `perSecond` of 0: there always is.
  bool Take(double perSecond, double burst, Clock::time_point now = Clock::now());
  /// Until there is one, rounded up, 1 at least.
  std::chrono::seconds Wait(double perSecond) const;
  bool IsFull(double perSecond, double burst, Clock::time_point now) const;

 private:
  double Left(double perSecond, double burst, Clock::time_point now) const;

  double Taken_ = 0;  ///< less than full
  Clock::time_point When_{};
};

/// Who may connect and ask, counted by address.
class Admission {
 public:
  enum class Verdict { Welcome, Refuse, Ignore };

  /// Counts a connection unless it is ignored: then there are so many that even a refusal would be too dear.
  Verdict Enter(const std::string& address, const ServerLimits& limits);
  void Leave(const std::string& address);
  /// Nothing when a request may be handled, else how long the address should wait.
  std::chrono::seconds Delay(const std::string& address, const ServerLimits& limits);

 private:
  struct Guest {
    std::size_t Connections = 0;
    TokenBucket Requests;
  };

  void Forget(const ServerLimits& limits);

  std::map<std::string, Guest> Guests_;
  std::size_t Connections_ = 0;
};

}  // namespace ptzgate
