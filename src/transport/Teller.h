#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include <ptzd/Exchange.h>

namespace ptzd {

/// An exchange under way, from its beginning until it is told. Logins are masked as it is told.
class OpenExchange {
 public:
  OpenExchange(std::shared_ptr<ExchangeSink> sink, Exchange exchange);

  Exchange& Told() { return Told_; }
  void Fail(std::int32_t number, std::string_view text);
  void TakeFailure(LinkFailure failure);
  /// A reply's header block; bytes of code page 1252.
  void TakeHeaders(std::string_view block);
  /// The next piece of the reply's body.
  void TakeBody(std::span<const std::uint8_t> piece);

  /// To the sink, each once: that it was handed over, and what came of it.
  void TellBegun();
  void TellEnded();

 private:
  void KeepReply();

  std::shared_ptr<ExchangeSink> Sink_;
  Exchange Told_;
  std::chrono::steady_clock::time_point Began_;
  std::size_t Wanted_;  ///< of the body
  Bytes Beginning_;     ///< of the body, longer than what is told of it
};

/// Tells the exchanges of one driver to the sink of its platform. Without a sink nothing is made and no clock
/// read.
class Teller {
 public:
  Teller() = default;  ///< tells nobody
  Teller(std::shared_ptr<ExchangeSink> sink, std::string_view driverClass, std::uint64_t driverObject)
      : Sink_(std::move(sink)), DriverClass_(driverClass), DriverObject_(driverObject) {}

  /// Null where nobody listens.
  std::unique_ptr<OpenExchange> Begin(ExchangeLink link, bool awaited = true) const {
    return Sink_ && Sink_->Listens() ? Started(link, awaited) : nullptr;
  }

 private:
  std::unique_ptr<OpenExchange> Started(ExchangeLink link, bool awaited) const;

  std::shared_ptr<ExchangeSink> Sink_;
  std::string_view DriverClass_;
  std::uint64_t DriverObject_ = 0;
};

}  // namespace ptzd
