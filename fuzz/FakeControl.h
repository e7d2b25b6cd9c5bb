#pragma once

#include <atomic>
#include <cstddef>
#include <mutex>
#include <string>

namespace ptzd::fuzz {

/// What happens to the cameras of the gateway's targets: there `CameraControl` is one that does at once what
/// is wished, without a thread, a driver or a camera.
struct ControlLog {
  static inline std::atomic<std::size_t> Moves = 0;   ///< wishes that move a camera, or that stop it
  static inline std::atomic<std::size_t> Drives = 0;  ///< under way
  static inline std::atomic<bool> HasFailed = false;  ///< a wish came to something else than usual

  /// What wishes come to, one after the other: a letter each, 'a' for the first `WishResult`. Those beyond
  /// the last go well.
  static void Begin(std::string outcomes);
  static char NextOutcome();

 private:
  static inline std::mutex Mutex;
  static inline std::string Outcomes;
};

}  // namespace ptzd::fuzz
