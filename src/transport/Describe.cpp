#include <ptzd/Exchange.h>

#include <chrono>

#include "common/Numbers.h"
#include "common/OneLine.h"
#include "platform/CodePages.h"
#include "transport/StringEncoding.h"

namespace ptzd {

namespace {

/// Milliseconds, of short times with a digit behind the point.
std::string TimeText(std::chrono::nanoseconds time) {
  const auto tenths = std::chrono::duration_cast<std::chrono::microseconds>(time).count() / 100;
  auto text = std::to_string(tenths / 10);
  if (tenths < 100) text += "." + std::to_string(tenths % 10);
  return text + " ms";
}

std::string RequestText(const Exchange& exchange) {
  if (exchange.Link == ExchangeLink::HTTP) {
    auto text = exchange.Method + " " + exchange.URL;
    if (!exchange.Sent.empty()) text += " \"" + DecodeBytes(exchange.Sent, CodePage1252) + "\"";
    return text;
  }
  return exchange.Where + ": " + (exchange.Sent.empty() ? "opening" : HexBytes(exchange.Sent));
}

std::string OutcomeText(const Exchange& exchange) {
  std::string text;
  if (exchange.StatusCode != 0) {
    text = std::to_string(exchange.StatusCode);
    if (!exchange.Reason.empty()) text += " " + exchange.Reason;
    if (exchange.Awaited) text += ", " + std::to_string(exchange.ReplySize) + " bytes";
  }
  const auto append = [&](const std::string& part) { text += (text.empty() ? "" : ", ") + part; };
  if (exchange.ErrorNumber != 0)
    append("error " + std::to_string(exchange.ErrorNumber) + ": " + exchange.ErrorText);
  else if (exchange.StatusCode == 0)
    append(exchange.Link == ExchangeLink::HTTP ? "a reply without a status"
           : exchange.Sent.empty()             ? "open"
                                               : "sent");
  append(TimeText(exchange.Took));
  return text;
}

}  // namespace

std::string Describe(const Exchange& exchange) {
  const bool isBeginning = exchange.Took == std::chrono::nanoseconds{};
  return OneLine(RequestText(exchange) + (isBeginning ? ", handed over" : " -> " + OutcomeText(exchange)));
}

}  // namespace ptzd
