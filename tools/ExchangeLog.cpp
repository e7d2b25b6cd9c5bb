#include "ExchangeLog.h"

#include <iostream>
#include <string_view>
#include <utility>

#include <ptzd/Logging.h>
#include "Words.h"

namespace ptzctl {

namespace {

using ptzd::Exchange;

constexpr std::size_t LongestReply = 200;

void Trace(const std::string& line) { std::cerr << "trace: " + line + '\n' << std::flush; }

std::string Shortened(const std::string& text) {
  return text.size() > LongestReply ? text.substr(0, LongestReply) + "..." : text;
}

}  // namespace

ExchangeLog::ExchangeLog(bool trace, std::unique_ptr<Recording> recording)
    : Trace_(trace), Recording_(std::move(recording)) {
  if (!trace) return;
  ptzd::SetLogSink([](std::string_view line) { Trace(Printable(line)); });
}

ExchangeLog::~ExchangeLog() { ptzd::SetLogSink({}); }

void ExchangeLog::Begun(const Exchange& exchange) {
  const std::lock_guard lock(Mutex_);
  if (Recording_) Recording_->AddRequest(exchange);
  UnderWay_[exchange.Number] = exchange;
}

void ExchangeLog::Ended(const Exchange& exchange) {
  if (Trace_) Trace(std::string(exchange.DriverClass) + " " + ExchangeText(exchange));
  const std::lock_guard lock(Mutex_);
  if (Recording_) exchange.Awaited ? Recording_->Add(exchange) : Recording_->AddReply(exchange);
  if (exchange.Awaited || UnderWay_.erase(exchange.Number) != 0) Ended_.push_back(exchange);
}

std::vector<Exchange> ExchangeLog::TakeEnded() {
  const std::lock_guard lock(Mutex_);
  return std::exchange(Ended_, {});
}

std::vector<Exchange> ExchangeLog::Take() {
  const std::lock_guard lock(Mutex_);
  auto all = std::exchange(Ended_, {});
  for (auto& [number, exchange] : std::exchange(UnderWay_, {})) all.push_back(std::move(exchange));
  return all;
}

std::string ExchangeLog::RecordingProblem() const {
  const std::lock_guard lock(Mutex_);
  return Recording_ ? Recording_->Problem() : "";
}

std::string ExchangeText(const Exchange& exchange) {
  const auto& reply = exchange.ReplyBeginning;
  return Printable(Describe(exchange)) + (reply.empty() ? "" : ": " + Printable(Shortened(reply)));
}

}  // namespace ptzctl
