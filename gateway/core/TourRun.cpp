#include "gateway/core/TourRun.h"

#include <boost/asio/post.hpp>

#include <algorithm>
#include <charconv>
#include <utility>

namespace ptzgate {

using namespace ptzd;

namespace {

using namespace std::chrono_literals;

constexpr auto FirstFailurePause = 1000ms, LongestFailurePause = 30000ms;
/// Of a drive to a place, which is renewed as long as the camera tells where it is.
constexpr auto GlideLease = 3000ms;

Wish GoTo(CameraControl& control, const std::string& preset, Told told) {
  std::int32_t number = 0;
  const auto* end = preset.data() + preset.size();
  const auto [rest, error] = std::from_chars(preset.data(), end, number);
  return error == std::errc() && rest == end ? control.GotoPreset(number, std::move(told))
                                             : control.GotoPreset(preset, std::move(told));
}

std::string Why(const WishOutcome& outcome) {
  std::string text(Name(outcome.Result));
  if (!outcome.Text.empty()) text += ": " + outcome.Text;
  return text;
}

}  // namespace

TourRun::TourRun(boost::asio::io_context& context, CameraControl& control, std::string name, const Tour& tour,
                 std::function<void()> isOver, std::function<void(const std::string&)> failed)
    : Context_(context),
      Control_(control),
      Name_(std::move(name)),
      Tour_(tour),
      IsOver_(std::move(isOver)),
      Failed_(std::move(failed)),
      FailurePause_(FirstFailurePause),
      Timer_(context),
      Longest_(context) {
  Begin();
}

TourRun::~TourRun() = default;

Told TourRun::Then(void (TourRun::*then)(const WishOutcome&)) {
  return [this, life = std::weak_ptr(Life_), step = ++Step_, then,
          &context = Context_](const WishOutcome& outcome) {
    boost::asio::post(context, [this, life, step, then, outcome] {
      if (life.lock() && step == Step_) (this->*then)(outcome);
    });
  };
}

void TourRun::Await(Milliseconds time, void (TourRun::*then)()) {
  Timer_.expires_after(time);
  Timer_.async_wait([this, life = std::weak_ptr(Life_), step = ++Step_, then](const auto& error) {
    if (!error && life.lock() && step == Step_) (this->*then)();
  });
}

void TourRun::Begin() {
  const auto& stop = Tour_.Stops[At_];
  const auto& to = stop.To;
  if (!stop.Speeds) {
    Longest_.expires_after(Tour_.Arrive);
    Longest_.async_wait([this, life = std::weak_ptr(Life_)](const auto& error) {
      if (!error && life.lock()) TooLong();
    });
  }
  if (!stop.Preset.empty())
    GoTo(Control_, stop.Preset, Then(&TourRun::Arrived));
  else if (stop.Speeds)
    Drive_ = Control_.DriveAt(*stop.Speeds, stop.For, Then(&TourRun::Arrived));
  else if (stop.Speed)
    Control_.ReadPosition(Then(&TourRun::Located));
  else if (to.Pan && to.Tilt)
    Control_.MoveTo(*to.Pan, *to.Tilt, to.Zoom, Then(&TourRun::Arrived));
  else
    Control_.ZoomTo(to.Zoom.value_or(0), Then(&TourRun::Arrived));
}

void TourRun::Located(const WishOutcome& outcome) {
  if (!IsDone(outcome.Result)) return Fail(Why(outcome));
  const auto at = Control_.State().Position;
  if (at.Kind != PositionKind::Read)
    return Fail("this camera cannot tell where it is, so it cannot be driven to a place");
  const auto& stop = Tour_.Stops[At_];
  Glide_.emplace(*stop.To.Pan, *stop.To.Tilt, *stop.Speed);
  Glide();
}

/// Drives as the glide has it from where the camera is.
void TourRun::Glide() {
  const bool isTurned = Glide_->Aim(Control_.State().Position);
  if (Glide_->IsOver()) {
    Drive_ = {};
    Control_.Stop(Then(&TourRun::Glided));
    return;
  }
  if (isTurned) Drive_ = Control_.DriveAt({Glide_->Speeds(), {}}, GlideLease);
  Await(Milliseconds(std::max(Control_.Driver().Data->PositionPace, 50)), &TourRun::FollowGlide);
}

/// Nobody knows where a head is that is driven, but the camera.
void TourRun::FollowGlide() { Control_.ReadPosition(Then(&TourRun::Followed)); }

void TourRun::Followed(const WishOutcome& outcome) {
  const bool isTold = IsDone(outcome.Result) && Control_.State().Position.Kind == PositionKind::Read;
  if (!isTold) {
    Drive_ = {};
    return Fail("the camera does not tell any more where it is: " + Why(outcome));
  }
  Drive_.Renew();
  Glide();
}

void TourRun::Glided(const WishOutcome& outcome) {
  if (!IsDone(outcome.Result)) return Fail(Why(outcome));
  const auto& to = Tour_.Stops[At_].To;
  Control_.MoveTo(*to.Pan, *to.Tilt, to.Zoom, Then(&TourRun::Arrived));
}

void TourRun::Arrived(const WishOutcome& outcome) {
  const auto& stop = Tour_.Stops[At_];
  const bool wasDriven = stop.Speeds && outcome.Result == WishResult::Stopped;
  if (!IsDone(outcome.Result) && !wasDriven) return Fail(Why(outcome));
  FailurePause_ = FirstFailurePause;
  const bool cannotTell = !stop.Speeds && outcome.Result == WishResult::Sent;
  Await(stop.Pause + (cannotTell ? Tour_.Travel : 0ms), &TourRun::Next);
  Longest_.cancel();
}

void TourRun::TooLong() {
  if (Glide_) Drive_ = {};
  Fail("it did not get there in time");
}

void TourRun::Fail(const std::string& why) {
  Longest_.cancel();
  Await(FailurePause_, &TourRun::Next);
  FailurePause_ = std::min(FailurePause_ * 2, Milliseconds(LongestFailurePause));
  Failed_("stop " + std::to_string(At_ + 1) + " of " + std::to_string(Tour_.Stops.size()) + ": " + why);
}

void TourRun::Next() {
  Glide_.reset();
  if (++At_ == Tour_.Stops.size()) {
    At_ = 0;
    if (++Round_ == Tour_.Rounds) return IsOver_();
  }
  Begin();
}

}  // namespace ptzgate
