#include "simulators/Replay.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "simulators/engine/Make.h"
#include "simulators/engine/Query.h"

namespace ptzsim {
namespace {

using End = RecordedExchange::End;

constexpr std::string_view Masked = "***";
constexpr char AnyLogin[] = "Basic realm=\"Camera\"";

/// Whether a text is the recorded one, where `Masked` stands for anything.
bool Fits(std::string_view recorded, std::string_view text) {
  const auto mask = recorded.find(Masked);
  if (mask == std::string_view::npos) return text == recorded;
  if (!text.starts_with(recorded.substr(0, mask))) return false;
  const auto rest = recorded.substr(mask + Masked.size());
  for (text.remove_prefix(mask);; text.remove_prefix(1)) {
    if (Fits(rest, text)) return true;
    if (text.empty()) return false;
  }
}

/// A target with its escapes decoded, which clients set in different places.
std::string Plain(std::string_view target) {
  const Query query(target);
  auto plain = query.Path;
  for (const auto& [name, value] : query.Pairs)
    plain += (plain.size() == query.Path.size() ? "?" : "&") + name + "=" + value;
  return plain;
}

bool Fits(const RecordedExchange& recorded, const Request& request) {
  return recorded.Method == request.Method && Fits(Plain(recorded.Target), Plain(request.Target)) &&
         Fits(recorded.Body, request.Body);
}

/// How many values two targets share that have the same path and parameters; nothing for others.
std::optional<std::size_t> ValuesShared(std::string_view recorded, std::string_view target) {
  const Query known(recorded), asked(target);
  if (known.Path != asked.Path || known.Pairs.size() != asked.Pairs.size()) return std::nullopt;
  std::size_t shared = 0;
  for (const auto& [name, value] : known.Pairs) {
    const auto given = asked.Find(name);
    if (!given) return std::nullopt;
    if (Fits(value, *given)) ++shared;
  }
  return shared;
}

std::string Told(const RecordedExchange& exchange) {
  const auto what = exchange.Bytes.empty() ? exchange.Method + " " + exchange.Target : Hex(exchange.Bytes);
  const auto body = exchange.Body.empty() ? "" : " \"" + exchange.Body + "\"";
  return what + body + " (line " + std::to_string(exchange.At) + ")";
}

const std::string* HeaderOf(const RecordedReply& reply, std::string_view name) {
  const auto found = std::find_if(reply.Headers.begin(), reply.Headers.end(),
                                  [&](const auto& header) { return header.first == name; });
  return found == reply.Headers.end() ? nullptr : &found->second;
}

}  // namespace

Replay::Replay(const Options& options)
    : Simulator(ClockKind::Real),
      Options_(options),
      Recording_(ReadRecording(options.File)),
      Played_(Recording_.Exchanges.size()) {
  if (Recording_.On != Line::Terminal && !options.Line.empty())
    throw std::invalid_argument("--line: " + options.File + " is no recording of a serial line");
  const auto take = [this](std::string& received) { return Take(received); };
  if (Recording_.On == Line::HTTP) {
    HTTP_ = std::make_unique<HTTPServer>([this](const Request& request) { return Answer(request); },
                                         HTTPServer::Options{.Port = options.Port}, Log(), Faults());
  } else if (Recording_.On == Line::TCP) {
    TCP_ = std::make_unique<TCPServer>(take, TCPServer::Options{.Port = options.Port}, Log(), Faults());
  } else {
    if (options.Port != 0)
      throw std::invalid_argument("--port: " + options.File + " is a recording of a serial line");
#ifndef _WIN32
    Terminal_ = std::make_unique<Terminal>(take, Terminal::Options{.Path = options.Line}, Log(), Faults());
#else
    throw std::invalid_argument(options.File + ": a serial line cannot be played on Windows");
#endif
  }
}

std::vector<std::string> Replay::Addresses() const {
  if (HTTP_) return {HTTP_->Address()};
  if (TCP_) return {TCP_->Address()};
#ifndef _WIN32
  if (Terminal_) return {Terminal_->Path()};
#endif
  return {};
}

nlohmann::json Replay::State() const {
  const std::lock_guard lock(Mutex_);
  const auto arrives = [this](const auto& exchange) { return Arrives(exchange); };
  return {{"file", Options_.File},
          {"driver", Recording_.Driver},
          {"options", Recording_.Options},
          {"requests", std::ranges::count_if(Recording_.Exchanges, arrives)},
          {"played", std::count(Played_.begin(), Played_.end(), true)},
          {"next", Expected()}};
}

/// What failed on the way to the camera cannot come again. Of HTTP there was a request all the same, which
/// failed where it was sent.
bool Replay::Arrives(const RecordedExchange& exchange) const {
  if (Recording_.On == Line::HTTP) return exchange.Ended != End::NotSent;
  return !exchange.Opens && exchange.Ended == End::Replied;
}

/// What may come next: those that nobody waited for, and what follows them.
Replay::Indices Replay::Due() const {
  Indices due;
  for (std::size_t i = 0; i < Played_.size(); ++i) {
    const auto& exchange = Recording_.Exchanges[i];
    if (Played_[i] || !Arrives(exchange)) continue;
    due.push_back(i);
    if (exchange.Awaited) break;
  }
  return due;
}

std::string Replay::Expected() const {
  std::string text;
  for (const auto i : Due()) text += (text.empty() ? "" : ", or ") + Told(Recording_.Exchanges[i]);
  return text.empty() ? "nothing more" : text;
}

std::optional<std::size_t> Replay::Find(const Request& request) const {
  const auto& exchanges = Recording_.Exchanges;
  if (!Options_.Lenient) {
    for (const auto i : Due())
      if (Fits(exchanges[i], request)) return i;
    return std::nullopt;
  }
  std::optional<std::size_t> last;
  for (std::size_t i = 0; i < exchanges.size(); ++i) {
    if (!Arrives(exchanges[i]) || !Fits(exchanges[i], request)) continue;
    if (!Played_[i]) return i;
    last = i;
  }
  return last ? last : FindNearest(request);
}

std::optional<std::size_t> Replay::FindNearest(const Request& request) const {
  std::optional<std::size_t> nearest, most;
  for (std::size_t i = 0; i < Recording_.Exchanges.size(); ++i) {
    const auto& exchange = Recording_.Exchanges[i];
    if (!Arrives(exchange) || exchange.Method != request.Method) continue;
    const auto shared = ValuesShared(exchange.Target, request.Target);
    if (shared && (!most || *shared > *most)) nearest = i, most = shared;
  }
  return nearest;
}

HTTPReply Replay::Answer(const Request& request) {
  const std::lock_guard lock(Mutex_);
  const auto found = Find(request);
  if (!found) {
    const auto expected = Options_.Lenient ? "nothing like it was recorded" : "expected was " + Expected();
    return {.Status = 404, .Violation = request.Method + " " + request.Target + ": " + expected};
  }
  const auto& exchange = Recording_.Exchanges[*found];
  if (exchange.Login && request.Header("Authorization").empty()) {
    const auto* challenge =
        exchange.Reply.Status == 401 ? HeaderOf(exchange.Reply, "WWW-Authenticate") : nullptr;
    return {.Status = 401, .Headers = {{"WWW-Authenticate", challenge ? *challenge : AnyLogin}}};
  }
  Played_[*found] = true;
  return Play(exchange);
}

HTTPReply Replay::Play(const RecordedExchange& exchange) const {
  const auto& [status, reason, headers, body] = exchange.Reply;
  HTTPReply reply{.Status = status, .Reason = reason, .Headers = headers, .Body = body};
  // A client that finds a kept connection closed asks again, which nobody did when it was recorded.
  reply.Headers.emplace_back("Connection", "close");
  reply.Faults = {{.Kind = FaultKind::CloseAfterReply}};
  if (Options_.AsRecorded)
    reply.Faults.push_back({.Kind = FaultKind::DelayReply, .Number = exchange.Took.count()});
  const auto fail = [&](FaultKind kind, std::int64_t number = Fault::Unset) {
    reply.Faults.push_back({.Kind = kind, .Number = number});
  };
  switch (exchange.Ended) {
    case End::Silent:
      fail(FaultKind::StaySilent);
      break;
    case End::Closed:
      fail(FaultKind::CloseBeforeReply);
      break;
    case End::NotConnected:
    case End::Reset:
      fail(FaultKind::ResetInMidReply, 0);
      break;
    case End::BrokenOff:
      fail(FaultKind::ShortBody);
      break;
    case End::NotSent:
    case End::Replied:
      if (status == 0) fail(FaultKind::BareBody);
      break;
  }
  return reply;
}

std::optional<Message> Replay::Take(std::string& received) {
  const std::lock_guard lock(Mutex_);
  const auto& exchanges = Recording_.Exchanges;
  Indices all;
  for (std::size_t i = 0; i < exchanges.size(); ++i)
    if (Arrives(exchanges[i])) all.push_back(i);
  bool unfinished = false;
  /// The longest that has come; of several the first that was not played yet.
  const auto find = [&](const Indices& among) {
    std::optional<std::size_t> found;
    for (const auto i : among) {
      const auto& bytes = exchanges[i].Bytes;
      unfinished |= bytes.size() > received.size() && bytes.starts_with(received);
      if (!received.starts_with(bytes)) continue;
      const auto rank = [&](std::size_t at) { return std::pair(exchanges[at].Bytes.size(), !Played_[at]); };
      if (!found || rank(i) > rank(*found)) found = i;
    }
    return found;
  };
  const auto due = find(Options_.Lenient ? all : Due());
  if (due) {
    received.erase(0, exchanges[*due].Bytes.size());
    Played_[*due] = true;
    return Play(*due);
  }
  const auto other = unfinished ? std::nullopt : find(all);
  if (unfinished) return std::nullopt;
  Message message{.Raw = received.substr(0, other ? exchanges[*other].Bytes.size() : received.size()),
                  .Meaning = "not expected"};
  message.Violation =
      Hex(message.Raw) + ": " + (Options_.Lenient ? "was not recorded" : "expected was " + Expected());
  received.erase(0, message.Raw.size());
  return message;
}

/// Where a later message failed, the line had ended before it.
Message Replay::Play(std::size_t index) const {
  const auto& exchange = Recording_.Exchanges[index];
  Message message{.Raw = exchange.Bytes, .Meaning = Told(exchange), .Reply = exchange.Reply.Body};
  for (auto next = index + 1; next < Recording_.Exchanges.size(); ++next) {
    const auto& following = Recording_.Exchanges[next];
    if (following.Opens) continue;
    if (following.Ended == End::Replied) break;
    const bool isTCP = Recording_.On == Line::TCP;
    message.Faults.push_back({.Kind = isTCP ? FaultKind::ResetInMidReply : FaultKind::CloseBeforeReply,
                              .Number = isTCP ? 0 : Fault::Unset});
    break;
  }
  return message;
}

const Make Replay::AtShell = {
    "replay", "Whatever camera a recording of ptzctl is of (see docs/recordings.md)", [](Shell& shell) {
      const auto options = std::make_shared<Options>();
      shell.Text("FILE", options->File, "The recording");
      shell.Flag("--lenient", options->Lenient, true,
                 "Take what was recorded in any order, and for other values answer what is nearest");
      shell.Choice("--speed", options->AsRecorded, {{"at-once", false}, {"recorded", true}},
                   "How long replies take: no time (when not given), or as long as they did");
      shell.Text(
          "--line", options->Line,
          "Of a serial line: path of the symbolic link to the terminal; when not given one is made up");
      return Builder([options](std::uint16_t port) -> std::unique_ptr<Simulator> {
        if (options->File.empty()) throw std::invalid_argument("replay: the FILE to play is missing");
        options->Port = port;
        return std::make_unique<Replay>(*options);
      });
    }};

}  // namespace ptzsim
