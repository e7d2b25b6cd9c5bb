#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "simulators/engine/Faults.h"
#include "simulators/engine/RequestLog.h"

namespace ptzsim {

class Simulator;

/// What a handler answers. Length, connection and status line are added by the server.
struct HTTPReply {
  int Status = 200;
  std::string Reason{};  ///< empty: the usual one of the status
  std::vector<std::pair<std::string, std::string>> Headers{};
  std::string Body{};
  std::string Violation{};      ///< why the request should never have been sent; empty when it was in order
  std::string Raw{};            ///< when not empty: all the bytes to send, in place of everything above
  std::vector<Fault> Faults{};  ///< of this reply, besides those that are switched on

  static HTTPReply Text(std::string body, std::string type = "text/plain");
  static HTTPReply Nothing() { return {.Status = 204}; }
  /// The same, with the `Violation`.
  HTTPReply Blaming(std::string violation) &&;
};

/// An HTTP/1.1 and 1.0 server on 127.0.0.1, with faults. It runs on a thread of its own from its construction
/// to its destruction. Connections are kept as the protocol has it.
class HTTPServer {
 public:
  /// Called on the server's thread, one request at a time.
  using Handler = std::function<HTTPReply(const Request&)>;

  struct Options {
    std::uint16_t Port = 0;       ///< 0: one chosen by the system
    std::string Version = "1.1";  ///< in the status line; "1.0" for cameras that know no better
  };

  /// With a log and switches of its own. Throws std::runtime_error when the port cannot be had.
  explicit HTTPServer(Handler handler);
  HTTPServer(Handler handler, Options options);
  /// With those of a device, which must outlive it.
  HTTPServer(Handler handler, Options options, RequestLog& log, FaultSwitches& faults);
  /// Of a make that knows only GET requests. `answer` gets them with `state` locked; what it throws as
  /// std::invalid_argument is a violation, answered with 400, as any other method is, answered with 501.
  HTTPServer(Simulator& device, std::mutex& state, std::uint16_t port, Handler answer);
  ~HTTPServer();

  std::uint16_t Port() const;
  std::string Address() const;                               ///< "127.0.0.1:40123"
  std::string URL() const { return "http://" + Address(); }  ///< "http://127.0.0.1:40123"
  RequestLog& Log();
  FaultSwitches& Faults();

 private:
  class Implementation;
  std::unique_ptr<RequestLog> OwnLog_;
  std::unique_ptr<FaultSwitches> OwnFaults_;
  std::unique_ptr<Implementation> Implementation_;
};

}  // namespace ptzsim
