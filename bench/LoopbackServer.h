#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <vector>

/// A camera that costs next to nothing, in a process of its own so that it shows up in no measurement of this
/// one. Keeps every connection.
class LoopbackServer {
 public:
  enum class Manner { AnswersAtOnce, Silent };

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

 private:
  struct Seen {
    std::atomic<int> connections, requests;
  };

  [[noreturn]] void Serve(const std::vector<int>& listeners, Manner manner);

  Seen* Seen_;  ///< in memory that both processes have
  std::vector<std::uint16_t> Ports_;
  pid_t Child_ = -1;
};
