#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Interruption.h"

namespace ptzctl {

/// Lines of the standard input. They are read on a thread of their own, so that waiting for the next one can
/// be interrupted; the thread cannot be ended while it reads.
class LineReader {
 public:
  explicit LineReader(const Interruption& interruption);

  /// The next line; nothing at the end of the input or when interrupted.
  std::optional<std::string> Next();

  /// Whether a thread still waits for input, so that the process cannot end in the ordinary way.
  static bool IsWaiting();

 private:
  struct Shared;
  const Interruption& Interruption_;
  std::shared_ptr<Shared> Shared_;
};

}  // namespace ptzctl
