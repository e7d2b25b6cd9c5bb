#include "simulators/engine/HTTPServer.h"

#include <algorithm>
#include <array>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/status.hpp>
#include <boost/beast/http/string_body.hpp>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <optional>
#include <stdexcept>

#include "simulators/engine/Authentication.h"
#include "simulators/engine/Listener.h"
#include "simulators/engine/Loop.h"
#include "simulators/engine/Playback.h"
#include "simulators/engine/Simulator.h"

namespace ptzsim {
namespace {

namespace asio = boost::asio;
namespace http = boost::beast::http;
using asio::ip::tcp;
using boost::system::error_code;

/// Requests of cameras are short; the limits only keep a runaway client from eating the memory.
constexpr std::uint32_t HeaderLimit = 1024 * 1024;
constexpr std::uint64_t BodyLimit = 64 * 1024 * 1024;

/// An endless reply is sent in pieces of at least so many bytes.
constexpr std::size_t EndlessPiece = 64 * 1024;

struct Serialised {
  std::string Bytes{};
  std::size_t BodyAt = 0;
  bool Close = false;
  std::string Endless{};  ///< comes behind the bytes, again and again
};

constexpr char ContinueReply[] = "HTTP/1.1 100 Continue\r\n\r\n";

std::string Chunk(std::string_view bytes) {
  char length[24];
  std::snprintf(length, sizeof length, "%zx\r\n", bytes.size());
  return length + std::string(bytes) + "\r\n";
}

/// Those up to 1F and from 7F to 9F, without NUL, CR and LF.
std::string ControlCharacters() {
  std::string characters;
  for (int c = 1; c < 0xA0; ++c)
    if ((c < ' ' || c >= 0x7F) && c != '\r' && c != '\n') characters += static_cast<char>(c);
  return characters;
}

/// An entity of nine levels, each ten times the one before.
std::string DocumentThatExpands() {
  std::string document = "<?xml version=\"1.0\"?>\n<!DOCTYPE lol [\n<!ENTITY l0 \"lol\">\n";
  for (int level = 1; level < 10; ++level) {
    document += "<!ENTITY l" + std::to_string(level) + " \"";
    for (int i = 0; i < 10; ++i) document += "&l" + std::to_string(level - 1) + ";";
    document += "\">\n";
  }
  return document + "]>\n<lol>&l9;</lol>\n";
}

/// Each word of hexadecimal digits, one of them decimal, with its sign and its decimals.
std::string WithNumbers(const std::string& body, const std::string& number) {
  std::string changed;
  for (std::size_t at = 0; at < body.size();) {
    const auto isWord = [&](std::size_t i) {
      return i < body.size() && (std::isalnum(static_cast<unsigned char>(body[i])) || body[i] == '_' ||
                                 (body[i] == '.' && i > at));
    };
    auto end = at + (body[at] == '-' || body[at] == '+');
    const auto first = end;
    while (isWord(end)) ++end;
    const auto word = std::string_view(body).substr(first, end - first);
    const auto digits = word.substr(word.starts_with("0x") || word.starts_with("0X") ? 2 : 0);
    const bool isNumber = digits.find_first_of("0123456789") != digits.npos &&
                          digits.find_first_not_of("0123456789abcdefABCDEF.") == digits.npos;
    if (end == at) ++end;
    changed += isNumber ? number : body.substr(at, end - at);
    at = end;
  }
  return changed;
}

/// The reply as a healthy server would word it, before the framing faults have their way.
void Alter(HTTPReply& reply, const FaultSet& faults) {
  if (const Fault* status = faults.Find(FaultKind::WrongStatus)) {
    const auto blank = status->Text.find(' ');
    reply.Status = std::atoi(status->Text.c_str());
    reply.Reason = blank == std::string::npos ? "" : status->Text.substr(blank + 1);
  }
  if (faults.Has(FaultKind::NoContent)) reply = {.Status = 204, .Violation = reply.Violation};
  if (faults.Has(FaultKind::EmptyBody)) reply.Body.clear();
  if (faults.Has(FaultKind::XMLBomb)) reply.Body = DocumentThatExpands();
  if (const Fault* numbers = faults.Find(FaultKind::OtherNumbers))
    reply.Body = WithNumbers(reply.Body, numbers->Text);
  if (faults.Has(FaultKind::ControlBody))
    reply.Body.insert(reply.Body.size() / 2, ControlCharacters() + std::string("\0\r\n", 3));
  if (faults.Has(FaultKind::ControlHeaders)) reply.Headers.emplace_back("X-Control", ControlCharacters());
  if (const auto megabytes = faults.Number(FaultKind::OversizedBody)) {
    const auto size = static_cast<std::size_t>(*megabytes) * 1024 * 1024;
    if (reply.Body.empty()) reply.Body = "x";
    reply.Body.reserve(size);
    while (reply.Body.size() < size) reply.Body.append(reply.Body, 0, size - reply.Body.size());
    reply.Body.resize(size);
  }
  if (const auto length = faults.Number(FaultKind::LongHeaders)) {
    for (std::int64_t i = 0; i * 1000 <= *length; ++i) {
      reply.Headers.emplace_back("X-Padding-" + std::to_string(i), std::string(1000, 'p'));
    }
  }
}

/// Repeats what is sent again and again, so that it takes few writes.
void Enlarge(std::string& endless) {
  while (!endless.empty() && endless.size() < EndlessPiece) endless += endless;
}

Serialised Serialise(const HTTPReply& reply, const std::string& version, const Request& request, bool keep,
                     const FaultSet& faults) {
  if (!reply.Raw.empty()) return {reply.Raw, 0, !keep};
  if (faults.Has(FaultKind::BareBody)) return {reply.Body, 0, true};

  Serialised out{.Bytes = "HTTP/" + version + " " + std::to_string(reply.Status), .Close = !keep};
  if (!faults.Has(FaultKind::NoReason)) {
    const auto status = http::int_to_status(static_cast<unsigned>(reply.Status));
    const std::string usual(status == http::status::unknown ? "Unknown" : http::obsolete_reason(status));
    out.Bytes += " " + (reply.Reason.empty() ? usual : reply.Reason);
  }
  out.Bytes += "\r\n";
  const bool inParts = faults.Has(FaultKind::EndlessParts);
  for (const auto& [name, value] : reply.Headers)
    if (!inParts || name != "Content-Type") out.Bytes += name + ": " + value + "\r\n";

  const bool bodiless = reply.Status == 204 || reply.Status == 304 || reply.Status < 200;
  std::string body = bodiless ? "" : reply.Body;
  std::optional<std::size_t> length = body.size();
  const auto number = [&](FaultKind kind, std::size_t standard) {
    const auto given = faults.Number(kind);
    return given ? static_cast<std::size_t>(*given) : standard;
  };
  if (bodiless) {
    length.reset();  // and what faults do to bodies does not concern it
  } else if (faults.Has(FaultKind::EndlessBody) || faults.Has(FaultKind::EndlessChunks) || inParts) {
    out.Endless = body.empty() ? "x" : body;
    if (inParts) {
      out.Bytes += "Content-Type: multipart/x-mixed-replace;boundary=part\r\n";
      out.Endless =
          "--part\r\nContent-Type: image/jpeg\r\nContent-Length: " + std::to_string(out.Endless.size()) +
          "\r\n\r\n" + out.Endless + "\r\n";
    }
    if (!faults.Has(FaultKind::Drip)) Enlarge(out.Endless);
    if (faults.Has(FaultKind::EndlessChunks)) {
      out.Bytes += "Transfer-Encoding: chunked\r\n";
      out.Endless = Chunk(out.Endless);
    }
    body.clear();
    length.reset();
    out.Close = true;
  } else if (faults.Has(FaultKind::NoContentLength)) {
    length.reset();
    out.Close = true;
  } else if (faults.Has(FaultKind::ChunkedCutOff)) {
    const auto kept = std::min(number(FaultKind::ChunkedCutOff, body.size() / 2), body.size());
    // The chunk announces one byte more than the body has, so that it is unfinished wherever it is cut.
    std::string chunk = Chunk(body + "\n");
    chunk.resize(chunk.find('\n') + 1 + kept);
    body = std::move(chunk);
    length.reset();
    out.Close = true;
    out.Bytes += "Transfer-Encoding: chunked\r\n";
  } else if (faults.Has(FaultKind::Chunked)) {
    std::string chunks;
    const auto piece = number(FaultKind::Chunked, 16);
    for (std::size_t at = 0; at < body.size(); at += piece)
      chunks += Chunk(std::string_view(body).substr(at, piece));
    body = chunks + "0\r\n\r\n";
    length.reset();
    out.Bytes += "Transfer-Encoding: chunked\r\n";
  } else if (faults.Has(FaultKind::ShortBody)) {
    length = body.size() + number(FaultKind::ShortBody, 100);
    out.Close = true;
  } else if (faults.Has(FaultKind::LongBody)) {
    body += std::string(number(FaultKind::LongBody, 100), 'x');
  }

  if (length) out.Bytes += "Content-Length: " + std::to_string(*length) + "\r\n";
  // A client that was promised a lasting connection is what the cutting faults are for.
  if (!keep) {
    out.Bytes += "Connection: close\r\n";
  } else if (request.Version == "1.0" || version == "1.0") {
    out.Bytes += "Connection: keep-alive\r\n";
  }
  out.Bytes += "\r\n";
  if (faults.Has(FaultKind::LineFeedHeaders)) std::erase(out.Bytes, '\r');
  if (const auto times = faults.Number(FaultKind::Continue)) {
    for (std::int64_t i = 0; i < *times; ++i) out.Bytes.insert(0, ContinueReply);
  }
  out.BodyAt = out.Bytes.size();
  if (request.Method != "HEAD") out.Bytes += body;
  if (faults.Has(FaultKind::EndlessHeaders)) {
    out.Bytes.resize(out.BodyAt - 2);
    out.Endless = "X-Padding: and more\r\n";
  }
  if (faults.Has(FaultKind::Continue) && !faults.Number(FaultKind::Continue))
    out = {.Bytes = ContinueReply, .Endless = ContinueReply};
  if (!faults.Has(FaultKind::Drip)) Enlarge(out.Endless);
  return out;
}

/// A request handed to another camera, for its answer.
class Relay : public std::enable_shared_from_this<Relay> {
 public:
  using Done = std::function<void(HTTPReply)>;

  /// `done` is called from the executor, with 502 where nobody answers.
  static void Ask(const asio::any_io_executor& executor, const std::string& address, std::string request,
                  Done done) {
    const std::shared_ptr<Relay> relay(new Relay(executor, std::move(request), std::move(done)));
    const auto colon = address.rfind(':');
    error_code error;
    const auto host = asio::ip::make_address(address.substr(0, colon), error);
    if (error) return relay->End(error);
    const auto port = static_cast<std::uint16_t>(std::stoi(address.substr(colon + 1)));
    relay->Socket_.async_connect({host, port}, [relay](const error_code& failed) { relay->Write(failed); });
  }

 private:
  Relay(const asio::any_io_executor& executor, std::string request, Done done)
      : Socket_(executor), Request_(std::move(request)), Done_(std::move(done)) {}

  void Write(const error_code& failed) {
    if (failed) return End(failed);
    asio::async_write(
        Socket_, asio::buffer(Request_),
        [self = shared_from_this()](const error_code& error, std::size_t) { self->Read(error); });
  }
  void Read(const error_code& failed) {
    if (failed) return End(failed);
    http::async_read(Socket_, Buffer_, Reply_,
                     [self = shared_from_this()](const error_code& error, std::size_t) { self->End(error); });
  }
  void End(const error_code& failed) {
    if (failed) return Done_({.Status = 502});
    HTTPReply reply{.Status = static_cast<int>(Reply_.result_int()), .Reason = std::string(Reply_.reason())};
    for (const auto& field : Reply_)
      if (field.name() != http::field::content_length && field.name() != http::field::transfer_encoding &&
          field.name() != http::field::connection)
        reply.Headers.emplace_back(field.name_string(), field.value());
    reply.Body = std::move(Reply_.body());
    Done_(std::move(reply));
  }

  tcp::socket Socket_;
  std::string Request_;
  Done Done_;
  boost::beast::flat_buffer Buffer_;
  http::response<http::string_body> Reply_;
};

}  // namespace

HTTPReply HTTPReply::Text(std::string body, std::string type) {
  return {.Headers = {{"Content-Type", std::move(type)}}, .Body = std::move(body)};
}

class HTTPServer::Implementation {
 public:
  Implementation(Handler handler, Options options, RequestLog& log, FaultSwitches& faults);
  ~Implementation();

  std::uint16_t Port() const { return Listener_->Port(); }

  RequestLog& Log_;
  FaultSwitches& Faults_;

 private:
  class Connection;

  void Accepted(tcp::socket socket);
  void CloseAll();
  HTTPReply Answer(const Request& request, const FaultSet& faults);

  Handler Handler_;
  Options Options_;
  Authentication Authentication_;
  bool CookieSet_ = false;
  std::map<int, std::weak_ptr<Connection>> Connections_;
  // The loop ends before all that its handlers reach, and its sockets before the loop.
  Loop Loop_;
  std::optional<Listener> Listener_;
};

class HTTPServer::Implementation::Connection : public std::enable_shared_from_this<Connection> {
 public:
  Connection(Implementation& server, tcp::socket socket)
      : Server_(server), Socket_(std::move(socket)), Number_(server.Log_.OpenConnection()) {}

  int Number() const { return Number_; }

  void Start() {
    error_code ignored;
    Socket_.set_option(tcp::no_delay(true), ignored);
    NewRequest();
    Read();
  }

  void Close(bool reset = false) {
    if (!Socket_.is_open()) return;
    error_code ignored;
    if (reset) Socket_.set_option(asio::socket_base::linger(true, 0), ignored);
    Server_.Connections_.erase(Number_);
    Server_.Log_.CloseConnection();  // first, so that a client that sees the end finds it counted
    if (!reset) Socket_.shutdown(tcp::socket::shutdown_both, ignored);
    Socket_.close(ignored);
  }

 private:
  using Parser = http::request_parser<http::string_body>;

  void NewRequest() {
    Parser_.emplace();
    Parser_->eager(true);
    Parser_->header_limit(HeaderLimit);
    Parser_->body_limit(BodyLimit);
    Raw_.clear();
  }

  void Read() {
    Socket_.async_read_some(asio::buffer(Chunk_),
                            [self = shared_from_this()](const error_code& error, std::size_t count) {
                              error ? self->Ended() : self->Received(count);
                            });
  }

  void Ended() {
    if (Socket_.is_open() && !(Raw_.empty() && Pending_.empty())) {
      Server_.Log_.AddViolation("connection " + std::to_string(Number_) +
                                " was closed in the middle of a request: \"" + Raw_ + Pending_ + "\"");
    }
    Close();
  }

  void Received(std::size_t count) {
    if (DieOnReuse_) return Close(ResetsNext_);
    Pending_.append(Chunk_.data(), count);
    Parse();
  }

  void Parse() {
    while (!Pending_.empty() && !Parser_->is_done()) {
      error_code error;
      const std::size_t used = Parser_->put(asio::buffer(Pending_), error);
      Raw_.append(Pending_, 0, used);
      Pending_.erase(0, used);
      if (error == http::error::need_more) break;
      if (error) return Malformed(error);
    }
    Parser_->is_done() ? Handle() : Read();
  }

  void Malformed(const error_code& error) {
    Request request{.Connection = Number_, .Raw = Raw_ + Pending_, .Status = 400};
    request.Violation = "not an HTTP request (" + error.message() + "): \"" + request.Raw + "\"";
    Pending_.clear();
    Server_.Log_.Add(std::move(request));
    Send({.Bytes = "HTTP/" + Server_.Options_.Version + " 400 Bad Request\r\nConnection: close\r\n\r\n",
          .Close = true},
         FaultSet());
  }

  void Handle() {
    auto& message = Parser_->get();
    Request request{.Connection = Number_, .Raw = std::move(Raw_)};
    request.Method = std::string(message.method_string());
    request.Target = std::string(message.target());
    request.Version = message.version() == 10 ? "1.0" : "1.1";
    request.Body = std::move(message.body());
    for (const auto& field : message) request.Headers.emplace_back(field.name_string(), field.value());
    const bool keep = message.keep_alive();

    FaultSet faults = Server_.Faults_.TakeForRequest(request.Target);
    ++Served_;
    ResetsNext_ =
        faults.Has(FaultKind::ResetOnReuse) && faults.Number(FaultKind::ResetOnReuse).value_or(1) == Served_;
    if (const Fault* other = faults.Find(FaultKind::AnsweredBy))
      return Relay::Ask(Socket_.get_executor(), other->Text, request.Raw,
                        [self = shared_from_this(), request, keep, faults](HTTPReply reply) {
                          self->Answered(request, std::move(reply), keep, faults);
                        });
    HTTPReply reply = Server_.Answer(request, faults);
    faults.Add(reply.Faults);
    Answered(std::move(request), std::move(reply), keep, faults);
  }

  void Answered(Request request, HTTPReply reply, bool keep, const FaultSet& faults) {
    Alter(reply, faults);
    Serialised serialised = Serialise(reply, Server_.Options_.Version, request, keep, faults);
    request.Status = reply.Status;
    request.Violation = std::move(reply.Violation);
    Server_.Log_.Add(std::move(request));
    Send(std::move(serialised), faults);
  }

  void Send(Serialised reply, const FaultSet& faults) {
    Playback<tcp::socket>::Start(
        Socket_, PlanReply(std::move(reply.Bytes), reply.BodyAt, reply.Close, faults, reply.Endless),
        [self = shared_from_this()](Ending ending) { self->Sent(ending); });
  }

  void Sent(Ending ending) {
    if (!Socket_.is_open()) return;
    if (ending == Ending::Close) return Close();
    if (ending == Ending::Reset) return Close(true);
    DieOnReuse_ = ending == Ending::DieOnReuse || ResetsNext_;
    if (DieOnReuse_ && !Pending_.empty()) return Close(ResetsNext_);
    NewRequest();
    Parse();
  }

  Implementation& Server_;
  tcp::socket Socket_;
  int Number_;
  std::array<char, 16384> Chunk_{};
  std::string Pending_;  ///< received and not yet parsed
  std::string Raw_;      ///< the bytes of the request being parsed
  std::optional<Parser> Parser_;
  std::int64_t Served_ = 0;  ///< requests
  bool DieOnReuse_ = false, ResetsNext_ = false;
};

HTTPServer::Implementation::Implementation(Handler handler, Options options, RequestLog& log,
                                           FaultSwitches& faults)
    : Log_(log), Faults_(faults), Handler_(std::move(handler)), Options_(std::move(options)) {
  Listener_.emplace(
      Loop_, Options_.Port, Faults_, [this](tcp::socket socket) { Accepted(std::move(socket)); },
      [this] { CloseAll(); });
}

HTTPServer::Implementation::~Implementation() {
  Listener_.reset();
  Loop_.Run([this] { CloseAll(); });
  Loop_.Stop();
}

void HTTPServer::Implementation::Accepted(tcp::socket socket) {
  const auto connection = std::make_shared<Connection>(*this, std::move(socket));
  Connections_[connection->Number()] = connection;
  Faults_.Take(FaultKind::CloseOnAccept) ? connection->Close() : connection->Start();
}

void HTTPServer::Implementation::CloseAll() {
  const auto connections = Connections_;
  for (const auto& [number, connection] : connections) {
    if (const auto open = connection.lock()) open->Close();
  }
}

HTTPReply HTTPServer::Implementation::Answer(const Request& request, const FaultSet& faults) {
  if (const auto refusal = Authentication_.Check(request, faults)) {
    return {.Status = 401,
            .Headers = {{"WWW-Authenticate", refusal->Challenge}, {"Content-Type", "text/html"}},
            .Body = "<HTML><BODY><H1>401 Unauthorized</H1></BODY></HTML>\r\n",
            .Violation = refusal->Violation};
  }
  if (const Fault* redirect = faults.Find(FaultKind::Redirect)) {
    return {.Status = 302, .Headers = {{"Location", redirect->Text}}};
  }
  const Fault* fault = faults.Find(FaultKind::Cookie);
  if (!fault) return Handler_(request);

  const std::string cookie = fault->Text.empty() ? "session=4711" : fault->Text;
  if (CookieSet_ && ("; " + request.Header("Cookie") + ";").find("; " + cookie + ";") == std::string::npos) {
    return {.Status = 403, .Violation = "the cookie " + cookie + " did not come back with " + request.Target};
  }
  HTTPReply reply = Handler_(request);
  if (!CookieSet_) reply.Headers.emplace_back("Set-Cookie", cookie + "; path=/");
  CookieSet_ = true;
  return reply;
}

HTTPReply HTTPReply::Blaming(std::string violation) && {
  Violation = std::move(violation);
  return std::move(*this);
}

HTTPServer::HTTPServer(Handler handler) : HTTPServer(std::move(handler), Options()) {}

HTTPServer::HTTPServer(Handler handler, Options options)
    : OwnLog_(std::make_unique<RequestLog>()),
      OwnFaults_(std::make_unique<FaultSwitches>()),
      Implementation_(
          std::make_unique<Implementation>(std::move(handler), std::move(options), *OwnLog_, *OwnFaults_)) {}

HTTPServer::HTTPServer(Handler handler, Options options, RequestLog& log, FaultSwitches& faults)
    : Implementation_(std::make_unique<Implementation>(std::move(handler), std::move(options), log, faults)) {
}

HTTPServer::HTTPServer(Simulator& device, std::mutex& state, std::uint16_t port, Handler answer)
    : HTTPServer(
          [&state, answer = std::move(answer)](const Request& request) -> HTTPReply {
            if (request.Method != "GET") return {.Status = 501, .Violation = "method " + request.Method};
            const std::lock_guard lock(state);
            try {
              return answer(request);
            } catch (const std::invalid_argument& wrong) {
              return {.Status = 400, .Violation = wrong.what() + (": " + request.Target)};
            }
          },
          {.Port = port}, device.Log(), device.Faults()) {}

HTTPServer::~HTTPServer() = default;

std::uint16_t HTTPServer::Port() const { return Implementation_->Port(); }
std::string HTTPServer::Address() const { return "127.0.0.1:" + std::to_string(Port()); }
RequestLog& HTTPServer::Log() { return Implementation_->Log_; }
FaultSwitches& HTTPServer::Faults() { return Implementation_->Faults_; }

}  // namespace ptzsim
