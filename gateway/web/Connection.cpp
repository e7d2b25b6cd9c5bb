#include "gateway/web/Connection.h"

#include <netinet/tcp.h>

#include <algorithm>
#include <boost/asio/post.hpp>
#include <boost/asio/write.hpp>

#include "gateway/web/Server.h"

namespace ptzgate {

namespace asio = boost::asio;
using boost::system::error_code;

namespace {

/// What a buffer may hold on to while it is not needed.
constexpr std::size_t KeptBytes = 64 * 1024;

/// Lets the system notice a peer that has gone without a word (a cable pulled, a power cut), whether it was
/// silent or owed an acknowledgement.
void WatchPeer(Connection::Socket& socket, std::chrono::milliseconds patience) {
  const auto set = [&socket](int option, int value) {
    setsockopt(socket.native_handle(), IPPROTO_TCP, option, &value, sizeof value);
  };
  const auto seconds = static_cast<int>(std::max<std::int64_t>(patience.count() / 1000, 2));
  error_code ignored;
  socket.set_option(asio::socket_base::keep_alive(true), ignored);
  socket.set_option(asio::ip::tcp::no_delay(true), ignored);
  set(TCP_KEEPIDLE, seconds / 2);
  set(TCP_KEEPINTVL, std::max(seconds / 6, 1));
  set(TCP_KEEPCNT, 3);
  set(TCP_USER_TIMEOUT, static_cast<int>(patience.count()));
}

}  // namespace

Connection::Connection(Socket socket, std::shared_ptr<asio::ssl::context> tls, const ServerLimits& limits,
                       std::uint64_t number)
    : Socket_(std::move(socket)),
      TLS_(std::move(tls)),
      Limits_(limits),
      Number_(number),
      Deadline_(Socket_.get_executor()),
      WriteTimer_(Socket_.get_executor()) {
  error_code gone;
  Peer_ = Socket_.remote_endpoint(gone);
  WatchPeer(Socket_, Limits_.WriteTimeout);
  if (TLS_) Stream_.emplace(Socket_, *TLS_);
}

void Connection::Start(std::shared_ptr<Protocol> protocol) {
  Protocol_ = std::move(protocol);
  const auto begin = [self = shared_from_this()] {
    const auto running = self->Protocol_;
    if (!running) return;
    running->Start();
    self->Read();
  };
  if (!Stream_) return begin();
  Arm(WriteTimer_, Limits_.HeaderTimeout, &Connection::Close);
  Stream_->async_handshake(asio::ssl::stream_base::server,
                           [self = shared_from_this(), begin](const error_code& error) {
                             if (self->IsClosed_) return;
                             Disarm(self->WriteTimer_);
                             error ? self->Close() : begin();
                           });
}

void Connection::ChangeProtocol(std::shared_ptr<Protocol> protocol) {
  if (IsClosed_ || IsFinishing_) return;
  ClearDeadline();
  Protocol_ = std::move(protocol);
  Protocol_->Start();
}

void Connection::Consume(std::size_t count) {
  Consumed_ += count;
  if (Consumed_ == Inbox_.size()) {
    Inbox_.clear();
    if (Inbox_.capacity() > KeptBytes) Inbox_ = {};
    Consumed_ = 0;
  }
  Read();
}

void Connection::Read() {
  if (IsReading_ || IsAtEnd_ || IsClosed_ || InboxIsFull()) return;
  IsReading_ = true;
  auto handler = [self = shared_from_this()](const error_code& error, std::size_t count) {
    self->HandleRead(error, count);
  };
  if (Stream_) {
    Stream_->async_read_some(asio::buffer(Buffer_), std::move(handler));
  } else {
    Socket_.async_read_some(asio::buffer(Buffer_), std::move(handler));
  }
}

void Connection::HandleRead(const error_code& error, std::size_t count) {
  IsReading_ = false;
  if (IsClosed_) return;
  if (error && error != asio::error::eof) return Close();
  const auto protocol = Protocol_;
  if (error) {
    IsAtEnd_ = true;
    if (HasLeft_) return Close();
    if (protocol && !IsFinishing_) protocol->Ended();
    return;
  }
  if (protocol && !IsFinishing_) {
    if (Consumed_ > InboxBytes / 2) {
      Inbox_.erase(0, Consumed_);
      Consumed_ = 0;
    }
    Inbox_.append(Buffer_.data(), count);
    protocol->Received();
  }
  Read();
}

void Connection::Write(std::string_view text) {
  if (IsClosed_ || IsFinishing_ || text.empty()) return;
  Waiting_ += text;
  Longest_ = std::max(Longest_, text.size());
  Send();
}

void Connection::Send() {
  if (IsSending_ || IsClosed_) return;
  if (Sent_ == Sending_.size()) {
    Sending_.clear();
    Sending_.swap(Waiting_);
    Sent_ = 0;
  }
  IsSending_ = true;
  Arm(WriteTimer_, Limits_.WriteTimeout, &Connection::Close);
  auto handler = [self = shared_from_this()](const error_code& error, std::size_t count) {
    self->HandleSent(error, count);
  };
  const auto rest = asio::buffer(Sending_) + Sent_;
  if (Stream_) {
    Stream_->async_write_some(rest, std::move(handler));
  } else {
    Socket_.async_write_some(rest, std::move(handler));
  }
}

void Connection::HandleSent(const error_code& error, std::size_t count) {
  IsSending_ = false;
  if (IsClosed_) return;
  if (error) return Close();
  Sent_ += count;
  if (Backlog() > 0) return Send();
  Disarm(WriteTimer_);
  if (Sending_.capacity() > KeptBytes) Sending_ = {};
  Sent_ = Sending_.size();
  if (Waiting_.capacity() > KeptBytes) Waiting_ = {};
  if (IsFinishing_) return TakeLeave();
  if (const auto protocol = Protocol_) protocol->Drained();
}

void Connection::Arm(asio::steady_timer& timer, std::chrono::milliseconds left,
                     void (Connection::*expired)()) {
  timer.expires_after(left);
  timer.async_wait([self = shared_from_this(), &timer, expired](const error_code& error) {
    // One that was put off when it had just expired is still called.
    if (!error && !self->IsClosed_ && timer.expiry() <= std::chrono::steady_clock::now())
      (self.get()->*expired)();
  });
}

void Connection::Disarm(asio::steady_timer& timer) {
  timer.expires_at(asio::steady_timer::time_point::max());
}

void Connection::SetDeadline(std::chrono::milliseconds left) { Arm(Deadline_, left, &Connection::Expire); }

void Connection::ClearDeadline() { Disarm(Deadline_); }

void Connection::Expire() {
  if (const auto protocol = Protocol_) {
    protocol->Expired();
  } else {
    Close();
  }
}

void Connection::Finish() {
  if (IsClosed_ || IsFinishing_) return;
  IsFinishing_ = true;
  ClearDeadline();
  if (Backlog() == 0) TakeLeave();
}

// A socket that is closed with bytes unread would reset the connection, and the peer might never see the
// answer.
void Connection::TakeLeave() {
  const auto self = shared_from_this();
  HasLeft_ = true;
  Detach();
  if (IsClosed_) return;
  if (IsAtEnd_) return Close();
  Inbox_.clear();
  Consumed_ = 0;
  SetDeadline(Limits_.LingerTimeout);
  if (Stream_) {
    Stream_->async_shutdown([self](const error_code&) { self->Close(); });
  } else {
    error_code ignored;
    Socket_.shutdown(Socket::shutdown_send, ignored);
  }
  Read();
}

void Connection::Detach() {
  if (const auto protocol = std::exchange(Protocol_, nullptr)) protocol->Closed();
  if (const auto gone = std::exchange(WhenGone, nullptr)) gone();
}

void Connection::Close() {
  if (IsClosed_) return;
  const auto self = shared_from_this();
  IsClosed_ = true;
  Deadline_.cancel();
  WriteTimer_.cancel();
  error_code ignored;
  Socket_.close(ignored);
  Detach();
  if (const auto released = std::exchange(WhenReleased, nullptr)) released();
}

void Connection::CloseSoon() {
  asio::post(Executor(), [self = shared_from_this()] { self->Close(); });
}

}  // namespace ptzgate
