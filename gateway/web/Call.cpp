#include "gateway/web/Call.h"

#include <utility>

#include "gateway/web/Session.h"
#include "gateway/web/WebSocket.h"

namespace ptzgate {

namespace {

/// Whether a header, which may be there more than once, lists a word.
bool Lists(const Request& request, std::string_view header, std::string_view word) {
  for (const auto& [name, value] : request.Headers) {
    if (!EqualIgnoringCase(name, header)) continue;
    for (std::string_view rest(value); !rest.empty();) {
      auto item = rest.substr(0, rest.find(','));
      rest.remove_prefix(std::min(item.size() + 1, rest.size()));
      item.remove_prefix(std::min(item.find_first_not_of(" \t"), item.size()));
      item = item.substr(0, item.find_last_not_of(" \t") + 1);
      if (EqualIgnoringCase(item, word)) return true;
    }
  }
  return false;
}

}  // namespace

Call::Call(std::weak_ptr<Session> session, std::uint64_t connection, Request request)
    : Session_(std::move(session)), Connection_(connection), Request_(std::move(request)) {}

Call::~Call() {
  if (IsAnswered_) return;
  if (const auto session = Session_.lock()) session->AnswerForgotten(Request_);
}

void Call::Answer(Response response) {
  if (std::exchange(IsAnswered_, true)) return;
  if (const auto session = Session_.lock()) session->Answer(std::move(response), shared_from_this());
}

std::shared_ptr<Stream> Call::BeginStream(Response head) {
  auto stream = std::make_shared<Stream>(Session_);
  const auto session = std::exchange(IsAnswered_, true) ? nullptr : Session_.lock();
  Gone_ = nullptr;
  if (!session || !session->BeginStream(std::move(head), stream)) stream->TellGone();
  return stream;
}

bool Call::WantsWebSocket() const {
  return Request_.Method == "GET" && !Request_.IsHead && Lists(Request_, "Connection", "upgrade") &&
         Lists(Request_, "Upgrade", "websocket");
}

std::shared_ptr<WebSocket> Call::AcceptWebSocket(const std::string& protocol) {
  const auto refuse = [this](int status, std::string_view detail) {
    auto problem = Problem(status, detail);
    if (status == 426) {
      problem.Headers.emplace_back("Upgrade", "websocket");
      problem.Headers.emplace_back("Sec-WebSocket-Version", "13");
    }
    Answer(std::move(problem));
    return nullptr;
  };
  if (!WantsWebSocket()) return refuse(426, "this is for WebSockets only");
  const auto* version = Request_.Header("Sec-WebSocket-Version");
  if (!version || *version != "13") return refuse(426, "the version of WebSockets here is 13");
  const auto* key = Request_.Header("Sec-WebSocket-Key");
  if (!key || key->size() != 24) return refuse(400, "the Sec-WebSocket-Key is not 16 bytes in base64");
  const auto session = std::exchange(IsAnswered_, true) ? nullptr : Session_.lock();
  Gone_ = nullptr;
  return session ? session->AcceptWebSocket(Request_, protocol) : nullptr;
}

void Call::WhenGone(std::function<void()> gone) {
  if (IsGone_) return gone();
  Gone_ = std::move(gone);
}

void Call::TellGone() {
  IsGone_ = true;
  if (const auto gone = std::exchange(Gone_, nullptr)) gone();
}

Stream::~Stream() { End(); }

bool Stream::Send(std::string_view text) {
  if (IsOver_) return false;
  const auto session = Session_.lock();
  if (!session || !session->Send(text)) IsOver_ = true;
  return !IsOver_;
}

std::size_t Stream::Backlog() const {
  const auto session = IsOver_ ? nullptr : Session_.lock();
  return session ? session->Backlog() : 0;
}

void Stream::End() {
  Gone_ = nullptr;
  if (std::exchange(IsOver_, true)) return;
  if (const auto session = Session_.lock()) session->EndStream();
}

void Stream::WhenGone(std::function<void()> gone) {
  if (IsGone_) return gone();
  Gone_ = std::move(gone);
}

void Stream::TellGone() {
  IsOver_ = IsGone_ = true;
  if (const auto gone = std::exchange(Gone_, nullptr)) gone();
}

}  // namespace ptzgate
