#include "gateway/web/WebSocket.h"

#include <algorithm>
#include <boost/asio/post.hpp>
#include <boost/beast/core/buffers_to_string.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket/stream.hpp>
#include <deque>
#include <optional>
#include <utility>

#include "gateway/web/ServerState.h"
#include "gateway/web/WebSocketSession.h"

namespace ptzgate {

namespace asio = boost::asio;
namespace http = boost::beast::http;
namespace websocket = boost::beast::websocket;
using boost::system::error_code;

namespace {

/// A connection as a stream of Beast's.
class Channel {
 public:
  using executor_type = asio::any_io_executor;

  Channel(std::shared_ptr<Connection> connection, const ServerLimits& limits)
      : Pipe_(std::make_shared<Pipe>(Pipe{std::move(connection), limits})) {}

  executor_type get_executor() { return Pipe_->Bytes->Executor(); }

  template <typename Buffers, typename Handler>
  void async_read_some(const Buffers& buffers, Handler&& handler) {
    auto done = std::make_shared<std::decay_t<Handler>>(std::forward<Handler>(handler));
    Pipe_->Reader = [done, buffers](const error_code& error, std::string_view text) {
      const auto count = asio::buffer_copy(buffers, asio::buffer(text.data(), text.size()));
      return std::pair(count, std::function<void()>([done, error, count] { (*done)(error, count); }));
    };
    if (Pipe_->Error) return Pipe_->Fail();
    asio::post(get_executor(), [pipe = Pipe_] { pipe->Feed(); });
  }

  /// A long message comes in pieces; the next one is wanted when the peer has taken what is too much to wait.
  template <typename Buffers, typename Handler>
  void async_write_some(const Buffers& buffers, Handler&& handler) {
    if (!Pipe_->Error)
      for (auto at = asio::buffer_sequence_begin(buffers); at != asio::buffer_sequence_end(buffers); ++at) {
        const asio::const_buffer part(*at);
        Pipe_->Bytes->Write({static_cast<const char*>(part.data()), part.size()});
      }
    auto done = std::make_shared<std::decay_t<Handler>>(std::forward<Handler>(handler));
    Pipe_->Writer = [done, count = boost::beast::buffer_bytes(buffers)](const error_code& error) {
      (*done)(error, error ? 0 : count);
    };
    if (Pipe_->Error || Pipe_->Bytes->Backlog() <= Pipe_->Limits.Backlog) Pipe_->EndWrite();
  }

  void Drained() { Pipe_->EndWrite(); }
  void Feed() { Pipe_->Feed(); }
  /// What has come is still read.
  void End() {
    Pipe_->IsAtEnd = true;
    Pipe_->Feed();
  }
  void Fail(const error_code& error) {
    Pipe_->Error = error;
    Pipe_->Fail();
  }

  template <typename Handler>
  friend void async_teardown(boost::beast::role_type, Channel& channel, Handler&& handler) {
    channel.Pipe_->Bytes->Finish();
    asio::post(channel.get_executor(),
               boost::beast::bind_handler(std::forward<Handler>(handler), error_code()));
  }
  friend void beast_close_socket(Channel& channel) { channel.Pipe_->Bytes->CloseSoon(); }

 private:
  struct Pipe {
    std::shared_ptr<Connection> Bytes;
    const ServerLimits& Limits;
    error_code Error{};
    bool IsAtEnd = false;
    std::function<std::pair<std::size_t, std::function<void()>>(const error_code&, std::string_view)>
        Reader{};
    std::function<void(const error_code&)> Writer{};

    void EndWrite() {
      if (!Writer) return;
      asio::post(Bytes->Executor(),
                 [writer = std::exchange(Writer, nullptr), error = Error] { writer(error); });
    }
    void Feed() {
      if (!Reader || Error) return;
      const auto inbox = Bytes->Inbox();
      if (inbox.empty() && !IsAtEnd) return;
      const error_code end = inbox.empty() ? error_code(asio::error::eof) : error_code();
      const auto [count, done] = std::exchange(Reader, nullptr)(end, inbox);
      Bytes->Consume(count);
      done();
    }
    // They go with the loop, if that does not run any more.
    void Fail() {
      EndWrite();
      if (!Reader) return;
      asio::post(Bytes->Executor(),
                 [reader = std::exchange(Reader, nullptr), error = Error] { reader(error, {}).second(); });
    }
  };

  std::shared_ptr<Pipe> Pipe_;
};

}  // namespace

class WebSocketSession final : public Protocol, public std::enable_shared_from_this<WebSocketSession> {
 public:
  WebSocketSession(std::shared_ptr<ServerState> server, std::shared_ptr<Connection> connection,
                   std::weak_ptr<WebSocket> socket, const Request& request, std::string protocol)
      : Server_(std::move(server)),
        Connection_(std::move(connection)),
        Socket_(std::move(socket)),
        Protocol_(std::move(protocol)),
        Stream_(Connection_, Server_->Settings.Limits) {
    Upgrade_.method(http::verb::get);
    Upgrade_.target("/");
    for (const auto& [name, value] : request.Headers) Upgrade_.insert(name, value);
  }

  void Attach(const std::shared_ptr<WebSocket>& socket) { socket->Session_ = weak_from_this(); }

  void Start() override {
    const auto& limits = Server_->Settings.Limits;
    Stream_.set_option(websocket::stream_base::timeout{limits.LingerTimeout, limits.WebSocketIdle, true});
    Stream_.set_option(websocket::stream_base::decorator([this](websocket::response_type& response) {
      for (const auto& [name, value] : SecurityHeaders(Connection_->IsSecure())) response.set(name, value);
      if (!Protocol_.empty()) response.set(http::field::sec_websocket_protocol, Protocol_);
    }));
    Stream_.read_message_max(limits.MessageBytes);
    Stream_.auto_fragment(false);
    Stream_.text(true);
    Stream_.async_accept(Upgrade_, [self = shared_from_this()](const error_code& error) {
      if (error) return self->Fail();
      self->IsOpen_ = true;
      self->ReadNext();
      self->WriteNext();
    });
  }

  void Received() override { Stream_.next_layer().Feed(); }
  void Drained() override { Stream_.next_layer().Drained(); }
  void Ended() override { Stream_.next_layer().End(); }
  void Closed() override {
    Stream_.next_layer().Fail(asio::error::connection_reset);
    TellGone();
  }

  bool Send(std::string text) {
    Longest_ = std::max(Longest_, text.size());
    if (QueuedBytes_ > Server_->Settings.Limits.Backlog + Longest_) {
      Connection_->CloseSoon();
      return false;
    }
    QueuedBytes_ += text.size();
    Queue_.push_back(std::move(text));
    WriteNext();
    return true;
  }

  std::size_t Backlog() const { return QueuedBytes_ + Connection_->Backlog(); }

  void Close(std::uint16_t code, std::string_view reason) {
    if (Reason_) return;
    Reason_.emplace(code);
    Reason_->reason = std::string(reason.substr(0, 123));
    WriteNext();
  }

 private:
  void ReadNext() {
    Stream_.async_read(Buffer_, [self = shared_from_this()](const error_code& error, std::size_t) {
      if (error) return self->Fail();
      self->HandleMessage();
      self->ReadNext();
    });
  }

  void HandleMessage() {
    std::string text = boost::beast::buffers_to_string(Buffer_.data());
    Buffer_.consume(Buffer_.size());
    const auto socket = Socket_.lock();
    if (!socket || socket->IsOver_) return;
    const auto& limits = Server_->Settings.Limits;
    if (!Messages_.Take(limits.MessagesPerSecond, limits.MessageBurst))
      return Leave(1008, "too many messages");
    if (!Stream_.got_text()) return Leave(1003, "the messages here are text");
    // It may let go of itself.
    if (const auto message = socket->Message_) {
      if (!Server_->Guarded("a handler of messages failed", [&] { message(std::move(text)); })) {
        Leave(1011, "this should not have happened");
      }
    }
  }

  void WriteNext() {
    if (!IsOpen_ || IsWriting_) return;
    if (!Queue_.empty()) {
      IsWriting_ = true;
      Stream_.async_write(asio::buffer(Queue_.front()),
                          [self = shared_from_this()](const error_code& error, std::size_t) {
                            self->IsWriting_ = false;
                            self->QueuedBytes_ -= self->Queue_.front().size();
                            self->Queue_.pop_front();
                            if (!error) self->WriteNext();
                          });
    } else if (Reason_ && !IsClosing_) {
      IsClosing_ = true;
      Stream_.async_close(*Reason_,
                          [self = shared_from_this()](const error_code&) { self->Connection_->Finish(); });
    }
  }

  /// Closes of the server's own accord.
  void Leave(std::uint16_t code, std::string_view reason) {
    TellGone();
    Close(code, reason);
  }

  void Fail() {
    TellGone();
    Connection_->Finish();
  }

  void TellGone() {
    const auto socket = Socket_.lock();
    if (socket) Server_->Guarded("a handler of a peer's end failed", [&] { socket->TellGone(); });
  }

  std::shared_ptr<ServerState> Server_;
  std::shared_ptr<Connection> Connection_;
  std::weak_ptr<WebSocket> Socket_;
  std::string Protocol_;
  http::request<http::empty_body> Upgrade_;
  websocket::stream<Channel, false> Stream_;
  boost::beast::flat_buffer Buffer_;
  TokenBucket Messages_;
  std::deque<std::string> Queue_;
  std::size_t QueuedBytes_ = 0, Longest_ = 0;
  std::optional<websocket::close_reason> Reason_;
  bool IsOpen_ = false, IsWriting_ = false, IsClosing_ = false;
};

std::shared_ptr<Protocol> MakeWebSocketSession(std::shared_ptr<ServerState> server,
                                               std::shared_ptr<Connection> connection,
                                               const std::shared_ptr<WebSocket>& socket,
                                               const Request& request, const std::string& protocol) {
  auto session =
      std::make_shared<WebSocketSession>(std::move(server), std::move(connection), socket, request, protocol);
  session->Attach(socket);
  return session;
}

WebSocket::~WebSocket() { Close(1001); }

bool WebSocket::Send(std::string text) {
  if (IsOver_) return false;
  const auto session = Session_.lock();
  if (!session || !session->Send(std::move(text))) IsOver_ = true;
  return !IsOver_;
}

std::size_t WebSocket::Backlog() const {
  const auto session = IsOver_ ? nullptr : Session_.lock();
  return session ? session->Backlog() : 0;
}

void WebSocket::Close(std::uint16_t code, std::string_view reason) {
  Message_ = nullptr;
  Gone_ = nullptr;
  if (std::exchange(IsOver_, true)) return;
  if (const auto session = Session_.lock()) session->Close(code, reason);
}

void WebSocket::WhenGone(std::function<void()> gone) {
  if (IsGone_) return gone();
  Gone_ = std::move(gone);
}

void WebSocket::TellGone() {
  IsOver_ = IsGone_ = true;
  Message_ = nullptr;
  if (const auto gone = std::exchange(Gone_, nullptr)) gone();
}

}  // namespace ptzgate
