#pragma once

#include <chrono>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <ptzd/DriverFactory.h>
#include <ptzd/Enumerations.h>
#include <ptzd/Exchange.h>
#include <ptzd/Export.h>
#include <ptzd/PTZDevice2.h>
#include <ptzd/SerialPortPool.h>

namespace ptzd {

/// What became of a wish, judged by what went over the wire and not by what the driver's member answered.
enum class WishResult {
  Arrived,   ///< the camera rests where it was sent, as it tells itself; anywhere, where no place was named
  Sent,      ///< the camera took it; it cannot tell what came of it, or the wish was no move
  Stopped,   ///< a stop or the end of its lease ended it, or kept it from being sent
  Replaced,  ///< a later wish took its place
  Stalled,   ///< the camera rests somewhere else than where it was sent
  StillMoving,   ///< the camera did not come to rest within `CameraSettings::RestTime`
  Refused,       ///< the camera said no, by a status of 400 and more or in its reply
  LoginRefused,  ///< status 401 or 403
  NotReached,    ///< nothing answered, or the line is down; or it was so before and nothing was tried
  NotSent,       ///< the driver sent nothing
  Unsupported,   ///< the driver or this camera does not do that
  OutOfRange,    ///< a number that the camera's driver or the site's limits do not allow; nothing was sent
  Failed,        ///< the driver raised an error
  Abandoned,     ///< the `CameraControl` ended first
};

/// Whether a wish did what was wished.
constexpr bool IsDone(WishResult result) {
  return result == WishResult::Arrived || result == WishResult::Sent;
}
/// "arrived", "login refused"
PTZD_API std::string_view Name(WishResult result);

enum class PositionKind {
  Unknown,    ///< something moved the camera that nobody can work out
  Read,       ///< the camera told it
  Estimated,  ///< worked out by the driver from the commands it made
  Target,     ///< where the camera was sent; it has not told yet that it is there
};
PTZD_API std::string_view Name(PositionKind kind);

/// Where a camera is: degrees, as the site sees them (inverted axes are turned back), and zoom in the
/// driver's own scale. `Pan` and `Tilt` of an unknown position are the last ones known.
struct CameraPosition {
  PositionKind Kind = PositionKind::Unknown;
  float Pan = 0, Tilt = 0;
  std::optional<float> Zoom;  ///< absent where the driver has no `PTZDevice2`
  std::chrono::steady_clock::time_point When;
};

struct WishOutcome {
  WishResult Result = WishResult::Sent;
  std::string Text;              ///< why, for people; empty where the result says all
  std::int32_t StatusCode = 0;   ///< of the HTTP exchange that decided it; 0 for none
  std::int32_t ErrorNumber = 0;  ///< of the exchange that failed, or that the driver raised; 0 for none
  std::string ErrorText;
  std::optional<bool> Answer;            ///< of a driver's member that answers True or False
  std::optional<CameraPosition> Target;  ///< where the driver sent the camera, as far as it knows
  std::vector<Exchange> Exchanges;       ///< all that were made for the wish, in their order
  int Tries = 0;                         ///< how often a stop was sent
  std::chrono::milliseconds Took{};
};

/// A wish under way. Both futures are always fulfilled, if only with `Abandoned`.
struct Wish {
  std::shared_future<WishOutcome> Sent;  ///< what came of sending it
  std::shared_future<WishOutcome> Done;  ///< what became of it in the end; of what is no move the same
};
/// Is told what became of a wish, once, on the camera's own thread: what it does there keeps the camera
/// waiting, a stop and the time of a timed move too. It must not block, must not raise and must not end the
/// control. May wish for more; what it wishes while the control ends is abandoned, and not told.
using Told = std::function<void(const WishOutcome&)>;

/// Who is told of a wish, each where there is one.
struct WishTold {
  WishTold() = default;
  template <std::invocable<const WishOutcome&> Callable>
  WishTold(Callable done) : Done(std::move(done)) {}
  WishTold(Told done, Told sent) : Done(std::move(done)), Sent(std::move(sent)) {}

  Told Done;  ///< with `Wish::Done`
  Told Sent;  ///< with `Wish::Sent` and before `Done`: what moves the camera went out, or it came to nothing
};

enum class LinkHealth {
  NotConnected,  ///< nobody asked yet, or it was disconnected
  Connecting,
  Untried,  ///< the driver is ready; it asks nothing on connecting, so only the next wish will tell
  Up,       ///< the last exchange went well
  Lost,     ///< nothing answers, or not yet as it should; connected again as soon as it does
};
PTZD_API std::string_view Name(LinkHealth health);

enum class CameraMotion {
  Unknown,
  AtRest,  ///< the camera took a stop, or tells the same position again and again
  Driven,  ///< under a drive
  Moving,  ///< on its way to a target
};
PTZD_API std::string_view Name(CameraMotion motion);

/// One camera's state at one moment.
struct CameraState {
  bool Connected = false;
  LinkHealth Link = LinkHealth::NotConnected;
  std::int32_t ErrorNumber = 0;  ///< of the last exchange that failed, or that `Connect` raised
  std::string ErrorText;
  CameraPosition Position;
  CameraMotion Motion = CameraMotion::Unknown;
  std::optional<std::chrono::milliseconds> LeaseLeft;  ///< of a drive that has one
  std::size_t Queued = 0;                              ///< wishes not sent yet
  int StopTries = 0;                                   ///< of a stop that the camera has not taken yet
  ptzd::Capabilities Capabilities{};                   ///< of the connected camera
  std::int32_t PresetCount = 0;
};

struct CameraLimits {
  float Least, Greatest;
};

/// How a site has a camera. Ranges and signs of all wishes and positions are those of the site.
struct CameraSettings {
  std::string Driver;  ///< ProgID, in any case of letters
  Bytes Options;       ///< `PropertyBag::Contents`
  /// `Exchanges` is told of all exchanges, too; the clock's `SleepUntil` is not used.
  ptzd::Platform Platform;
  /// Safe for several threads, as `SharedSerialPorts` is; null: one for all cameras of the process.
  std::shared_ptr<SerialPortPool> Ports;

  bool InvertPan = false, InvertTilt = false;  ///< a head that hangs from the ceiling
  std::optional<CameraLimits> PanLimits, TiltLimits, ZoomLimits;
  std::map<std::string, std::int32_t> Presets;  ///< names for numbers

  std::chrono::milliseconds Lease{1000};  ///< of drives that name none
  std::chrono::milliseconds IdleTime{
      5000};               ///< after which a camera with nothing to do gives back its thread
  bool Reconnects = true;  ///< without being asked, once the link is lost
  std::chrono::milliseconds FirstPause{250}, LongestPause{30000};  ///< between tries to connect or to stop
  std::chrono::milliseconds StopTime{60000};  ///< how long a stop is tried before it is given up
  std::chrono::milliseconds RestTime{60000};  ///< how long the camera is watched until it rests
  bool WatchesMoves = true;  ///< reads the position after moves until the camera rests, where it can be read
};

struct DriveSpeeds {
  struct Head {
    float Pan = 0, Tilt = 0;
  };
  std::optional<Head> PanTilt;  ///< absent: what the head does is left alone
  std::optional<float> Zoom;    ///< likewise
};

/// Where a camera is sent. An absent axis is left alone.
struct CameraPlace {
  std::optional<float> Pan{}, Tilt{}, Zoom{};
};

/// Something that a driver can do and `CameraControl` has no member for.
struct CameraTask {
  /// Runs on the camera's thread; may raise `Error`. What it answers counts as the rule says.
  std::function<std::optional<bool>(PTZDevice&)> Work;
  std::optional<MemberRule> Rule;  ///< of a member that answers True or False
  bool Moves = false;              ///< the camera may be in motion from then on
  bool Sends = true;               ///< else it is done also where nothing goes over the wire
  bool Connected = true;           ///< the camera is connected first where it is not
  /// Of a move: the driver's position is then where the camera was sent.
  bool KnowsTarget = false;
  /// Where `Work` sends the camera. Is refused where it cannot go there; `Work` itself is not turned around.
  CameraPlace To{};
  /// By how much `Work` moves the camera, in the site's signs. Is refused where that leads out of the site's
  /// limits, as far as the position is known; `Work` itself is not turned around.
  CameraPlace By{};
  /// How long the camera is watched until it rests, 0 being not at all. Absent: as the settings say.
  std::optional<std::chrono::milliseconds> RestTime{};
};

/// One camera under an operator. Everything is done on a thread of the camera's own, which begins with the
/// first wish and ends when there is nothing left to do; every member but the destructor answers at once and
/// may be called on any thread.
///
/// A stop goes before all else and is repeated, with growing pauses, until the camera took it. It ends
/// whatever waits in the queue and cuts a timed move's wait short; a request under way is waited for, at most
/// as long as its time-outs. The latest drive and the latest absolute target win over those not sent yet,
/// steps not sent yet add up, everything else is done in its order. While the link is lost, wishes fail at
/// once.
class PTZD_API CameraControl {
 public:
  /// Raises 429 for a driver that is not there.
  explicit CameraControl(CameraSettings settings);
  /// Stops a camera that may be moving, and blocks until it took that or `StopTime` is over, after the
  /// request under way.
  ~CameraControl();
  CameraControl(const CameraControl&) = delete;
  CameraControl& operator=(const CameraControl&) = delete;

  /// Where the first wish would do it; again where it is connected.
  Wish Connect(WishTold told = {});
  Wish Disconnect(WishTold told = {});

  /// A drive that is under way, and its lease. The camera stops when this dies before the drive is over.
  class PTZD_API Drive {
   public:
    Drive() = default;
    Drive(Drive&&) noexcept;
    Drive& operator=(Drive&&) noexcept;
    ~Drive();

    ptzd::Wish Wish;
    /// For as long again as its lease is, from now. Nothing happens where it is over.
    void Renew();
    /// Lets it go on without this object, on its lease. Without one it goes on when its `CameraControl` ends.
    void Leave();

   private:
    friend class CameraControl;
    struct Ties;
    std::shared_ptr<Ties> Ties_;
  };

  /// Drives at a speed in the driver's own scale, positive to the right, up and in, until it is stopped,
  /// replaced, or its lease is over: as long as said, `CameraSettings::Lease` for nothing, without end for 0.
  /// Its wish is done when the drive is over: `Stopped` or `Replaced`.
  [[nodiscard]] Drive DriveAt(const DriveSpeeds& speeds, std::optional<std::chrono::milliseconds> lease = {},
                              WishTold told = {});

  /// Done when the camera took it. Also connects a camera that is not connected, to stop what others began.
  Wish Stop(WishTold told = {});

  Wish MoveTo(float pan, float tilt, std::optional<float> zoom = {}, WishTold told = {});
  Wish MoveBy(float pan, float tilt, WishTold told = {});
  Wish Zoom(Zooms direction, float amount = ZoomStepAmount, WishTold told = {});
  Wish ZoomTo(float zoom, WishTold told = {});
  Wish Iris(ptzd::Iris level, WishTold told = {});
  Wish Focus(ptzd::Focus level, WishTold told = {});
  Wish GotoPreset(std::int32_t preset, WishTold told = {});
  Wish SavePreset(std::int32_t preset, WishTold told = {});
  /// A name of the settings, or the id of one of the camera's own named presets.
  Wish GotoPreset(const std::string& name, WishTold told = {});
  Wish SavePreset(const std::string& name, WishTold told = {});
  Wish Home(WishTold told = {});
  /// Tells the driver where the camera is, without moving it.
  Wish SetPosition(float pan, float tilt, WishTold told = {});
  /// Asks the camera, where it can be asked; `State` has the answer.
  Wish ReadPosition(WishTold told = {});
  Wish Perform(CameraTask task, WishTold told = {});

  CameraState State() const;
  const DriverClass& Driver() const;

  /// Is called at every change of the state, on the camera's thread, until the answer dies; must not block
  /// and must not let the answer die. The last call may come while the answer dies, never later.
  [[nodiscard]] std::shared_ptr<void> Subscribe(std::function<void(const CameraState&)> changed);

 private:
  class Worker;
  std::shared_ptr<Worker> Worker_;
};

}  // namespace ptzd
