#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace ptzgate {

class WebSocketSession;

/// A WebSocket of text messages. The server pings a peer that is silent and drops one that does not answer
/// (`ServerLimits::WebSocketIdle`). Closes with 1001 when its last reference goes; what is attached may hold
/// one, since it is let go of when the peer has gone. All members are for the gate's thread.
class WebSocket {
 public:
  explicit WebSocket(std::uint64_t connection) : Connection_(connection) {}
  ~WebSocket();
  WebSocket(const WebSocket&) = delete;
  WebSocket& operator=(const WebSocket&) = delete;

  /// As `Call::Connection`.
  std::uint64_t Connection() const { return Connection_; }

  /// False when it is over, and nothing was sent. `text` is UTF-8. A peer so slow that more than
  /// `ServerLimits::Backlog` bytes and as much as the longest text so far wait for it already, beside up to
  /// as many that are on their way, is dropped with this.
  bool Send(std::string text);
  /// How many bytes wait for the peer; what is on its way of a text that is being sent counts twice.
  std::size_t Backlog() const;
  bool IsOver() const { return IsOver_; }

  /// Called with each message. Set it before control returns to the loop, and none is lost.
  void WhenMessage(std::function<void(std::string)> message) { Message_ = std::move(message); }
  /// `gone` is called once when the peer closes or goes, or the server stops, but not after `Close`; at once
  /// when that is so already. It is not called within `Send`.
  void WhenGone(std::function<void()> gone);
  /// Says goodbye with a code of RFC 6455 (1000 is normal, 1008 a rule broken, 4000 to 4999 are free for use)
  /// and up to 123 bytes of reason. From now on nothing is told any more.
  void Close(std::uint16_t code = 1000, std::string_view reason = {});

 private:
  friend class WebSocketSession;
  void TellGone();

  std::weak_ptr<WebSocketSession> Session_;
  std::uint64_t Connection_;
  std::function<void(std::string)> Message_;
  std::function<void()> Gone_;
  bool IsOver_ = false;
  bool IsGone_ = false;
};

}  // namespace ptzgate
