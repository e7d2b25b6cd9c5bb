#pragma once

#include <ptzd/Exchange.h>

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "Recording.h"

namespace ptzctl {

/// Keeps what went over the wire, to tell it with the operation that it was for. There may be one at a time.
class ExchangeLog final : public ptzd::ExchangeSink {
 public:
  /// `trace` prints each exchange, and each line of the library's log, on the standard error stream.
  /// `recording`, null for none, gets each exchange too.
  explicit ExchangeLog(bool trace, std::unique_ptr<Recording> recording = nullptr);
  ~ExchangeLog() override;
  ExchangeLog(const ExchangeLog&) = delete;
  ExchangeLog& operator=(const ExchangeLog&) = delete;

  void Begun(const ptzd::Exchange& exchange) override;
  void Ended(const ptzd::Exchange& exchange) override;
  std::size_t WantsOfReply() const override { return Recording_ ? Recording::MostOfReply : 0; }

  /// Those since the last call. One that was not over yet is told as far as it came, and not again.
  std::vector<ptzd::Exchange> Take();
  /// Those that ended since the last call.
  std::vector<ptzd::Exchange> TakeEnded();
  /// Why something could not be recorded; empty where all was.
  std::string RecordingProblem() const;

 private:
  const bool Trace_;
  mutable std::mutex Mutex_;
  const std::unique_ptr<Recording> Recording_;
  std::vector<ptzd::Exchange> Ended_;
  std::map<std::uint64_t, ptzd::Exchange> UnderWay_;
};

/// What `Describe` says, and how the reply begins; control characters escaped.
std::string ExchangeText(const ptzd::Exchange& exchange);

}  // namespace ptzctl
