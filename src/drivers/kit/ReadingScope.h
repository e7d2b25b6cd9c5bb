#pragma once

#include <utility>

namespace ptzd {

/// While one lives, all that the calling thread exchanges with a camera only asks where that is.
class ReadingScope {
 public:
  ReadingScope() : Before_(std::exchange(IsOpen_, true)) {}
  ~ReadingScope() { IsOpen_ = Before_; }
  ReadingScope(const ReadingScope&) = delete;
  ReadingScope& operator=(const ReadingScope&) = delete;

  static bool IsOpen() { return IsOpen_; }

 private:
  static inline thread_local bool IsOpen_ = false;
  const bool Before_;
};

}  // namespace ptzd
