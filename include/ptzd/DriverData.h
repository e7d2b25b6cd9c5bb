#pragma once

#include <optional>
#include <string_view>

#include <ptzd/Enumerations.h>

namespace ptzd {

/// When a Boolean member of `PTZDevice` does its work, and what it answers.
enum class MemberRule {
  Nothing,             ///< does nothing and answers False
  Outcome,             ///< works also while not connected; answers whether the camera took the command
  OutcomeIfConnected,  ///< works while connected, answers whether the camera took the command; else False
  TrueIfConnected,     ///< works while connected and answers True whatever happened; else False
  FalseIfConnected,    ///< works while connected, answers False whatever happened
  True,                ///< works also while not connected, answers True whatever happened
  False,               ///< works also while not connected, answers False whatever happened
};

/// When a driver asks its camera where it is; else `Pan` and `Tilt` follow from the commands made.
enum class PositionReading {
  Never,
  OnConnect,     ///< once, and works out the rest
  BeforeSteps,   ///< and before relative moves; `Pan` and `Tilt` do not ask
  AboveHorizon,  ///< always; a tilt below the horizon is read as one far above it
  Always,
};

/// Options that drivers read beside those that they describe through `PTZOptions`.
enum SharedOptions : unsigned {
  SharesAddress = 1,
  SharesPort = 2,        ///< Port: the camera behind one address, 0 for the only or first one
  SharesBusAddress = 4,  ///< Port: the camera's address on its serial line
  SharesCamera = 8,      ///< Camera: the camera behind one address
  SharesReset = 16,      ///< Reset: go to the reference position on connecting
};

/// What cannot be told from a driver's capabilities: makes differ in which members need a connection and in
/// what they answer, partly on purpose. Suites and tools read it from here.
struct DriverData {
  MemberRule Move = MemberRule::Nothing;
  MemberRule MoveTo = MemberRule::Nothing;
  MemberRule MoveBoth = MemberRule::Nothing;
  MemberRule Zoom = MemberRule::Nothing;
  MemberRule Iris = MemberRule::Nothing;
  MemberRule Focus = MemberRule::Nothing;
  MemberRule PresetGoto = MemberRule::Nothing;
  MemberRule PresetSave = MemberRule::Nothing;
  MemberRule Home = MemberRule::Nothing;
  bool DisconnectAnswersTrue = true;  ///< else an empty variant
  PositionReading ReadsPosition = PositionReading::Never;
  /// Without a line to write to, `Disconnect` and the members that need no connection raise 91.
  bool NeedsLine = false;
  /// Before the first `Connect`, successful or not, the members that need no connection raise 91.
  bool NeedsOptions = false;
  /// `Connect` succeeds also where the camera does not answer.
  bool ConnectsUnheard = false;

  unsigned SharedOptions = SharesAddress;

  struct Failure {
    PTZErrors Number;
    std::string_view Description;
  };
  std::optional<Failure> NoAddress;  ///< what `Connect` raises for want of an address
};

}  // namespace ptzd
