#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <ptzd/CameraControl.h>
#include <ptzd/PTZContinuousControl.h>
#include <ptzd/PTZDevice.h>
#include <ptzd/PTZDevice2.h>
#include <ptzd/PTZNamedPresets.h>
#include <ptzd/Platform.h>
#include "Interruption.h"
#include "control/ControlClock.h"
#include "control/ExchangeCollector.h"

namespace ptzctl {

/// A driver as a check has it: its public interfaces, null where it lacks one, and what it promises.
struct DriverUnderTest {
  std::shared_ptr<ptzd::PTZDevice> Device;
  std::shared_ptr<ptzd::PTZDevice2> Device2;
  std::shared_ptr<ptzd::PTZContinuousControl> Continuous;
  std::shared_ptr<ptzd::PTZNamedPresets> NamedPresets;
  const ptzd::DriverData* Data = nullptr;  ///< null for a stranger's, which tells nothing of the kind
};

/// The same, from the driver's one object of a class of this build.
DriverUnderTest InterfacesOf(std::unique_ptr<ptzd::PTZDevice> device, const ptzd::DriverData* data);

/// One look at a camera.
struct Sighting {
  std::chrono::steady_clock::time_point When;
  float Pan = 0, Tilt = 0;
  std::optional<float> Zoom;
  /// Whether the camera told it; else the driver worked it out. Of a stranger's driver nobody knows, and its
  /// answers count as told.
  bool TellsHead = false, TellsZoom = false;
};

/// What was asked of a camera, in words, from its beginning until the next one began or the camera was at
/// rest.
struct Motion {
  std::chrono::steady_clock::time_point Began, Ended;
  std::string What;
};

/// A driver on a bench: its members are called on this thread, and what goes over the wire for them decides
/// what became of them. Every member that may take time raises `Interrupted` once ptzctl is to end, until
/// `Close`.
class CheckBench {
 public:
  using Member = std::function<std::optional<bool>()>;

  CheckBench(const std::function<DriverUnderTest(const ptzd::Platform&)>& make,
             std::shared_ptr<ptzd::ExchangeSink> log, const Interruption& interruption,
             std::chrono::milliseconds stopTime);
  CheckBench(const CheckBench&) = delete;
  CheckBench& operator=(const CheckBench&) = delete;

  const DriverUnderTest& Driver() const { return Driver_; }
  const ptzd::DriverData* Data() const { return Driver_.Data; }
  bool Claims(ptzd::Capabilities flag);

  ptzd::WishOutcome Connect(const ptzd::Bytes& options);
  /// Asks the web server at the address that it connected to for its page, without a login, which moves and
  /// changes nothing.
  ptzd::WishOutcome AskForPage();
  /// Calls a member. A rule is that of the driver's data.
  ptzd::WishOutcome Do(const Member& member, std::optional<ptzd::MemberRule> rule = {});
  /// The same for one that moves the camera, which counts as moving until `Rested` or `Stop`.
  ptzd::WishOutcome Move(std::string what, const Member& member, std::optional<ptzd::MemberRule> rule = {});
  /// Asks the camera, where it can be asked. Raises `CannotLook`.
  Sighting Look();
  /// Between two looks.
  void Pause() const;
  void Sleep(std::chrono::milliseconds time) const;
  /// Until the camera took it, with growing pauses; a make without a stop ends its moves by itself.
  ptzd::WishOutcome Stop();
  void Rested();

  bool MayMove() const { return MayMove_; }
  /// Whether a stop was tried in vain since the last move.
  bool IsUnstoppable() const { return IsUnstoppable_; }
  /// Whether nothing answered the last time that the camera was asked or told anything.
  bool IsSilent() const { return IsSilent_; }
  /// Whether a wait of the driver within a motion was cut short.
  bool WasCut() const { return Clock_.WasCut(); }

  /// Cuts short what is waited for; on any thread.
  void Cut();
  /// From now on no interruption counts.
  void Close() { IsClosing_ = true; }

  /// What was exchanged since the last call, without all but the first look; and how many looks there were.
  std::vector<ptzd::Exchange> TakeExchanges();
  int TakeLooks();
  const std::vector<Sighting>& Track() const { return Track_; }
  const std::vector<Motion>& Motions() const { return Motions_; }

  struct CannotLook {
    std::string Why;
  };

 private:
  ptzd::WishOutcome Call(const Member& member, std::optional<ptzd::MemberRule> rule, bool connects = false);
  void Check() const;
  bool AskByConnecting();

  const Interruption& Interruption_;
  const std::chrono::milliseconds StopTime_;
  ptzd::ControlClock Clock_{ptzd::SystemClock()};
  const std::shared_ptr<ptzd::ExchangeCollector> Collector_;
  const DriverUnderTest Driver_;
  ptzd::Bytes Options_;
  bool IsClosing_ = false, MayMove_ = false, IsSilent_ = false, IsUnstoppable_ = false;
  std::vector<ptzd::Exchange> Exchanges_;
  int Looks_ = 0;
  std::vector<Sighting> Track_;
  std::vector<Motion> Motions_;
};

}  // namespace ptzctl
