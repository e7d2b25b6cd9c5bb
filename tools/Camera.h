#pragma once

#include <atomic>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <ptzd/CameraControl.h>

#include "ExchangeLog.h"
#include "Interruption.h"
#include "Outcome.h"
#include "control/Site.h"

namespace ptzctl {

/// A member of a driver, done as a wish, and how it is told.
struct Deed {
  const char* Operation;
  std::string What;  ///< "Move up by 5 degrees"
  ptzd::CameraTask Task;
  std::int32_t Needs = 0;  ///< the capability that a camera should claim
};

/// A camera to operate, and the way back: what was set in motion here is stopped when ptzctl is interrupted.
class Camera {
 public:
  /// `address` is shown; the one that is used is among the options.
  Camera(ptzd::CameraSettings settings, std::string address, const Interruption& interruption,
         std::shared_ptr<ExchangeLog> log);
  Camera(const Camera&) = delete;
  Camera& operator=(const Camera&) = delete;

  Outcome Connect();
  Outcome Disconnect();
  Outcome CarryOut(Deed deed);
  /// Drives until somebody stops it, for a time, or, left, on its own beyond the end of ptzctl.
  Outcome Drive(const Deed& deed, const ptzd::DriveSpeeds& speeds,
                std::optional<std::chrono::milliseconds> time, bool leave);
  Outcome Stop();
  /// Tries a stop once more where the last was not taken. Nothing where it is not taken this time either; it
  /// may be under way still, so the process should end without waiting for it.
  std::optional<Outcome> StopAgain();
  Outcome ReadPosition();
  Outcome SetPosition(float pan, float tilt, std::string what);

  /// A drive goes on.
  bool IsDriven() const { return Drive_.has_value(); }
  /// The last stop was not taken, and nothing has been begun since.
  bool IsUnstopped() const { return Moving_ == Moving::Unstopped; }
  /// Something that was begun here may be moving, and no stop of it has failed.
  bool MayMove() const { return Moving_ == Moving::Maybe; }
  /// Blocks until ptzctl is interrupted, or the drive is over by itself, which is told.
  std::optional<Outcome> AwaitDrive();
  /// What a signal has done; blocks as long as that takes.
  void StopNow();

  /// Whether connecting itself moves this camera; of some makes only a connected camera tells.
  bool MovesToConnect() const;

  /// The position as it can be told: one that is counted from where a camera was that nobody has heard of is
  /// unknown.
  ptzd::CameraPosition Position() const;
  ptzd::CameraState State() const { return Control_.State(); }
  /// How the site has the camera; what stands in tasks is the driver's.
  const ptzd::Site& Site() const { return Site_; }
  const std::map<std::string, std::int32_t>& Presets() const { return Settings_.Presets; }
  /// The number of a preset of the site's. Raises `UsageError` where it has none of that name.
  std::int32_t PresetNamed(const std::string& name) const;
  /// Raises `UsageError` where there is a name, and no such preset.
  void CheckPreset(const std::string& name) const;
  const ptzd::DriverClass& Driver() const { return Control_.Driver(); }
  const ptzd::DriverData& Data() const { return *Driver().Data; }
  /// Whether the driver has an interface.
  template <typename Interface>
  bool Has() const {
    return dynamic_cast<const Interface*>(Example_.get()) != nullptr;
  }
  /// "Axis"
  std::string DriverName() const;
  /// The address without user and password; empty where there is none.
  const std::string& Address() const { return Address_; }
  const Interruption& Ending() const { return Interruption_; }
  /// For what does not wait for each operation. What it sets in motion is not told to `MayMove`.
  ptzd::CameraControl& Control() { return Control_; }
  ExchangeLog& Log() { return *Log_; }
  /// False where something could not be recorded that was to be, which was told.
  bool IsRecorded() const { return Log_->RecordingProblem().empty(); }

  /// Tells something before an operation is over. False where it cannot be told.
  std::function<bool(const Outcome&)> Tell;

 private:
  class Telling;

  ptzd::Wish Begin(bool moves, const std::function<ptzd::Wish()>& wish);
  ptzd::WishOutcome Await(const std::shared_future<ptzd::WishOutcome>& future) const;
  ptzd::WishOutcome AwaitStop();
  /// Has it stopped, and says so in the outcome.
  void BringToRest(Outcome& outcome);

  const std::string Address_;
  const Interruption& Interruption_;
  const std::shared_ptr<ExchangeLog> Log_;
  const ptzd::CameraSettings Settings_;
  const ptzd::Site Site_{Settings_};
  ptzd::CameraControl Control_;
  const std::unique_ptr<ptzd::PTZDevice> Example_;  ///< of the driver class; never connected
  std::optional<ptzd::CameraControl::Drive> Drive_;
  bool KnowsPlace_ = false;  ///< somebody has told where the camera is

  std::mutex Mutex_;  ///< of a wish beginning and a signal coming
  /// What was begun here. `Unstopped` was tried to be stopped, and is tried only when somebody says so.
  enum class Moving { No, Maybe, Unstopped };
  std::atomic<Moving> Moving_ = Moving::No;
  std::optional<std::shared_future<ptzd::WishOutcome>> Stopping_;
};

}  // namespace ptzctl
