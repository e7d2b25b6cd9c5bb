#pragma once

#include <cstdint>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

namespace ptzctl {

/// How an operation ended; also the exit codes.
enum class Result {
  Done = 0,
  Refused = 1,  ///< the camera refused or did not answer, or it or its driver cannot do that
  Usage = 2,
  NoConnection = 3,
  Error = 4,  ///< a member raised an error
  Interrupted = 130,
};

/// A request as the library's log tells it, credentials masked.
struct RequestRecord {
  std::string Path;
  std::optional<std::string> Reply;
  std::string Failure;  ///< empty when it did not fail
};

/// Where the driver says that the camera is: degrees, and zoom in the driver's own scale.
struct Position {
  float Pan = 0, Tilt = 0;
  std::optional<float> Zoom;  ///< absent where the driver has no `PTZDevice2`
};

/// What became of one operation, for people and for programs.
struct Outcome {
  std::string Operation;
  ptzctl::Result Result = Result::Done;
  std::string Text;
  std::vector<std::string> Notes;
  std::optional<std::int32_t> ErrorNumber;
  std::string ErrorText;
  std::optional<bool> Answer;  ///< of a member that answers True or False
  std::optional<Position> Before, After;
  bool PositionIsEstimated = false;
  std::vector<RequestRecord> Requests;
  std::shared_ptr<const nlohmann::ordered_json> Values;  ///< what was asked for, by name
};

}  // namespace ptzctl
