#pragma once

#include <boost/asio/io_context.hpp>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <string>

#include "common/Credentials.h"
#include "gateway/core/GateFile.h"

namespace ptzgate {

/// One connection to a broker, from when it is wished until it is lost; who wants another makes another, so
/// that nothing that was meant for the one comes late on the other. The library's loop runs on a thread of
/// its own, which resolving and connecting may block; all members are for the gateway's thread, answer at
/// once but for `End`, and call back on that thread.
class Broker {
 public:
  struct Message {
    std::string Topic, Payload;
    bool IsRetained = false;  ///< it was kept by the broker, for how long nobody knows
    bool IsTooLong = false;   ///< in place of the payload
  };
  struct Callbacks {
    std::function<void()> Connected;
    std::function<void(const Message&)> Came;
    std::function<void(const std::string& why)> Gone;  ///< once, and nothing after it; may let this die
  };
  struct Will {
    std::string Topic, Payload;  ///< what the broker tells, retained, when this is lost
  };

  /// `longest`: bytes of a message that comes. `after`: what it waits for before it connects. Nothing of an
  /// earlier session is wanted from the broker: what was wished while nobody listened must not move a camera
  /// later.
  Broker(boost::asio::io_context& context, const MQTTSettings& settings, const ptzd::Login& login,
         const Will& will, std::size_t longest, std::shared_future<void> after, Callbacks callbacks);
  /// Parts without waiting for it: what was published last is sent later.
  ~Broker();
  Broker(const Broker&) = delete;
  Broker& operator=(const Broker&) = delete;

  // At least once (QoS 1). They do nothing where the connection is lost, which is told.
  void Publish(const std::string& topic, const std::string& payload, bool isRetained);
  void Subscribe(const std::string& filter);
  void Unsubscribe(const std::string& filter);

  /// Sends what is left, and parts. Blocks until that is done, for as long as said at most.
  void End(std::chrono::milliseconds longest);
  /// Is fulfilled when nothing is sent any more. Another connection of the same name cuts this one off.
  std::shared_future<void> Ended() const { return Ended_; }

 private:
  struct State;
  std::shared_ptr<State> State_;
  std::shared_future<void> Ended_;
};

}  // namespace ptzgate
