#include "Recording.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string_view>
#include <system_error>
#include <utility>

#include <ptzd/Version.h>
#include "Words.h"
#include "common/ASCII.h"
#include "common/Credentials.h"
#include "common/Numbers.h"

namespace ptzctl {

namespace {

using Json = nlohmann::ordered_json;
using ptzd::Exchange;
using ptzd::ExchangeLink;

constexpr int FormatVersion = 1;

/// The others say nothing of a camera, or would say whose session it was.
constexpr std::string_view HeadersThatMatter[] = {"Content-Type", "WWW-Authenticate", "Location", "Server"};

const char* NameOf(ptzd::LinkFailure failure) {
  switch (failure) {
    case ptzd::LinkFailure::Nothing:
      return "";
    case ptzd::LinkFailure::NotConnected:
      return "not_connected";
    case ptzd::LinkFailure::Silent:
      return "silent";
    case ptzd::LinkFailure::Closed:
      return "closed";
    case ptzd::LinkFailure::Reset:
      return "reset";
  }
  return "";
}

double Milliseconds(std::chrono::nanoseconds time) {
  return static_cast<double>(std::chrono::duration_cast<std::chrono::microseconds>(time).count()) / 1000;
}

std::string DateText(std::chrono::system_clock::time_point when) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(when);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", std::gmtime(&seconds));
  return text;
}

bool IsUtf8(std::string_view bytes) {
  try {
    [[maybe_unused]] const auto dumped = Json(bytes).dump();
    return true;
  } catch (const Json::exception&) {
    return false;
  }
}

/// Bytes as text, or as hexadecimal digits where they are none.
void PutBytes(Json& into, const char* name, const ptzd::Bytes& bytes) {
  if (bytes.empty()) return;
  const std::string text(bytes.begin(), bytes.end());
  if (IsUtf8(text))
    into[name] = text;
  else
    into[std::string(name) + "_hex"] = ptzd::HexBytes(bytes);
}

Json HeadersOf(std::string_view block) {
  auto headers = Json::array();
  while (!block.empty()) {
    const auto line = block.substr(0, block.find("\r\n"));
    block.remove_prefix(std::min(block.size(), line.size() + 2));
    const auto colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    const auto name = line.substr(0, colon);
    const auto value = line.substr(std::min(line.find_first_not_of(" \t", colon + 1), line.size()));
    if (std::ranges::any_of(HeadersThatMatter,
                            [&](auto known) { return ptzd::EqualsIgnoringCase(known, name); }))
      headers.push_back({name, value});
  }
  return headers;
}

/// The path and query of a URL.
std::string_view TargetOf(std::string_view url) {
  const auto scheme = url.find("://");
  const auto rest = url.substr(scheme == std::string_view::npos ? 0 : scheme + 3);
  const auto path = rest.find_first_of("/?");
  return path == std::string_view::npos ? "/" : rest.substr(path);
}

Json RequestOf(const Exchange& exchange) {
  auto request = Json::object();
  if (exchange.Link == ExchangeLink::HTTP) {
    request["method"] = exchange.Method;
    request["target"] = TargetOf(exchange.URL);
    if (ptzd::HasLogin(exchange.URL)) request["login"] = true;
    PutBytes(request, "body", exchange.Sent);
  } else if (exchange.Sent.empty()) {
    request["open"] = true;
  } else {
    request["hex"] = ptzd::HexBytes(exchange.Sent);
  }
  return request;
}

Json ReplyOf(const Exchange& exchange) {
  auto reply = Json::object();
  if (exchange.StatusCode != 0) {
    reply["status"] = exchange.StatusCode;
    reply["reason"] = exchange.Reason;
  }
  if (auto headers = HeadersOf(exchange.ReplyHeaders); !headers.empty()) reply["headers"] = headers;
  PutBytes(reply, "body", exchange.Reply);
  reply["size"] = exchange.ReplySize;
  return reply;
}

const char* FailureOf(const Exchange& exchange) {
  if (exchange.Failure != ptzd::LinkFailure::Nothing) return NameOf(exchange.Failure);
  return exchange.StatusCode != 0 ? "broken_off" : "not_sent";
}

/// What came of it.
void PutEnd(Json& line, const Exchange& exchange) {
  const bool answered = exchange.StatusCode != 0 || exchange.ErrorNumber == 0;
  if (exchange.Link == ExchangeLink::HTTP && answered) line["reply"] = ReplyOf(exchange);
  if (exchange.ErrorNumber != 0) {
    line["failure"] = FailureOf(exchange);
    line["error"] = {{"number", exchange.ErrorNumber}, {"text", exchange.ErrorText}};
  }
  line["ms"] = Milliseconds(exchange.Took);
}

std::string TextOf(const Json& line) {
  return line.dump(-1, ' ', true, Json::error_handler_t::replace) + '\n';
}

}  // namespace

Recording::Recording(const std::string& path, std::string driver, std::vector<std::string> options,
                     const Report* report)
    : Path_(path), Driver_(std::move(driver)), Options_(std::move(options)), Report_(report) {
  std::error_code ignored;
  const std::filesystem::path file(path);
  const auto size = std::filesystem::is_regular_file(file, ignored) ? std::filesystem::file_size(file) : 0;
  if (size > 0)
    throw UsageError("--record " + Printable(path) +
                     ": the file is there already and is not written over; give another name, or remove it");
  errno = 0;
  File_.open(file, std::ios::binary);
  if (!File_)
    throw UsageError("--record " + Printable(path) + ": the file cannot be made: " + SystemReason());
}

void Recording::Begin(const Exchange& first) {
  Begun_ = true;
  Start_ = first.When;
  Json header = {{"ptzd_recording", FormatVersion}, {"program", "ptzctl " PTZD_VERSION}};
  header["driver"] = Driver_;
  header["link"] = LinkName(first.Link);
  auto options = Json::array();
  for (const auto& option : Options_)
    if (!option.starts_with("Address=")) options.push_back(ptzd::MaskCredentials(option));
  header["options"] = std::move(options);
  header["date"] = DateText(first.When);
  Write(TextOf(header));
}

void Recording::Add(const Exchange& exchange) {
  if (!Begun_) Begin(exchange);
  Json line = {{"number", exchange.Number}, {"at", Milliseconds(exchange.When - Start_)}};
  line["request"] = RequestOf(exchange);
  PutEnd(line, exchange);
  Write(TextOf(line));
}

void Recording::AddRequest(const Exchange& exchange) {
  if (!Begun_) Begin(exchange);
  Json line = {{"number", exchange.Number}, {"at", Milliseconds(exchange.When - Start_)}};
  line["request"] = RequestOf(exchange);
  line["awaited"] = false;
  Write(TextOf(line));
}

void Recording::AddReply(const Exchange& exchange) {
  if (!Begun_) return Add(exchange);
  Json line = {{"number", exchange.Number}};
  PutEnd(line, exchange);
  Write(TextOf(line));
}

void Recording::Write(const std::string& line) {
  if (!Problem_.empty()) return;
  errno = 0;
  File_ << line;
  if (File_.flush()) return;
  const auto reason = SystemReason();
  Problem_ = "--record " + Path_ + ": the recording is not complete, the file cannot be written: " + reason;
  if (Report_ != nullptr) Report_->Warn(Problem_);
}

}  // namespace ptzctl
