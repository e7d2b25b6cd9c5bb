// `CameraControl` as the gateway's targets have it: this stands in its place when the program is linked.

#include "FakeControl.h"

#include <ptzd/CameraControl.h>
#include <ptzd/Error.h>

#include <memory>
#include <utility>

namespace ptzd {

using fuzz::ControlLog;

void ControlLog::Begin(std::string outcomes) {
  const std::lock_guard lock(Mutex);
  Outcomes = std::move(outcomes);
  Moves = Drives = 0;
  HasFailed = false;
}

char ControlLog::NextOutcome() {
  const std::lock_guard lock(Mutex);
  if (Outcomes.empty()) return 0;
  const char next = Outcomes.front();
  Outcomes.erase(0, 1);
  return next;
}

class CameraControl::Worker {
 public:
  explicit Worker(const CameraSettings& settings) : Class(*FindDriverClass(settings.Driver)) {
    State.Position.Kind = PositionKind::Read;
    State.PresetCount = Class.Data->PresetCount;
    State.Capabilities = Class.Data->Capabilities;
  }

  Wish Do(WishResult usual, bool moves, const WishTold& told) {
    if (moves) ++ControlLog::Moves;
    WishOutcome outcome{.Result = usual};
    constexpr auto last = WishResult::Abandoned;
    if (const char letter = ControlLog::NextOutcome();
        letter >= 'a' && letter <= 'a' + static_cast<int>(last)) {
      outcome.Result = static_cast<WishResult>(letter - 'a');
      outcome.Text = "the camera said \"\xff\n<&>";
      ControlLog::HasFailed = ControlLog::HasFailed || !IsDone(outcome.Result);
    }
    if (IsDone(outcome.Result)) {
      State.Connected = true;
      State.Link = LinkHealth::Up;
      State.Position.When = std::chrono::steady_clock::now();
    }
    std::promise<WishOutcome> promise;
    promise.set_value(outcome);
    const auto future = promise.get_future().share();
    if (told.Sent) told.Sent(outcome);
    if (told.Done) told.Done(outcome);
    if (Changed) Changed(State);
    return {future, future};
  }

  const DriverClass& Class;
  CameraState State;
  std::function<void(const CameraState&)> Changed;
};

/// A drive is over when whoever began it lets go of it.
struct CameraControl::Drive::Ties {
  explicit Ties(Told told) : Told_(std::move(told)) { ++ControlLog::Drives; }
  ~Ties() {
    --ControlLog::Drives;
    if (Told_) Told_({.Result = WishResult::Stopped, .Text = "its lease ended"});
  }
  Told Told_;
};

CameraControl::CameraControl(CameraSettings settings) : Worker_(std::make_shared<Worker>(settings)) {}
CameraControl::~CameraControl() = default;

CameraControl::Drive::Drive(Drive&&) noexcept = default;
CameraControl::Drive& CameraControl::Drive::operator=(Drive&&) noexcept = default;
CameraControl::Drive::~Drive() = default;
void CameraControl::Drive::Renew() {}
void CameraControl::Drive::Leave() {}

CameraControl::Drive CameraControl::DriveAt(const DriveSpeeds&, std::optional<std::chrono::milliseconds>,
                                            WishTold told) {
  Drive drive;
  drive.Wish = Worker_->Do(WishResult::Sent, true, {{}, std::move(told.Sent)});
  drive.Ties_ = std::make_shared<Drive::Ties>(std::move(told.Done));
  return drive;
}

Wish CameraControl::Connect(WishTold told) { return Worker_->Do(WishResult::Sent, false, told); }
Wish CameraControl::Disconnect(WishTold told) { return Worker_->Do(WishResult::Sent, false, told); }
Wish CameraControl::Stop(WishTold told) { return Worker_->Do(WishResult::Sent, true, told); }
Wish CameraControl::MoveTo(float pan, float tilt, std::optional<float> zoom, WishTold told) {
  auto& position = Worker_->State.Position;
  position.Pan = pan;
  position.Tilt = tilt;
  if (zoom) position.Zoom = zoom;
  return Worker_->Do(WishResult::Arrived, true, told);
}
Wish CameraControl::MoveBy(float, float, WishTold told) {
  return Worker_->Do(WishResult::Arrived, true, told);
}
Wish CameraControl::Zoom(Zooms, float, WishTold told) { return Worker_->Do(WishResult::Arrived, true, told); }
Wish CameraControl::ZoomTo(float zoom, WishTold told) {
  Worker_->State.Position.Zoom = zoom;
  return Worker_->Do(WishResult::Arrived, true, told);
}
Wish CameraControl::Iris(ptzd::Iris, WishTold told) { return Worker_->Do(WishResult::Sent, true, told); }
Wish CameraControl::Focus(ptzd::Focus, WishTold told) { return Worker_->Do(WishResult::Sent, true, told); }
Wish CameraControl::GotoPreset(std::int32_t, WishTold told) {
  return Worker_->Do(WishResult::Arrived, true, told);
}
Wish CameraControl::GotoPreset(const std::string&, WishTold told) {
  return Worker_->Do(WishResult::Arrived, true, told);
}
Wish CameraControl::SavePreset(std::int32_t, WishTold told) {
  return Worker_->Do(WishResult::Sent, true, told);
}
Wish CameraControl::SavePreset(const std::string&, WishTold told) {
  return Worker_->Do(WishResult::Sent, true, told);
}
Wish CameraControl::Home(WishTold told) { return Worker_->Do(WishResult::Arrived, true, told); }
Wish CameraControl::SetPosition(float, float, WishTold told) {
  return Worker_->Do(WishResult::Sent, false, told);
}
Wish CameraControl::ReadPosition(WishTold told) { return Worker_->Do(WishResult::Sent, false, told); }
Wish CameraControl::Perform(CameraTask task, WishTold told) {
  return Worker_->Do(WishResult::Sent, task.Moves, told);
}

CameraState CameraControl::State() const { return Worker_->State; }
const DriverClass& CameraControl::Driver() const { return Worker_->Class; }
std::shared_ptr<void> CameraControl::Subscribe(std::function<void(const CameraState&)> changed) {
  Worker_->Changed = std::move(changed);
  return std::shared_ptr<void>(Worker_.get(), [worker = Worker_](void*) { worker->Changed = nullptr; });
}

}  // namespace ptzd
