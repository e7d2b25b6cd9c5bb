#pragma once

#include <array>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace ptzgate {

struct ServerLimits;

/// What is spoken on a connection.
class Protocol {
 public:
  virtual ~Protocol() = default;
  virtual void Start() = 0;
  /// There is more in the inbox.
  virtual void Received() = 0;
  /// The peer sends nothing more.
  virtual void Ended() = 0;
  /// All that was written is on its way.
  virtual void Drained() {}
  /// The deadline has passed.
  virtual void Expired() {}
  /// The connection has gone, or is going without this protocol. Called once, last.
  virtual void Closed() = 0;
};

/// Bytes to and from a peer, by TCP or TLS. It reads all the time, so that the peer's end is noticed whatever
/// the protocol waits for. Lives until it is closed, then as long as the system still works on it.
class Connection : public std::enable_shared_from_this<Connection> {
 public:
  using Socket = boost::asio::ip::tcp::socket;

  /// By TLS if there is a context. `gone` is called once, when the peer has gone or is being left; `released`
  /// after it, when the socket is closed.
  Connection(Socket socket, std::shared_ptr<boost::asio::ssl::context> tls, const ServerLimits& limits,
             std::uint64_t number);
  std::function<void()> WhenGone, WhenReleased;

  std::uint64_t Number() const { return Number_; }
  boost::asio::ip::tcp::endpoint Peer() const { return Peer_; }
  bool IsSecure() const { return Stream_.has_value(); }
  boost::asio::any_io_executor Executor() { return Socket_.get_executor(); }

  /// Begins with the TLS handshake where there is one.
  void Start(std::shared_ptr<Protocol> protocol);
  /// What has been read already stays in the inbox. The old one is not told.
  void ChangeProtocol(std::shared_ptr<Protocol> protocol);

  /// What came and has not been consumed, 256 KB at most: no more is read before some of it is consumed.
  std::string_view Inbox() const { return std::string_view(Inbox_).substr(Consumed_); }
  bool InboxIsFull() const { return Inbox().size() >= InboxBytes; }
  void Consume(std::size_t count);

  void Write(std::string_view text);
  /// What was written and is not on its way.
  std::size_t Backlog() const { return Sending_.size() - Sent_ + Waiting_.size(); }
  /// Of all that was written at once: what is told first is long, and those who read it are not slow.
  std::size_t Longest() const { return Longest_; }

  /// Calls the protocol's `Expired` then, unless it is put off by another call.
  void SetDeadline(std::chrono::milliseconds left);
  void ClearDeadline();

  /// Takes leave: lets what was written arrive, then closes.
  void Finish();
  /// Cuts the connection.
  void Close();
  /// The same, when control is back in the loop.
  void CloseSoon();

 private:
  static constexpr std::size_t InboxBytes = 256 * 1024;

  void Arm(boost::asio::steady_timer& timer, std::chrono::milliseconds left, void (Connection::*expired)());
  static void Disarm(boost::asio::steady_timer& timer);
  void Expire();
  void Read();
  void HandleRead(const boost::system::error_code& error, std::size_t count);
  void Send();
  void HandleSent(const boost::system::error_code& error, std::size_t count);
  void TakeLeave();
  void Detach();

  Socket Socket_;
  boost::asio::ip::tcp::endpoint Peer_;
  std::shared_ptr<boost::asio::ssl::context> TLS_;
  std::optional<boost::asio::ssl::stream<Socket&>> Stream_;
  const ServerLimits& Limits_;
  const std::uint64_t Number_;
  std::shared_ptr<Protocol> Protocol_;
  boost::asio::steady_timer Deadline_, WriteTimer_;
  std::array<char, 8192> Buffer_;
  std::string Inbox_, Sending_, Waiting_;
  std::size_t Consumed_ = 0, Sent_ = 0, Longest_ = 0;
  bool IsReading_ = false, IsAtEnd_ = false, IsSending_ = false, IsFinishing_ = false, HasLeft_ = false,
       IsClosed_ = false;
};

}  // namespace ptzgate
