#include "gateway/web/Session.h"

#include <algorithm>
#include <array>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <cctype>
#include <ctime>
#include <utility>

#include "gateway/web/ServerState.h"
#include "gateway/web/WebSocketSession.h"

namespace ptzgate {

namespace http = boost::beast::http;
using boost::system::error_code;

namespace {

std::string_view View(boost::beast::string_view text) { return {text.data(), text.size()}; }

bool IsKnown(std::string_view method) {
  constexpr std::array methods{"GET", "HEAD", "POST", "PUT", "PATCH", "DELETE", "OPTIONS"};
  return std::ranges::find(methods, method) != methods.end();
}

bool IsAllowed(const Response& response) {
  if (response.Status < 200 || response.Status > 599) return false;
  return std::ranges::all_of(response.Headers, [](const auto& header) {
    const auto& [name, value] = header;
    return !name.empty() &&
           std::ranges::all_of(name, [](char c) { return c > ' ' && c < 0x7f && c != ':'; }) &&
           value.find_first_of(std::string_view("\r\n\0", 3)) == value.npos;
  });
}

/// Of a request line: it ends as those of another generation of HTTP do.
bool NamesOtherVersion(std::string_view line) {
  const auto version = line.rfind(" HTTP/");
  return version != line.npos && line.substr(version + 6, 1).find_first_of("023456789") == 0;
}

bool HasBody(int status) { return status != 204 && status != 304; }

std::string Date() {
  const auto now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  std::array<char, 40> text{};
  return {text.data(), std::strftime(text.data(), text.size(), "%a, %d %b %Y %H:%M:%S GMT", &utc)};
}

std::string Shown(const boost::asio::ip::tcp::endpoint& peer) {
  const auto address = AddressOf(peer.address());
  return (address.find(':') == address.npos ? address : '[' + address + ']') + ':' +
         std::to_string(peer.port());
}

/// As it may be written into an answer. An empty one is allowed.
bool IsHost(std::string_view host) {
  return std::ranges::all_of(host, [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) ||
           std::string_view(".-_:[]").find(c) != std::string_view::npos;
  });
}

/// The request's target as origin form; the host of an absolute one is put in place of the header's.
bool TakeTarget(std::string_view target, Request& request) {
  if (target == "*" && request.Method == "OPTIONS") {
    request.Target = request.Path = "*";
    return true;
  }
  for (const std::string_view scheme : {"http://", "https://"}) {
    if (!EqualIgnoringCase(target.substr(0, scheme.size()), scheme)) continue;
    target.remove_prefix(scheme.size());
    const auto host = target.substr(0, target.find_first_of("/?"));
    request.Host = host;
    target.remove_prefix(host.size());
    request.Target = target.empty() || target.front() != '/' ? "/" : "";
    break;
  }
  request.Target += target.substr(0, target.find('#'));
  if (request.Target.empty() || request.Target.front() != '/') return false;
  const auto question = std::min(request.Target.find('?'), request.Target.size());
  auto path = PercentDecoded(std::string_view(request.Target).substr(0, question));
  auto query =
      FormFields(std::string_view(request.Target).substr(std::min(question + 1, request.Target.size())));
  if (!path || !query || !IsUtf8(*path)) return false;
  if (!std::ranges::all_of(*query,
                           [](const auto& field) { return IsUtf8(field.first) && IsUtf8(field.second); })) {
    return false;
  }
  const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7f; };
  if (std::ranges::any_of(*path, isControl)) return false;
  // Clients resolve these; what is left of them is an attempt to go where the path does not lead.
  const auto hidden = *path + '/';
  if (hidden.find("/./") != hidden.npos || hidden.find("/../") != hidden.npos) return false;
  request.Path = std::move(*path);
  request.Query = std::move(*query);
  return true;
}

}  // namespace

struct Session::Parsing {
  http::request_parser<http::string_body> Parser;
  std::size_t HeadBytes = 0;
  bool IsHeadChecked = false;
};

Session::Session(std::shared_ptr<ServerState> server, std::shared_ptr<Connection> connection, bool isWelcome)
    : Server_(std::move(server)), Connection_(std::move(connection)), IsWelcome_(isWelcome) {}

Session::~Session() = default;

void Session::Start() {
  if (!IsWelcome_) return Refuse(503, "there are too many connections, in total or from your address");
  Connection_->SetDeadline(Server_->Settings.Limits.HeaderTimeout);
}

void Session::Received() {
  if (State_ == State::Reading) {
    Parse();
  } else if (Connection_->InboxIsFull()) {
    // Nothing more would be read, and the peer's end not be noticed.
    Connection_->Close();
  }
}

void Session::Ended() {
  IsAtEnd_ = true;
  if (State_ != State::Writing) Connection_->Close();
}

void Session::Drained() {
  if (State_ != State::Writing) return;
  LetGoOfCall();
  Parsing_.reset();
  State_ = State::Reading;
  Connection_->SetDeadline(Server_->Settings.Limits.IdleTimeout);
  Parse();
  if (IsAtEnd_ && State_ == State::Reading) Connection_->Close();
}

void Session::Expired() {
  if (State_ != State::Reading) return;
  if (!Parsing_) return Connection_->Close();
  Refuse(408, Parsing_->IsHeadChecked ? "the request's body took too long"
                                      : "the request's headers took too long");
}

void Session::Closed() {
  const auto before = std::exchange(State_, State::Over);
  const auto tell = [this](const auto& whom) {
    if (whom) Server_->Guarded("a handler of a peer's end failed", [&] { whom->TellGone(); });
  };
  if (before == State::Answering) tell(Call_.lock());
  if (before == State::Writing && Connection_->Backlog() > 0) tell(Answered_);
  if (before == State::Streaming) tell(Stream_.lock());
  LetGoOfCall();
}

// What a face has attached may hold the call itself.
void Session::LetGoOfCall() {
  if (const auto call = std::exchange(Answered_, nullptr)) call->Gone_ = nullptr;
}

void Session::Parse() {
  const auto& limits = Server_->Settings.Limits;
  while (State_ == State::Reading) {
    if (!Parsing_) {
      // An empty line before a request is to be ignored.
      const auto inbox = Connection_->Inbox();
      Connection_->Consume(std::min(inbox.find_first_not_of("\r\n"), inbox.size()));
    }
    const auto inbox = Connection_->Inbox();
    if (inbox.empty()) return;
    if (!Parsing_) {
      Parsing_ = std::make_unique<Parsing>();
      Parsing_->Parser.header_limit(static_cast<std::uint32_t>(limits.HeaderBytes));
      Parsing_->Parser.body_limit(limits.BodyBytes);
      Connection_->SetDeadline(limits.HeaderTimeout);
    }
    auto& parser = Parsing_->Parser;
    error_code error;
    const auto used = parser.put(boost::asio::buffer(inbox.data(), inbox.size()), error);
    const auto line = inbox.substr(0, inbox.find('\n'));
    const bool isLineTooLong = Parsing_->HeadBytes + used == 0 && line.size() >= limits.HeaderBytes;
    const bool isOtherVersion = error == http::error::bad_version && NamesOtherVersion(line);
    if (!Parsing_->IsHeadChecked) Parsing_->HeadBytes += used;
    Connection_->Consume(used);

    if (error == http::error::header_limit || Parsing_->HeadBytes > limits.HeaderBytes) {
      return isLineTooLong ? Refuse(414, "the request's address is too long")
                           : Refuse(431, "the request's headers are too long");
    }
    if (error == http::error::body_limit) {
      return Refuse(413, "the request's body is longer than " + std::to_string(limits.BodyBytes) + " bytes");
    }
    if (isOtherVersion) return Refuse(505, "the version of HTTP here is 1.1");
    if (error && error != http::error::need_more) return Refuse(400, "malformed request: " + error.message());
    if (parser.is_header_done() && !std::exchange(Parsing_->IsHeadChecked, true) && !CheckHead()) return;
    if (parser.is_done()) return Dispatch();
    if (error == http::error::need_more) {
      if (Connection_->InboxIsFull()) Refuse(400, "malformed request: a chunk's extensions are too long");
      return;
    }
  }
}

bool Session::CheckHead() {
  const auto& parser = Parsing_->Parser;
  const auto& request = parser.get();
  const auto refuse = [this](int status, std::string_view detail) {
    Refuse(status, detail);
    return false;
  };
  IsHead_ = request.method() == http::verb::head;
  IsChunked_ = request.version() == 11;
  IsKept_ = parser.keep_alive();
  if (!IsKnown(View(request.method_string()))) return refuse(501, "no such method here");
  if (request.count(http::field::host) > 1 ||
      (request.version() == 11 && request.count(http::field::host) == 0)) {
    return refuse(400, "malformed request: it must have one Host");
  }
  // What a proxy in front reads otherwise than this server would let one request hide in another.
  if (const auto coding = request.find(http::field::transfer_encoding); coding != request.end()) {
    if (!EqualIgnoringCase(View(coding->value()), "chunked") ||
        request.count(http::field::transfer_encoding) > 1) {
      return refuse(501, "the only Transfer-Encoding here is chunked");
    }
    if (request.version() == 10) return refuse(400, "malformed request: HTTP/1.0 has no Transfer-Encoding");
  }
  if (parser.is_done()) return true;
  Connection_->SetDeadline(Server_->Settings.Limits.BodyTimeout);
  if (const auto expect = request.find(http::field::expect);
      expect != request.end() && request.version() == 11) {
    if (!EqualIgnoringCase(View(expect->value()), "100-continue"))
      return refuse(417, "the only Expect here is 100-continue");
    if (Connection_->Inbox().empty()) Connection_->Write("HTTP/1.1 100 Continue\r\n\r\n");
  }
  return true;
}

void Session::Dispatch() {
  Connection_->ClearDeadline();
  auto parsed = Parsing_->Parser.release();
  Parsing_.reset();
  Request request;
  request.Method = IsHead_ ? "GET" : View(parsed.method_string());
  request.IsHead = IsHead_;
  for (const auto& field : parsed)
    request.Headers.emplace_back(View(field.name_string()), View(field.value()));
  if (const auto* host = request.Header("Host")) request.Host = *host;
  if (!TakeTarget(View(parsed.target()), request) || !IsHost(request.Host)) {
    return Refuse(400, "malformed request: its address or host is not in order");
  }
  request.Body = std::move(parsed.body());
  const auto peer = Connection_->Peer();
  request.From = Shown(peer);
  request.Address = AddressOf(peer.address());
  request.IsLoopback = IsLoopback(peer.address());
  request.IsSecure = Connection_->IsSecure();

  State_ = State::Answering;
  const auto& settings = Server_->Settings;
  bool isUrgent = false;
  if (settings.IsUrgent) {
    Server_->Guarded("telling what is urgent failed", [&] { isUrgent = settings.IsUrgent(request); });
  }
  if (!isUrgent) {
    if (const auto delay = Server_->Guests.Delay(GuestOf(peer.address()), settings.Limits);
        delay.count() > 0) {
      auto problem = Problem(429, "too many requests from your address");
      problem.Headers.emplace_back("Retry-After", std::to_string(delay.count()));
      return Write(std::move(problem));
    }
  }
  const auto call = std::make_shared<Call>(weak_from_this(), Connection_->Number(), std::move(request));
  Call_ = call;
  if (!Server_->Guarded("a handler failed", [&] { Server_->Handle(call); })) {
    call->Answer(Problem(500, "this should not have happened; the log says more"));
  }
}

void Session::Refuse(int status, std::string_view detail) {
  IsKept_ = false;
  auto problem = Problem(status, detail);
  if (status == 503) problem.Headers.emplace_back("Retry-After", "5");
  Write(std::move(problem));
}

std::string Session::Head(const Response& response, bool isStream) {
  std::string head = "HTTP/1.1 " + std::to_string(response.Status) + ' ' + ReasonOf(response.Status) + "\r\n";
  const auto add = [&head](std::string_view name, std::string_view value) {
    head.append(name).append(": ").append(value).append("\r\n");
  };
  const auto has = [&response](std::string_view name) {
    return std::ranges::any_of(response.Headers,
                               [&](const auto& header) { return EqualIgnoringCase(header.first, name); });
  };
  constexpr std::array own{"Content-Length", "Transfer-Encoding", "Connection", "Keep-Alive", "Date",
                           "Server"};
  for (const auto& [name, value] : response.Headers) {
    if (std::ranges::none_of(own,
                             [&known = name](const char* mine) { return EqualIgnoringCase(known, mine); }))
      add(name, value);
  }
  for (const auto& [name, value] : SecurityHeaders(Connection_->IsSecure())) {
    if (!has(name)) add(name, value);
  }
  add("Date", Date());
  if (isStream) {
    if (IsChunked_) add("Transfer-Encoding", "chunked");
  } else if (HasBody(response.Status)) {
    add("Content-Length", std::to_string(response.Body.size()));
  }
  if (!IsKept_) {
    add("Connection", "close");
  } else if (!IsChunked_) {
    add("Connection", "keep-alive");
  }
  return head + "\r\n";
}

void Session::Write(Response response) {
  if (!IsAllowed(response)) {
    Server_->Log("a handler gave a response that HTTP does not allow, of status " +
                 std::to_string(response.Status));
    response = Problem(500, "this should not have happened; the log says more");
  }
  State_ = State::Writing;
  Parsing_.reset();
  Connection_->Write(Head(response, false));
  if (!IsHead_ && HasBody(response.Status)) Connection_->Write(response.Body);
  if (!IsKept_) Connection_->Finish();
}

void Session::Answer(Response response, std::shared_ptr<Call> call) {
  if (State_ != State::Answering) return;
  Answered_ = std::move(call);
  Write(std::move(response));
}

void Session::AnswerForgotten(const Request& request) {
  if (State_ != State::Answering) return;
  Server_->Log("a request was not answered: " + request.Method + ' ' + request.Path);
  Write(Problem(500, "this should not have happened; the log says more"));
}

bool Session::BeginStream(Response head, const std::shared_ptr<Stream>& stream) {
  if (State_ != State::Answering) return false;
  if (IsHead_ || !HasBody(head.Status) || !IsAllowed(head)) {
    Write(std::move(head));
    return false;
  }
  if (!IsChunked_) IsKept_ = false;
  State_ = State::Streaming;
  Stream_ = stream;
  Connection_->Write(Head(head, true));
  Send(head.Body);
  return true;
}

bool Session::Send(std::string_view text) {
  if (State_ != State::Streaming) return false;
  if (text.empty()) return true;  // a chunk of nothing would be the end
  if (Connection_->Backlog() > Server_->Settings.Limits.Backlog + Connection_->Longest()) {
    Connection_->CloseSoon();
    return false;
  }
  if (!IsChunked_) {
    Connection_->Write(text);
    return true;
  }
  std::array<char, 24> size{};
  Connection_->Write({size.data(), static_cast<std::size_t>(
                                       std::snprintf(size.data(), size.size(), "%zx\r\n", text.size()))});
  Connection_->Write(text);
  Connection_->Write("\r\n");
  return true;
}

std::size_t Session::Backlog() const { return Connection_->Backlog(); }

void Session::EndStream() {
  if (State_ != State::Streaming) return;
  State_ = State::Writing;
  if (IsChunked_) Connection_->Write("0\r\n\r\n");
  if (!IsKept_) Connection_->Finish();
}

std::shared_ptr<WebSocket> Session::AcceptWebSocket(const Request& request, const std::string& protocol) {
  if (State_ != State::Answering) return nullptr;
  State_ = State::Upgraded;
  auto socket = std::make_shared<WebSocket>(Connection_->Number());
  Connection_->ChangeProtocol(MakeWebSocketSession(Server_, Connection_, socket, request, protocol));
  return socket;
}

}  // namespace ptzgate
