#pragma once

#include <sys/types.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <vector>

/// A camera that costs next to nothing, in a process of its own so that it shows up in no measurement of this
/// one. Keeps every connection.
class LoopbackServer {
 public:
  enum class Manner {
    AnswersAtOnce,
    Silent,
    FocusesSlowly,  ///< answers what moves the focus after `SlowReply`
  };
  static constexpr std::chrono::milliseconds SlowReply{20};

  /// Listens on so many ports of 127.0.0.1.
  explicit LoopbackServer(int ports = 1, Manner manner = Manner::AnswersAtOnce);
  ~LoopbackServer();
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;

  std::uint16_t Port(int index = 0) const { return Ports_.at(index); }
  /// Connections that were opened to it so far.
  int Connections() const { return Seen_->connections; }
  /// Requests that it has read so far.
  int Requests() const { return Seen_->requests; }
  /// When it had read the last stop of a head, the first of several in a row, and when it had sent the last
  /// slow reply.
  std::chrono::steady_clock::time_point StopSeen() const { return At(Seen_->stop); }
  std::chrono::steady_clock::time_point SlowReplySent() const { return At(Seen_->slowReply); }

 private:
  struct Seen {
    std::atomic<int> connections, requests;
    std::atomic<std::chrono::steady_clock::rep> stop, slowReply;  ///< the clock of all processes
  };
  static std::chrono::steady_clock::time_point At(std::chrono::steady_clock::rep ticks) {
    return std::chrono::steady_clock::time_point(std::chrono::steady_clock::duration(ticks));
  }

  [[noreturn]] void Serve(const std::vector<int>& listeners, Manner manner);

  Seen* Seen_;  ///< in memory that both processes have
  std::vector<std::uint16_t> Ports_;
  pid_t Child_ = -1;
};
