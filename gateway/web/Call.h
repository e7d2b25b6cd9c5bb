#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "gateway/web/Message.h"

namespace ptzgate {

class Session;
class Stream;
class WebSocket;

/// One request while it is answered, at once or later. It is answered once: by `Answer`, `BeginStream` or
/// `AcceptWebSocket`; what comes after that, or after the peer has gone, has no effect. A call whose last
/// reference goes unanswered is answered 500, and the log says so. All members are for the gate's thread.
class Call : public std::enable_shared_from_this<Call> {
 public:
  Call(std::weak_ptr<Session> session, std::uint64_t connection, Request request);
  ~Call();
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  const Request& Asked() const { return Request_; }
  /// The connection's number, never used again by any server of this process. `Server::WhenConnectionGone`
  /// tells of its end.
  std::uint64_t Connection() const { return Connection_; }

  /// A response that HTTP does not allow (a status out of range, a line break in a header) becomes a 500, and
  /// the log says so.
  void Answer(Response response);

  /// A body of unknown length: server-sent events, a film. The head's own body is its first part.
  std::shared_ptr<Stream> BeginStream(Response head);

  /// Whether the client wants a WebSocket.
  bool WantsWebSocket() const;
  /// Null when the client did not ask for one, or not properly: it has been answered then. `protocol` is the
  /// one chosen of those the client offered, empty for none.
  std::shared_ptr<WebSocket> AcceptWebSocket(const std::string& protocol = {});

  /// `gone` is called once when the peer goes, or the server stops, before the answer was written; at once
  /// when that is so already. Later ones replace earlier ones. A
  /// stream or WebSocket has its own.
  void WhenGone(std::function<void()> gone);

 private:
  friend class Session;
  void TellGone();

  std::weak_ptr<Session> Session_;
  std::uint64_t Connection_;
  Request Request_;
  std::function<void()> Gone_;
  bool IsAnswered_ = false;
  bool IsGone_ = false;
};

/// A body that is sent as it comes to be. Ends when its last reference goes; what is attached may hold one,
/// since it is let go of when the peer has gone.
class Stream {
 public:
  explicit Stream(std::weak_ptr<Session> session) : Session_(std::move(session)) {}
  ~Stream();
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  /// False when it is over, and nothing was sent. A peer so slow that more than `ServerLimits::Backlog` bytes
  /// and as much as the longest text so far wait for it already is dropped with this.
  bool Send(std::string_view text);
  /// How many bytes wait for the peer; for those who leave out a picture rather than lose the peer.
  std::size_t Backlog() const;
  bool IsOver() const { return IsOver_; }
  /// Ends the body properly. `WhenGone` is not called any more.
  void End();
  /// `gone` is called once when the peer goes, or the server stops, before `End`; at once when that is so
  /// already, as it is where the answer has no body (HEAD). It is not called within `Send`. Later ones
  /// replace earlier ones.
  void WhenGone(std::function<void()> gone);

 private:
  friend class Call;
  friend class Session;
  void TellGone();

  std::weak_ptr<Session> Session_;
  std::function<void()> Gone_;
  bool IsOver_ = false;
  bool IsGone_ = false;
};

}  // namespace ptzgate
