#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Camera.h"
#include "Completion.h"
#include "Outcome.h"
#include "Report.h"

namespace ptzctl {

struct Operation {
  std::string Name;  ///< "preset goto"
  std::function<Outcome(Camera&)> Perform;
  bool Connects = false;  ///< needs no connection made before
  /// Keeps where the camera is, which is nowhere of interest where connecting has just moved it.
  bool KeepsPlace = false;
  std::string PresetName;  ///< that the camera must have; empty for none
};

/// What a command line asks for.
struct Invocation {
  std::function<int(const Invocation&, Report&)> Perform;  ///< what the command does; answers the exit code

  std::string Camera;      ///< the name of one that a file tells of
  std::string CameraFile;  ///< that tells of them; empty: the usual ones
  std::string Driver, Address, Line, User;
  bool AskPassword = false;
  std::vector<std::string> Options;  ///< "Key=Value"
  bool JSON = false, Trace = false;
  std::string Record;                         ///< the file to record into; empty for none
  std::chrono::milliseconds StopTime{10000};  ///< how long it is tried to stop a camera that does not take it

  std::optional<std::chrono::milliseconds> Time;  ///< that a `probe` or `discover` takes at most
  std::string Interface;                          ///< of a `discover`
  std::pair<std::uint16_t, std::uint16_t> DiscoveryPorts{3702, 1900};

  Operation Chosen;                    ///< for a command that is an operation
  std::vector<std::string> Lines;      ///< of a `run`; empty: those of the standard input
  bool KeepGoing = false;              ///< of a `run` or `tour`
  std::optional<std::int32_t> Rounds;  ///< of a `tour`
  std::string Word;                    ///< of a command that takes one
  std::string Gamepad;  ///< of a `drive`: its device; "none" for none, empty for the first found

  // Of a `check`.
  bool Moves = false;
  bool ByCOM = false;                  ///< the driver is a COM class, also where ptzctl has it itself
  std::optional<std::int32_t> Preset;  ///< that may be overwritten
  std::string Page;                    ///< the file of its HTML report; empty for none
};

/// Somebody asked for help, or for the version; the text is what to tell.
class HelpRequest : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Both raise `UsageError` and `HelpRequest`.
Invocation ParseCommandLine(int argc, char** argv);
/// One operation of a `run` or `shell`; nothing for a line that is empty or a comment.
std::optional<Operation> ParseLine(const std::string& line);
/// What may stand where a line of a `shell` ends, on a camera that has these presets.
Completion CompleteLine(const std::string& line, const Presets& presets);

}  // namespace ptzctl
