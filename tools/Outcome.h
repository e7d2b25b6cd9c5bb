#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include <ptzd/CameraControl.h>

#include "Interruption.h"

namespace ptzctl {

/// How an operation ended; also the exit codes, but of `Interrupted`.
enum class Result {
  Done = 0,
  Refused = 1,  ///< the camera refused or did not answer, or it or its driver cannot do that
  Usage = 2,
  NoConnection = 3,
  Error = 4,       ///< a member raised an error
  NotArrived = 5,  ///< the camera took a move that was to be waited for, and is not known to have got there
  Interrupted = 128,
};

/// What became of one operation, for people and for programs.
struct Outcome {
  std::string Operation;
  ptzctl::Result Result = Result::Done;
  int Signal = 0;  ///< of `Interrupted`
  std::string Text;
  std::vector<std::string> Notes;
  std::optional<ptzd::WishResult> Became;  ///< of what was wished of a camera
  std::optional<std::int32_t> ErrorNumber;
  std::string ErrorText;
  std::optional<bool> Answer;  ///< of a member that answers True or False
  std::optional<ptzd::CameraPosition> Before, Target, Position;
  std::optional<ptzd::WishOutcome> Stop;  ///< what became of the stop that belonged to it
  std::vector<ptzd::Exchange> Exchanges;
  std::optional<std::chrono::nanoseconds> Took;
  std::shared_ptr<const nlohmann::ordered_json> Values;  ///< what was asked for, by name

  int ExitCode() const {
    return Result == Result::Interrupted ? ExitCodeOf(Signal) : static_cast<int>(Result);
  }
};

/// A command line, or a line, that is none; its text quotes what was typed.
Outcome UsageOutcome(const std::string& text);

}  // namespace ptzctl
