#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "simulators/engine/Faults.h"
#include "simulators/engine/Message.h"
#include "simulators/engine/RequestLog.h"

namespace ptzsim {

/// Raw TCP connections on 127.0.0.1 that carry a make's own messages, with faults. It runs on a thread of its
/// own from its construction to its destruction. Messages may come in pieces or several at once; one that is
/// unfinished when the other side closes is a violation.
class TCPServer {
 public:
  struct Options {
    std::uint16_t Port = 0;  ///< 0: one chosen by the system
  };

  /// `log` and `faults` must outlive it. Throws std::runtime_error when the port cannot be had.
  TCPServer(MessageHandler handler, Options options, RequestLog& log, FaultSwitches& faults);
  ~TCPServer();

  std::uint16_t Port() const;
  std::string Address() const;  ///< "127.0.0.1:40123"

  /// Closes all connections from this side, in the usual way or with a reset; new ones are accepted. When it
  /// returns they are closed. Any thread.
  void CloseConnections(bool reset = false);

 private:
  class Implementation;
  std::unique_ptr<Implementation> Implementation_;
};

}  // namespace ptzsim
