#pragma once

#include <condition_variable>
#include <mutex>
#include <string_view>

#include <ptzd/Logging.h>
#include "simulators/engine/RequestLog.h"

namespace ptzd::test {

/// Counts the asynchronous requests of the process that were handed over and those whose handles the status
/// callback has closed, by the log texts that come last in either. It takes the log for itself.
class AsyncSends {
 public:
  AsyncSends() {
    SetLogSink([this](std::string_view message) {
      const std::lock_guard lock(Mutex_);
      if (message.starts_with("Sent request on thread")) ++Sent_;
      if (message.starts_with("Closed session handle")) ++Closed_;
      Changed_.notify_all();
    });
  }
  ~AsyncSends() { SetLogSink({}); }
  AsyncSends(const AsyncSends&) = delete;
  AsyncSends& operator=(const AsyncSends&) = delete;

  int Sent() const {
    const std::lock_guard lock(Mutex_);
    return Sent_;
  }
  /// False when so many requests never complete.
  bool WaitForClosed(int count) const {
    std::unique_lock lock(Mutex_);
    return Changed_.wait_for(lock, ptzsim::RequestLog::Deadline, [&] { return Closed_ >= count; });
  }

 private:
  mutable std::mutex Mutex_;
  mutable std::condition_variable Changed_;
  int Sent_ = 0;
  int Closed_ = 0;
};

}  // namespace ptzd::test
