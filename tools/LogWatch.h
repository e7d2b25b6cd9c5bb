#pragma once

#include <mutex>
#include <string_view>
#include <vector>

#include "Outcome.h"

namespace ptzctl {

/// Follows the library's log while it lives: which requests were made and which of them failed is told only
/// there. There may be one at a time.
class LogWatch {
 public:
  /// `trace` prints every line on the standard error stream, control characters escaped.
  explicit LogWatch(bool trace);
  ~LogWatch();
  LogWatch(const LogWatch&) = delete;
  LogWatch& operator=(const LogWatch&) = delete;

  /// The requests since the last call.
  std::vector<RequestRecord> Take();
  /// Whether one of them failed.
  bool HasFailure();

 private:
  void Read(std::string_view line);

  bool Trace_;
  std::mutex Mutex_;  // some lines come on the library's own threads
  std::vector<RequestRecord> Requests_;
};

}  // namespace ptzctl
