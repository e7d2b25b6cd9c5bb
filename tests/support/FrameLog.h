#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <utility>

#include <ptzd/Clock.h>

namespace ptzd::test {

/// What was done on a line and when, as "open:2400,n,8,1 FF0100023F3F81 680ms FF010000000001": frames in
/// hexadecimal, with the time since the entry before them where it is not 0.
class FrameLog {
 public:
  explicit FrameLog(Clock& clock) : Clock_(clock), Last_(clock.Now()) {}

  void Add(const std::string& entry) {
    const auto now = Clock_.Now();
    const auto waited = std::chrono::duration_cast<std::chrono::milliseconds>(now - Last_).count();
    if (waited != 0) Append(std::to_string(waited) + "ms");
    Append(entry);
    Last_ = now;
  }
  void AddFrame(std::span<const std::uint8_t> frame) {
    constexpr const char* digits = "0123456789ABCDEF";
    std::string text;
    for (const auto byte : frame) text.append({digits[byte >> 4], digits[byte & 15]});
    Add(text.empty() ? "empty" : text);
  }
  /// Everything since the last call.
  std::string Take() {
    Last_ = Clock_.Now();
    return std::exchange(Entries_, {});
  }

 private:
  void Append(const std::string& entry) { Entries_.append(Entries_.empty() ? "" : " ").append(entry); }

  Clock& Clock_;
  Clock::TimePoint Last_;
  std::string Entries_;
};

}  // namespace ptzd::test
