#pragma once

#include <ptzd/Enumerations.h>
#include <ptzd/PTZOption.h>

#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string_view>

namespace ptzd {

/// When a Boolean member of `PTZDevice` does its work, and what it answers.
enum class MemberRule {
  Nothing,              ///< does nothing and answers False
  Outcome,              ///< works also while not connected; answers whether the camera took the command
  OutcomeIfConnected,   ///< works while connected, answers whether the camera took the command; else False
  SucceedsIfConnected,  ///< works while connected and answers True whatever happened; else False
  FailsIfConnected,     ///< works while connected, answers False whatever happened
  Succeeds,             ///< works also while not connected, answers True whatever happened
  Fails,                ///< works also while not connected, answers False whatever happened
};

/// What a driver makes of being told where its camera is (`PTZDevice::SetPanTilt`).
enum class PlaceRule {
  Ignored,
  Taken,             ///< the position from here on
  TakenIfConnected,  ///< the same while connected
  AsksAnew,          ///< looks at no argument; the camera is asked before its position is used next
  AsksAnewIfConnected,
};

/// When a driver asks its camera where it is, where what it knows is older than `PositionLifetime` or was
/// made stale. Members without their flag work from what is known.
enum PositionRequests : unsigned {
  AsksOnConnecting = 1,  ///< whatever is known
  AsksBeforeMove = 2,    ///< `Move` and `MoveBoth`
  AsksBeforeMoveTo = 4,
  AsksBeforeZoom = 8,
  AsksBeforeZoomTo = 16,
  AsksBeforeAnswer = 32,  ///< `Pan`, `Tilt` and `ZoomLevel`
  /// Every move, when its target is known: what it takes from the position it takes from what was known
  /// before.
  AsksBehindTarget = 64,
};

/// Where `Pan` and `Tilt` come from.
enum class PositionSource {
  Estimate,      ///< the commands made
  OnConnecting,  ///< the camera, on connecting; from then on the commands made
  BeforeSteps,   ///< the camera, on connecting and before steps; else the commands made
  AboveHorizon,  ///< the same, but a tilt below the horizon is read as one far above it
  Camera,
};

/// What becomes of a value beyond a range.
enum class Beyond {
  SignOnly,    ///< of a speed: there are directions, and one speed
  Limited,     ///< it is the nearest end
  GoesAround,  ///< it is brought back by whole turns
  PassedOn,    ///< it is sent as it is; the camera has ends of its own
  Overflows,   ///< error 6, nothing is sent
};

/// Whether `Connect` moves the camera, whatever the options say.
enum class ConnectMovement { Never, OnSomeModels, OnEveryModel };

/// What an axis or a speed takes. Infinite ends: the driver knows none.
struct ValueRange {
  double Least = -std::numeric_limits<double>::infinity();
  double Greatest = std::numeric_limits<double>::infinity();
  std::string_view Unit = "degrees";
  Beyond Ends = Beyond::PassedOn;
  bool DependsOnModel = false;  ///< the range is that of the widest model; the camera's own may be narrower
};

/// What a camera of this make answers to a question that moves and changes nothing. What any web server may
/// answer is no evidence: a status of 200, a login that is demanded, a page of HTML.
struct Evidence {
  enum class Places {
    Body,     ///< of the reply to a GET of `Request`, a path
    Headers,  ///< of any reply, the login's realm among them
    Sockets,  ///< a TCP connection is taken at the address, whose port is `Request` unless it names one
    Line,     ///< a serial line
  };
  enum class Strengths {
    Allows = 1,  ///< speaks for it, but much else does the same
    Suggests,    ///< says what it is, in words that anybody can say
    Proves,      ///< answers in the make's own protocol
  };

  Places Place = Places::Body;
  std::string_view Request;
  /// Text that must be there, in any case of letters: "#" is a digit, "?" any one byte, "*" any bytes; "^" in
  /// front is the beginning and "$" behind the end. Without one nothing is looked at: a request that the next
  /// one needs.
  std::string_view Pattern;
  Strengths Strength = Strengths::Proves;
};

/// What is the same for every camera of a driver, and cannot be told from its capabilities: makes differ in
/// which members need a connection and in what they answer, partly on purpose. The drivers' base carries out
/// what stands here; hosts and tools may read it.
struct DriverData {
  std::string_view Class;  ///< the driver's ProgID, "QVPTZ.Axis"

  /// What the driver claims before it has met a camera; a connected camera may add to it.
  ptzd::Capabilities Capabilities{};
  std::int32_t PresetCount = 0;  ///< likewise

  MemberRule Move = MemberRule::Nothing;
  MemberRule MoveTo = MemberRule::Nothing;
  MemberRule MoveBoth = MemberRule::Nothing;
  MemberRule Zoom = MemberRule::Nothing;
  MemberRule Iris = MemberRule::Nothing;
  MemberRule Focus = MemberRule::Nothing;
  MemberRule PresetGoto = MemberRule::Nothing;
  MemberRule PresetSave = MemberRule::Nothing;
  MemberRule Home = MemberRule::Nothing;
  PlaceRule SetPanTilt = PlaceRule::Ignored;
  bool DisconnectAnswersTrue = true;  ///< else an empty variant

  /// Left and right at once are neither, nor are up and down; else left and up win.
  bool OppositesCancel = false;
  /// A zoom step that is neither in nor out moves the camera to where it is; else it does nothing.
  bool SendsEmptyZooms = false;

  unsigned PositionRequests = 0;         ///< without any the position is an estimate from the commands made
  bool MisreadsBelowHorizon = false;     ///< a tilt below the horizon is read as one far above it
  std::int32_t PositionLifetime = 5000;  ///< milliseconds from a reading, also one that failed, or a command

  /// Of pan and tilt in degrees, and of the zoom: the coarser of the camera's and the driver's unit. A head
  /// nearer to its target than that has arrived.
  double PositionStep = 1, ZoomStep = 0.25;
  /// Milliseconds between two readings at least, while somebody waits for the camera to rest.
  std::int32_t PositionPace = 250;

  std::optional<ValueRange> PanRange, TiltRange,
      ZoomRange;  ///< of targets; nothing where there is no such axis
  std::optional<ValueRange> PanSpeed, TiltSpeed, ZoomSpeed;  ///< of continuous motion, the same

  bool AsksToConnect = true;  ///< `Connect` sends something to the camera
  ConnectMovement MovesToConnect = ConnectMovement::Never;
  bool ConnectsUnheard = false;  ///< `Connect` succeeds also where the camera does not answer
  bool StopsBySpeedZero = true;  ///< `StopContinuous` stops pan, tilt and zoom; else it sends nothing

  /// Without a line to write to, `Disconnect` and the members that need no connection raise 91.
  bool NeedsLine = false;
  /// Before the first `Connect`, successful or not, the members that need no connection raise 91.
  bool NeedsOptions = false;

  struct Failure {
    PTZErrors Number;
    std::string_view Description;
  };
  /// What `Connect` raises for want of an address; it answers False where nothing stands here.
  std::optional<Failure> NoAddress;

  /// All that the driver reads of its options, those that `PTZOptions` describes in their order.
  std::span<const DriverOption* const> Options;

  /// By what the make's cameras are known, asked for in this order on one connection.
  std::span<const ptzd::Evidence> Evidence;
  /// What its cameras call their make, where they announce themselves.
  std::span<const std::string_view> MakeNames;

  constexpr PositionSource Source() const {
    if (MisreadsBelowHorizon) return PositionSource::AboveHorizon;
    if (PositionRequests & AsksBeforeAnswer) return PositionSource::Camera;
    if (PositionRequests & ~AsksOnConnecting) return PositionSource::BeforeSteps;
    return PositionRequests != 0 ? PositionSource::OnConnecting : PositionSource::Estimate;
  }
  /// Whether the driver reads an option of that name.
  constexpr bool Reads(std::string_view option) const {
    for (const auto* row : Options)
      if (row->Name == option) return true;
    return false;
  }
};

}  // namespace ptzd
