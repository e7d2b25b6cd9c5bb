#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Camera.h"
#include "CommandLine.h"
#include "Interruption.h"
#include "Report.h"

namespace ptzctl {

/// The driver of the camera that a command line names. Raises `UsageError`.
const ptzd::DriverClass& DriverOf(const Invocation& invocation);
/// How to reach the camera that a command line names; warns of what is odd about it. May ask for a password,
/// until there is an interruption. Raises `UsageError`.
ptzd::CameraSettings SettingsOf(const Invocation& invocation, const Report& report,
                                const Interruption* interruption = nullptr);
struct CameraPlace {
  std::string Address;  ///< with its login; or
  std::string Line;
};
/// Where the camera is that a command line names, whatever its driver. May ask for a password. Raises
/// `UsageError`.
CameraPlace PlaceOf(const Invocation& invocation);
/// The camera that a command line names, not connected yet. One that is attended is watched while it moves
/// and connected again when its link was lost; that its recording failed is told by whoever attends it.
/// Raises `UsageError`, and `Interrupted` while a password is asked for.
std::unique_ptr<Camera> MakeCamera(const Invocation& invocation, const Report& report,
                                   const Interruption& interruption, bool isAttended = false);

/// Operations on one camera, each told as soon as it is over.
class Session {
 public:
  Session(Camera& camera, Report& report, Interruption& interruption);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// How it ended. Done without a word where it is silent.
  Result Operate(const Operation& operation, bool silent = false);
  /// How the line's operation ended; a line without one is done.
  Result Operate(const std::string& line);
  Result Tell(const Outcome& outcome);

  /// Nothing more is to be done.
  bool IsOver() const;
  /// Leaves no motion behind that was begun here, and answers the exit code.
  int End();

 private:
  Camera& Camera_;
  Report& Report_;
  Interruption& Interruption_;
  std::vector<std::string> Notes_;  ///< of the connection, to be told with the operation
  int ExitCode_ = 0;                ///< of the first that failed
  bool IsGivenUp_ = false;
};

/// Which comes before the others.
extern const Operation ConnectFirst;

/// Makes the camera that a command line names, has it operated, and answers the exit code.
using Work = std::function<void(Session&, Camera&, Interruption&)>;
int RunSession(const Invocation& invocation, Report& report, const Work& work);

// Commands. Each answers the exit code.
int RunOperation(const Invocation& invocation, Report& report);
/// The lines of the command line, or those of the standard input.
int RunLines(const Invocation& invocation, Report& report);
int RunShell(const Invocation& invocation, Report& report);

}  // namespace ptzctl
