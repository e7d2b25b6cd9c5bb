#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include <ptzd/CameraControl.h>

#include "Camera.h"
#include "Keys.h"

namespace ptzctl {

/// What a line on the screen is about.
enum class Mood { Calm, Busy, Doubtful, Bad };

struct Telling {
  ptzctl::Mood Mood = Mood::Calm;
  std::string Text, Detail;
};

/// Has a camera do what the keys and sticks of one operator say. Nothing here blocks.
class Pilot {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// How far something is pushed: -1 to 1, positive to the right, up and in.
  struct Push {
    float Pan = 0, Tilt = 0, Zoom = 0;

    bool IsNone() const { return Pan == 0 && Tilt == 0 && Zoom == 0; }
  };
  static constexpr int Levels = 10;

  explicit Pilot(Camera& camera);

  /// How the camera is to be driven, by whom. To be said again and again: a drive goes on only as long as
  /// that, and what ended otherwise begins anew only when nothing was pushed in between.
  void Steer(const Push& push, const std::string& by);
  /// Something is pushed anew.
  void Heed() { IsPaused_ = false; }
  /// One step, of what this camera does in steps only, unless the one before has not left yet.
  void Step(const Deflection& to, const std::string& by);
  /// The same for as long as something is pushed, at a pace that a hand can follow.
  void StepOnAndOn(const Deflection& to, const std::string& by, Time now);
  /// Stops whatever moves, and heeds no push until there is none.
  void Stop();
  void Recall(int preset);
  void Save(int preset);
  void Home();
  /// Up to the fastest, or the largest step, down to the slowest.
  void ChangeSpeed(int by);
  /// Reads the position where that is due.
  void Look(Time now);

  /// Whether the last wish has not left yet.
  bool IsSending() const;
  /// Whether something that began here may be moving still. For any thread, as it was at the last `Look`.
  bool MayMove() const { return MayMove_; }
  /// What became of the last stop; absent while it is tried, or where there was none.
  std::optional<ptzd::WishOutcome> Stopped() const;

  bool TurnsInSteps() const { return !AtSpeed_.Head; }
  bool ZoomsInSteps() const { return !AtSpeed_.Zoom; }
  /// What the camera does, as far as its own answers tell.
  Telling Motion() const;
  /// What became of the last wish.
  Telling LastWish() const;
  int Level() const { return TurnsInSteps() ? Step_ + 1 : Level_; }
  int LevelCount() const { return TurnsInSteps() ? static_cast<int>(Steps.size()) : Levels; }
  /// What the speed is in the driver's scale, or how large a step is; and what that scale is.
  std::string SpeedText() const;
  std::string SpeedUnit() const;
  /// Whether it was ever known where the camera is.
  bool HasKnownPlace() const { return HasKnownPlace_; }
  const ptzd::CameraState& State() const { return State_; }

 private:
  static constexpr std::array Steps{0.5F, 1.F, 2.F, 5.F, 10.F, 20.F};  // degrees

  struct Deed {
    std::string What, By;
    ptzd::Wish Wish;
  };
  void Note(std::string what, std::string by, ptzd::Wish wish);
  void Drive(const ptzd::DriveSpeeds& speeds, const Push& push, const std::string& by);
  bool IsStopping() const;
  bool HoldsStill() const;

  const Camera& Camera_;
  ptzd::CameraControl& Control_;
  const ptzd::DriverData& Data_;
  ptzd::CameraState State_;
  struct {
    bool Head = false, Zoom = false;
  } AtSpeed_;
  int Level_ = Levels / 2, Step_ = 3;

  std::optional<Deed> Last_;
  std::optional<ptzd::Wish> Stop_, Reading_;
  std::optional<ptzd::CameraControl::Drive> Drive_;
  ptzd::DriveSpeeds Driven_;
  bool IsPaused_ = false;  ///< heeds no push
  Time SteppedAt_, ReadAt_;
  std::optional<ptzd::CameraPosition> Seen_;
  int SeenAlike_ = 0;
  bool HasMoved_ = false, HasKnownPlace_ = false;
  std::atomic<bool> MayMove_ = false;
};

/// "up-left, zoom in"
std::string PushText(const Pilot::Push& push);

}  // namespace ptzctl
