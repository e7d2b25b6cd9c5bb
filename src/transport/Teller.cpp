#include "transport/Teller.h"

#include <algorithm>
#include <atomic>
#include <charconv>
#include <utility>

#include "common/Credentials.h"
#include "platform/CodePages.h"
#include "transport/StringEncoding.h"

namespace ptzd {

namespace {

/// Bytes kept of a body beyond those that are told, so that a login across the end of those is found as a
/// whole.
constexpr std::size_t KeptBeyond = Exchange::MaxBeginning;

std::string TextOf(std::span<const std::uint8_t> bytes) { return DecodeBytes(bytes, CodePage1252); }

std::string TextOf(std::string_view bytes) {
  return TextOf({reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()});
}

/// The first so many characters of a UTF-8 text.
void Shorten(std::string& text, std::size_t characters) {
  std::size_t at = 0;
  const auto continues = [&] { return (static_cast<unsigned char>(text[at]) & 0xC0) == 0x80; };
  for (; at < text.size() && characters > 0; --characters)
    for (++at; at < text.size() && continues();) ++at;
  text.resize(at);
}

void Mask(std::string& text) {
  if (!text.empty()) text = MaskCredentials(text);
}

}  // namespace

OpenExchange::OpenExchange(std::shared_ptr<ExchangeSink> sink, Exchange exchange)
    : Sink_(std::move(sink)),
      Told_(std::move(exchange)),
      Began_(std::chrono::steady_clock::now()),
      Wanted_(Sink_->WantsOfReply()) {}

void OpenExchange::Fail(std::int32_t number, std::string_view text) {
  Told_.ErrorNumber = number;
  Told_.ErrorText = text;
}

void OpenExchange::TakeFailure(LinkFailure failure) {
  Told_.Failure = failure;
  Told_.HadConnection = failure != LinkFailure::NotConnected;
}

void OpenExchange::TakeHeaders(std::string_view block) {
  const auto line = block.substr(0, block.find_first_of("\r\n"));
  const auto blank = std::min(line.find(' '), line.size());
  const auto behind = line.substr(std::min(blank + 1, line.size()));
  if (const auto lineEnd = block.find('\n'); Wanted_ > 0 && lineEnd != std::string_view::npos)
    Told_.ReplyHeaders = TextOf(block.substr(lineEnd + 1));
  const auto* end = behind.data() + behind.size();
  const auto [rest, error] = std::from_chars(behind.data(), end, Told_.StatusCode);
  if (error != std::errc{}) return;
  const auto reason = behind.substr(static_cast<std::size_t>(rest - behind.data()));
  Told_.Reason = TextOf(reason.substr(std::min(reason.find_first_not_of(' '), reason.size())));
}

void OpenExchange::TakeBody(std::span<const std::uint8_t> piece) {
  Told_.ReplySize += piece.size();
  const auto most = std::max(Exchange::MaxBeginning, Wanted_) + KeptBeyond;
  const auto kept = piece.first(std::min(piece.size(), most - Beginning_.size()));
  Beginning_.insert(Beginning_.end(), kept.begin(), kept.end());
}

void OpenExchange::TellBegun() {
  Mask(Told_.URL);
  Sink_->Begun(Told_);
}

/// The bytes as they came, unless they show a login.
void OpenExchange::KeepReply() {
  const auto text = TextOf(Beginning_);
  const auto masked = MaskCredentials(text);
  Told_.Reply = masked == text ? Beginning_ : EncodeText(masked, CodePage1252);
  if (Told_.Reply.size() > Wanted_) Told_.Reply.resize(Wanted_);
}

void OpenExchange::TellEnded() {
  Told_.Took = std::chrono::steady_clock::now() - Began_;
  Told_.ReplyBeginning =
      TextOf(std::span(Beginning_).first(std::min(Beginning_.size(), Exchange::MaxBeginning + KeptBeyond)));
  for (auto* text : {&Told_.URL, &Told_.Reason, &Told_.ReplyHeaders, &Told_.ReplyBeginning, &Told_.ErrorText})
    Mask(*text);
  if (Wanted_ > 0 && !Beginning_.empty()) KeepReply();
  Shorten(Told_.ReplyBeginning, Exchange::MaxBeginning);
  Sink_->Ended(Told_);
}

std::unique_ptr<OpenExchange> Teller::Started(ExchangeLink link, bool awaited) const {
  static std::atomic<std::uint64_t> lastNumber = 0;
  Exchange exchange;
  exchange.Number = ++lastNumber;
  exchange.DriverClass = DriverClass_;
  exchange.DriverObject = DriverObject_;
  exchange.Link = link;
  exchange.Awaited = awaited;
  exchange.When = std::chrono::system_clock::now();
  return std::make_unique<OpenExchange>(Sink_, std::move(exchange));
}

}  // namespace ptzd
