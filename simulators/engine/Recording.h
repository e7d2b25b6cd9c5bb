#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "simulators/engine/Faults.h"

namespace ptzsim {

/// What a camera answered.
struct RecordedReply {
  int Status = 0;  ///< 0 for a reply without a status
  std::string Reason{};
  std::vector<std::pair<std::string, std::string>> Headers{};
  std::string Body{};
};

/// An exchange with a camera, from a file. In what was sent "***" stands for whatever was masked.
struct RecordedExchange {
  enum class End { Replied, NotSent, NotConnected, Silent, Closed, Reset, BrokenOff };

  std::uint64_t Number = 0;  ///< in the order in which they began
  std::size_t At = 0;        ///< the line of the file
  bool Awaited = true;       ///< else it may have overtaken others, or been overtaken

  std::string Method{}, Target{}, Body{};  ///< of HTTP
  bool Login = false;                      ///< it was made with a user and password
  bool Opens = false;                      ///< of other links: the connection was made, or the line opened
  std::string Bytes{};                     ///< of other links, unless it opens them

  End Ended = End::Replied;
  RecordedReply Reply{};
  std::chrono::milliseconds Took{};
};

/// What docs/recordings.md describes.
struct Recording {
  std::string Driver;
  std::vector<std::string> Options;
  Line On = Line::HTTP;
  std::vector<RecordedExchange> Exchanges;  ///< by their numbers
};

/// Throws std::runtime_error with the line of the file and what was expected there.
Recording ReadRecording(const std::string& file);

}  // namespace ptzsim
