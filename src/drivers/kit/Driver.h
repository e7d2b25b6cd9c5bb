#pragma once

#include <ptzd/DriverData.h>
#include <ptzd/Platform.h>
#include <ptzd/PropertyBag.h>

#include <cstdint>
#include <span>
#include <string>

#include "common/Credentials.h"
#include "common/LogScope.h"
#include "drivers/kit/DeviceBridge.h"
#include "drivers/kit/HeadPosition.h"
#include "drivers/kit/LastMotion.h"
#include "drivers/kit/PositionAge.h"
#include "transport/Teller.h"

namespace ptzd {

/// Base of every driver. Whether a member works without a connection, whether it asks for the position first
/// and what it answers stands in the driver's data and is carried out here; what a member makes the camera do
/// is the driver's, by the members below. One that is irregular on purpose overrides the interface's own.
class Driver : public PTZDeviceBridge {
 public:
  ptzd::Capabilities Capabilities() override { return Data_.Capabilities | Found_; }
  bool Connect(std::span<const std::uint8_t> options) override;
  bool Connected() override { return Connected_; }
  float Pan() override { return Answer(&HeadPosition::Pan); }
  float Tilt() override { return Answer(&HeadPosition::Tilt); }

  bool MoveTo(float pan, float tilt) override;
  bool Zoom(Zooms zoomLevel) override;
  bool Iris(ptzd::Iris irisLevel) final;
  bool Focus(ptzd::Focus focusLevel) final;
  std::int32_t PresetCount() override { return Data_.PresetCount; }
  bool PresetGoto(std::int32_t preset) final;
  bool PresetSave(std::int32_t preset) final;
  void SetPanTilt(float pan, float tilt) final;
  bool Home() final;

  // For what stands above the drivers.

  /// Which of its axes a camera told the position of.
  struct TellingAxes {
    bool Pan = false, Tilt = false, Zoom = false;
  };
  /// Asks the camera where it is, whatever is known, where it can be asked. Raises 6 for a position that does
  /// not fit.
  TellingAxes AskPosition();
  /// The next continuous motion is sent even where it is the one sent last.
  void ForgetMotion() { LastMove_ = {}, LastZoom_ = {}; }

 protected:
  Driver(const DriverData& data, const Platform& platform);

  // Connecting.

  /// Reads options that must be right before anything else is looked at.
  virtual void ReadOptions() {}
  /// Reaches the camera that the options name; the address is there where the driver has one. Answers whether
  /// it is connected, or raises why not.
  virtual bool Open() = 0;
  /// Lets go of what `Open` took, before another `Connect`; raises nothing.
  virtual void LetGo() {}
  /// The same when the host disconnects. What it raises, it raises to the host.
  virtual void Release() { LetGo(); }

  // What the camera is made to do. Each answers whether the camera took the command.

  /// Goes to a target, brought into the camera's range. Raises 6, with nothing sent or kept, for one that
  /// does not fit the camera's numbers.
  virtual bool GoTo(HeadPosition target) = 0;
  /// By signed amounts, which are singles, from where the head is thought to be.
  virtual bool StepBy(double pan, double tilt);
  /// In or out by an amount; any other direction only where the data says so.
  virtual bool ZoomBy(Zooms direction, float amount);
  /// To a zoom, where the head stays.
  virtual bool ZoomAt(double zoom) { return GoTo({Current_.Pan, Current_.Tilt, zoom}); }
  virtual bool SetIris(ptzd::Iris) { return false; }
  virtual bool SetFocus(ptzd::Focus) { return false; }
  virtual bool GoToPreset(std::int32_t) { return false; }
  virtual bool SavePreset(std::int32_t) { return false; }
  virtual bool GoHome() { return false; }

  // The position.

  /// Asks the camera where it is and keeps what it tells; what it does not tell stays as it is. Raises 6 for
  /// a position that does not fit.
  virtual void QueryPosition() {}
  /// Takes a place that the host knows.
  virtual void TakePlace(float pan, float tilt);
  /// Asks where what is known is too old. Counts as asked whatever comes of it.
  void Refresh();
  void RefreshFor(PositionRequests occasion) {
    if (Data_.PositionRequests & occasion) Refresh();
  }
  /// Asks whatever is known.
  void ReadPosition();

  // The same for both interfaces.

  bool DeviceMove(Directions direction, float angle) override;
  bool DeviceMoveBoth(float panAngle, float tiltAngle) override;
  Variant DeviceDisconnect() override;
  bool MoveToPlace(float pan, float tilt, float zoom);
  bool ZoomStep(Zooms direction, float amount);
  bool ZoomTarget(float zoom);
  float Answer(double HeadPosition::*axis);

  /// Does a member's work where its rule allows it now, and answers what the rule says.
  template <typename Work>
  bool Ruled(MemberRule rule, const Work& work) {
    if (rule == MemberRule::Nothing || (NeedsConnection(rule) && !Connected_)) return false;
    const LogScope scope(Subject_);
    const bool taken = work();
    if (rule == MemberRule::Succeeds || rule == MemberRule::SucceedsIfConnected) return true;
    return (rule == MemberRule::Outcome || rule == MemberRule::OutcomeIfConnected) && taken;
  }

  std::int32_t TickCount() const { return Platform_.Clock->TickCount(); }

  const DriverData& Data_;
  const Platform Platform_;
  /// What it logs is about; members that log before any of the base's are called say so by a `LogScope`.
  LogSubject Subject_;
  const Teller Teller_;  ///< whatever goes to the camera is told by it
  PropertyBag Options_;
  bool HasOptions_ = false;  ///< `Connect` was called, whatever came of it
  bool Connected_ = false;
  ptzd::Capabilities Found_{};  ///< what the connected camera told of itself
  HeadPosition Current_;
  PositionAge PositionAge_;
  // The texts of the continuous commands sent last. A make with one command for both uses the first.
  LastMotion<std::string> LastMove_, LastZoom_;

 private:
  void TakeAddress();
  static bool NeedsConnection(MemberRule rule);

  MaskedLogins Logins_;  // of the address, in every message until the next `Connect`
};

}  // namespace ptzd
