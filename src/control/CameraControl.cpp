#include <ptzd/CameraControl.h>

#include <utility>

#include <ptzd/PTZNamedPresets.h>
#include "control/CameraWorker.h"

namespace ptzd {

namespace {

using Kind = CameraRequest::Kind;

CameraRequest TaskRequest(CameraTask task) { return {.What = Kind::Task, .Task = std::move(task)}; }

}  // namespace

CameraControl::CameraControl(CameraSettings settings)
    : Worker_(std::make_shared<Worker>(std::move(settings))) {}

// A drive that outlives this finds nothing left to stop.
CameraControl::~CameraControl() { Worker_->End(); }

Wish CameraControl::Connect(WishTold told) {
  return Worker_->Submit({.What = Kind::Connect}, std::move(told));
}

Wish CameraControl::Disconnect(WishTold told) {
  return Worker_->Submit({.What = Kind::Disconnect}, std::move(told));
}

struct CameraControl::Drive::Ties {
  std::weak_ptr<Worker> Owner;
  std::shared_ptr<DriveTerms> Terms;  ///< null once it was left

  ~Ties() {
    if (!Terms) return;
    if (const auto worker = Owner.lock()) worker->EndDrive(*Terms);
  }
};

CameraControl::Drive::Drive(Drive&&) noexcept = default;
CameraControl::Drive& CameraControl::Drive::operator=(Drive&&) noexcept = default;
CameraControl::Drive::~Drive() = default;

void CameraControl::Drive::Renew() {
  if (!Ties_ || !Ties_->Terms) return;
  if (const auto worker = Ties_->Owner.lock()) worker->RenewDrive(*Ties_->Terms);
}

void CameraControl::Drive::Leave() {
  if (!Ties_ || !Ties_->Terms) return;
  const auto terms = std::exchange(Ties_->Terms, nullptr);
  if (const auto worker = Ties_->Owner.lock()) worker->LeaveDrive(*terms);
}

CameraControl::Drive CameraControl::DriveAt(const DriveSpeeds& speeds,
                                            std::optional<std::chrono::milliseconds> lease, WishTold told) {
  const auto terms = std::make_shared<DriveTerms>();
  terms->Lease = lease.value_or(Worker_->Settings().Lease);
  Drive drive;
  drive.Ties_ = std::shared_ptr<Drive::Ties>(new Drive::Ties{Worker_, terms});
  drive.Wish = Worker_->Submit({.What = Kind::Drive, .Speeds = speeds, .Terms = terms}, std::move(told));
  return drive;
}

Wish CameraControl::Stop(WishTold told) { return Worker_->Stop(std::move(told)); }

Wish CameraControl::MoveTo(float pan, float tilt, std::optional<float> zoom, WishTold told) {
  return Worker_->Submit({.What = Kind::Place, .Target = {pan, tilt, zoom}}, std::move(told));
}

Wish CameraControl::MoveBy(float pan, float tilt, WishTold told) {
  return Worker_->Submit({.What = Kind::Step, .Target = {pan, tilt, std::nullopt}}, std::move(told));
}

Wish CameraControl::Zoom(Zooms direction, float amount, WishTold told) {
  const auto signedAmount = direction == ZoomOut ? -amount : amount;
  return Worker_->Submit({.What = Kind::Step, .Target = {0, 0, signedAmount}}, std::move(told));
}

Wish CameraControl::ZoomTo(float zoom, WishTold told) {
  return Worker_->Submit({.What = Kind::Zoom, .Target = {0, 0, zoom}}, std::move(told));
}

Wish CameraControl::Iris(ptzd::Iris level, WishTold told) {
  return Perform({.Work = [level](PTZDevice& device) { return std::optional(device.Iris(level)); },
                  .Rule = Driver().Data->Iris},
                 std::move(told));
}

Wish CameraControl::Focus(ptzd::Focus level, WishTold told) {
  return Perform({.Work = [level](PTZDevice& device) { return std::optional(device.Focus(level)); },
                  .Rule = Driver().Data->Focus},
                 std::move(told));
}

Wish CameraControl::GotoPreset(std::int32_t preset, WishTold told) {
  return Perform({.Work = [preset](PTZDevice& device) { return std::optional(device.PresetGoto(preset)); },
                  .Rule = Driver().Data->PresetGoto,
                  .Moves = true},
                 std::move(told));
}

Wish CameraControl::SavePreset(std::int32_t preset, WishTold told) {
  return Perform({.Work = [preset](PTZDevice& device) { return std::optional(device.PresetSave(preset)); },
                  .Rule = Driver().Data->PresetSave},
                 std::move(told));
}

Wish CameraControl::GotoPreset(const std::string& name, WishTold told) {
  const auto& presets = Worker_->Settings().Presets;
  if (const auto found = presets.find(name); found != presets.end())
    return GotoPreset(found->second, std::move(told));
  if (!Worker_->HasNamedPresets()) return Worker_->Refuse("there is no preset " + name, std::move(told));
  return Perform({.Work = [name](PTZDevice& device) -> std::optional<bool> {
                    dynamic_cast<PTZNamedPresets&>(device).GotoNamedPreset(name);
                    return std::nullopt;
                  },
                  .Moves = true},
                 std::move(told));
}

Wish CameraControl::SavePreset(const std::string& name, WishTold told) {
  const auto& presets = Worker_->Settings().Presets;
  if (const auto found = presets.find(name); found != presets.end())
    return SavePreset(found->second, std::move(told));
  return Worker_->Refuse("there is no preset " + name, std::move(told));
}

Wish CameraControl::Home(WishTold told) {
  return Perform({.Work = [](PTZDevice& device) { return std::optional(device.Home()); },
                  .Rule = Driver().Data->Home,
                  .Moves = true},
                 std::move(told));
}

Wish CameraControl::SetPosition(float pan, float tilt, WishTold told) {
  return Worker_->Submit({.What = Kind::Position, .Target = {pan, tilt, std::nullopt}}, std::move(told));
}

Wish CameraControl::ReadPosition(WishTold told) {
  return Worker_->Submit({.What = Kind::Reading}, std::move(told));
}

Wish CameraControl::Perform(CameraTask task, WishTold told) {
  return Worker_->Submit(TaskRequest(std::move(task)), std::move(told));
}

CameraState CameraControl::State() const { return Worker_->State(); }

const DriverClass& CameraControl::Driver() const { return Worker_->Class(); }

std::shared_ptr<void> CameraControl::Subscribe(std::function<void(const CameraState&)> changed) {
  return Worker_->Subscribe(std::move(changed));
}

}  // namespace ptzd
