#pragma once

// Inside the engine only: this header pulls in Boost.

#include <boost/asio/ip/tcp.hpp>
#include <cstdint>
#include <functional>

#include "simulators/engine/Faults.h"
#include "simulators/engine/Loop.h"

namespace ptzsim {

/// A listening socket on 127.0.0.1 that obeys the faults of listeners. Its callbacks come on the loop's
/// thread.
class Listener {
 public:
  using Socket = boost::asio::ip::tcp::socket;

  /// `accepted` gets each new connection; `closeAll` is called when a fault has all of them closed. Throws
  /// std::runtime_error when the port cannot be had (0: one chosen by the system).
  Listener(Loop& loop, std::uint16_t port, FaultSwitches& faults, std::function<void(Socket)> accepted,
           std::function<void()> closeAll);
  ~Listener();
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  std::uint16_t Port() const { return Port_; }

 private:
  enum class Mode { Closed, Accepting, Refusing, FullQueue };

  void Apply();
  void Listen(Mode mode);
  void Accept();

  Loop& Loop_;
  std::uint16_t Port_;
  FaultSwitches& Faults_;
  std::function<void(Socket)> Accepted_;
  std::function<void()> CloseAll_;
  Mode Mode_ = Mode::Closed;
  int Watcher_ = 0;
  // Bound all the time and never listening, so that nobody else gets the port while the listener is closed.
  boost::asio::ip::tcp::acceptor Reservation_{Loop_.Context()};
  boost::asio::ip::tcp::acceptor Acceptor_{Loop_.Context()};
  Socket Filler_{Loop_.Context()};
};

}  // namespace ptzsim
