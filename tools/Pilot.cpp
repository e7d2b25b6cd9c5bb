#include "Pilot.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <ptzd/DriverData.h>

#include "Words.h"
#include "common/Numbers.h"

namespace ptzctl {

namespace {

using namespace ptzd;
using namespace std::chrono_literals;

/// A screen that hangs lets the camera stop after this time.
constexpr auto Lease = 1000ms;
/// Between readings of a camera that rests: somebody else may drive it.
constexpr auto RestPace = 2000ms;
constexpr auto StepPace = 400ms;
/// What is taken for the fastest where neither the driver nor the camera tells one.
constexpr double UsualTop = 20, UsualZoomTop = 12;
/// So many readings of one place are no chance.
constexpr int ManyAlike = 4;

bool IsReady(const std::shared_future<WishOutcome>& future) {
  return future.wait_for(0s) == std::future_status::ready;
}

bool HasOneSpeed(const ValueRange& range) { return range.Ends == Beyond::SignOnly; }

double TopOf(const ValueRange& range, double usual) {
  if (HasOneSpeed(range)) return 1;
  return std::isfinite(range.Greatest) && range.Ends != Beyond::Overflows ? range.Greatest : usual;
}

/// Whole numbers, as makes count speeds; whatever is pushed moves.
float SpeedOf(const std::optional<ValueRange>& range, double usual, int level, float push) {
  if (!range || push == 0) return 0;
  const double part =
      HasOneSpeed(*range) ? 1.0 : static_cast<double>(std::fabs(push)) * level / Pilot::Levels;
  return static_cast<float>(std::copysign(std::max(1.0, std::round(TopOf(*range, usual) * part)), push));
}

bool IsStill(const DriveSpeeds& speeds) {
  const auto head = speeds.PanTilt.value_or(DriveSpeeds::Head{});
  return head.Pan == 0 && head.Tilt == 0 && speeds.Zoom.value_or(0) == 0;
}

const char* MeaningOf(WishResult result) {
  switch (result) {
    case WishResult::LoginRefused:
      return "no login that the camera takes";
    case WishResult::NotReached:
      return "not reached";
    case WishResult::NotSent:
      return "nothing was sent";
    default:
      return nullptr;
  }
}

std::string Meaning(const WishOutcome& outcome) {
  const char* text = MeaningOf(outcome.Result);
  return text == nullptr ? std::string(Name(outcome.Result)) : text;
}

}  // namespace

std::string PushText(const Pilot::Push& push) {
  const auto words = [](float value, const char* more, const char* less) {
    return std::string(value > 0 ? more : value < 0 ? less : "");
  };
  auto text = words(push.Tilt, "up", "down");
  if (const auto pan = words(push.Pan, "right", "left"); !pan.empty())
    text += (text.empty() ? "" : "-") + pan;
  if (const auto zoom = words(push.Zoom, "zoom in", "zoom out"); !zoom.empty())
    text += (text.empty() ? "" : ", ") + zoom;
  return text;
}

Pilot::Pilot(Camera& camera) : Camera_(camera), Control_(camera.Control()), Data_(camera.Data()) {}

void Pilot::Note(std::string what, std::string by, Wish wish) {
  Last_ = {std::move(what), std::move(by), std::move(wish)};
}

void Pilot::Steer(const Push& push, const std::string& by) {
  if (Drive_ && IsReady(Drive_->Wish.Done)) {  // it was ended by something else, which is told
    Drive_.reset();
    Driven_ = {};
    IsPaused_ = true;
  }
  if (push.IsNone()) IsPaused_ = false;
  if (IsPaused_) return;

  DriveSpeeds wanted;
  if (AtSpeed_.Head)
    wanted.PanTilt = {SpeedOf(Data_.PanSpeed, UsualTop, Level_, push.Pan),
                      SpeedOf(Data_.TiltSpeed, UsualTop, Level_, push.Tilt)};
  if (AtSpeed_.Zoom) wanted.Zoom = SpeedOf(Data_.ZoomSpeed, UsualZoomTop, Level_, push.Zoom);
  if (!IsStill(wanted)) {
    Drive(wanted, push, by);
  } else if (Drive_) {
    Stop();
    IsPaused_ = !push.IsNone();
  }
}

/// Sends what is new about the speeds, and has the rest go on.
void Pilot::Drive(const DriveSpeeds& speeds, const Push& push, const std::string& by) {
  const auto before = Driven_.PanTilt.value_or(DriveSpeeds::Head{});
  const auto head = speeds.PanTilt.value_or(DriveSpeeds::Head{});
  DriveSpeeds changed;
  if (head.Pan != before.Pan || head.Tilt != before.Tilt) changed.PanTilt = head;
  if (speeds.Zoom.value_or(0) != Driven_.Zoom.value_or(0)) changed.Zoom = speeds.Zoom.value_or(0);
  if (!changed.PanTilt && !changed.Zoom) {
    if (Drive_) Drive_->Renew();
    return;
  }
  // One that has not left yet needs no place behind this one.
  HasMoved_ = MayMove_ = true;
  Drive_ = Control_.DriveAt(changed, Lease);
  Driven_ = speeds;
  Stop_.reset();
  SeenAlike_ = 0;
  Note(PushText(push), by, Drive_->Wish);
}

void Pilot::Step(const Deflection& to, const std::string& by) {
  const bool turns = !AtSpeed_.Head && (to.Pan != 0 || to.Tilt != 0);
  const bool zooms = !AtSpeed_.Zoom && to.Zoom != 0;
  if (!turns && !zooms) return;
  if (IsSending()) return;
  const float step = Steps[static_cast<std::size_t>(Step_)];
  HasMoved_ = MayMove_ = true;
  Stop_.reset();
  if (turns)
    Note("step " + PushText({static_cast<float>(to.Pan), static_cast<float>(to.Tilt), 0}) + " by " +
             Text(step) + " degrees",
         by, Control_.MoveBy(static_cast<float>(to.Pan) * step, static_cast<float>(to.Tilt) * step));
  else
    Note(to.Zoom > 0 ? "a step of zoom in" : "a step of zoom out", by,
         Control_.Zoom(to.Zoom > 0 ? ZoomIn : ZoomOut));
}

void Pilot::StepOnAndOn(const Deflection& to, const std::string& by, Time now) {
  if (to.IsNone() || now - SteppedAt_ < StepPace) return;
  SteppedAt_ = now;
  Step(to, by);
}

void Pilot::Stop() {
  Stop_ = Control_.Stop();
  Drive_.reset();
  Driven_ = {};
  IsPaused_ = true;
  Note("stop", "", *Stop_);
}

void Pilot::Recall(int preset) {
  HasMoved_ = MayMove_ = true;
  IsPaused_ = true;
  Stop_.reset();
  Note("go to preset " + std::to_string(preset), "", Control_.GotoPreset(preset));
}

void Pilot::Save(int preset) {
  Note("save preset " + std::to_string(preset), "", Control_.SavePreset(preset));
}

void Pilot::Home() {
  HasMoved_ = MayMove_ = true;
  IsPaused_ = true;
  Stop_.reset();
  Note("go home", "", Control_.Home());
}

void Pilot::ChangeSpeed(int by) {
  if (TurnsInSteps())
    Step_ = std::clamp(Step_ + by, 0, static_cast<int>(Steps.size()) - 1);
  else
    Level_ = std::clamp(Level_ + by, 1, Levels);
}

void Pilot::Look(Time now) {
  State_ = Control_.State();
  State_.Position = Camera_.Position();
  AtSpeed_ = {Data_.PanSpeed.has_value() && (State_.Capabilities & CapabilityContinuousMove) != 0,
              Data_.ZoomSpeed.has_value() && (State_.Capabilities & CapabilityContinuousZoom) != 0};
  MayMove_ = HasMoved_ && (Drive_ || IsSending() || State_.Motion != CameraMotion::AtRest);

  const auto& at = State_.Position;
  HasKnownPlace_ = HasKnownPlace_ || at.Kind != PositionKind::Unknown;
  if (!Seen_ || Seen_->When != at.When) {
    const bool isAlike = Seen_ && Seen_->Pan == at.Pan && Seen_->Tilt == at.Tilt && Seen_->Zoom == at.Zoom &&
                         at.Kind == PositionKind::Read && State_.Motion == CameraMotion::Driven;
    SeenAlike_ = isAlike ? SeenAlike_ + 1 : 0;
    Seen_ = at;
  }

  if (Reading_ && !IsReady(Reading_->Done)) return;
  Reading_.reset();
  const bool answers = State_.Link == LinkHealth::Up && State_.Connected;
  if (!answers || Data_.PositionRequests == 0 || State_.Queued != 0 || IsStopping()) return;
  const auto pace = MayMove_ ? std::chrono::milliseconds(Data_.PositionPace) : RestPace;
  if (now - ReadAt_ < pace || now - at.When < pace) return;
  ReadAt_ = now;
  Reading_ = Control_.ReadPosition();
}

bool Pilot::IsSending() const { return Last_ && !IsReady(Last_->Wish.Sent); }

bool Pilot::IsStopping() const { return Stop_ && !IsReady(Stop_->Done); }

std::optional<WishOutcome> Pilot::Stopped() const {
  if (!Stop_ || !IsReady(Stop_->Done)) return std::nullopt;
  return Stop_->Done.get();
}

bool Pilot::HoldsStill() const { return SeenAlike_ >= ManyAlike; }

Telling Pilot::Motion() const {
  if (State_.StopTries > 1 || (IsStopping() && State_.Link == LinkHealth::Lost))
    return {Mood::Bad, "STOP NOT TAKEN",
            "tried " + std::to_string(State_.StopTries) + " times; it may still move"};
  if (IsStopping()) return {Mood::Busy, "STOPPING", "waiting for the camera to take it"};
  if (const auto stopped = Stopped(); stopped && !IsDone(stopped->Result) &&
                                      stopped->Result != WishResult::Unsupported &&
                                      State_.Motion != CameraMotion::AtRest)
    return {Mood::Bad, "MAY STILL BE MOVING", stopped->Text};
  switch (State_.Motion) {
    case CameraMotion::AtRest:
      return {Mood::Calm, "AT REST", Stop_ ? "the camera took the stop" : ""};
    case CameraMotion::Driven:
      return {Mood::Busy, "DRIVEN",
              HoldsStill() ? "at its end? The position stays"
                           : (Last_ ? Last_->What + ", by " + Last_->By : std::string())};
    case CameraMotion::Moving:
      return {Mood::Busy, "MOVING", Last_ ? Last_->What : std::string()};
    default:
      if (State_.Link == LinkHealth::Lost)
        return {HasMoved_ ? Mood::Bad : Mood::Doubtful, "UNKNOWN", "the link is lost"};
      return {HasMoved_ ? Mood::Doubtful : Mood::Calm, HasMoved_ ? "UNKNOWN" : "NOT MOVED FROM HERE",
              HasMoved_ ? "it cannot tell whether it rests" : ""};
  }
}

Telling Pilot::LastWish() const {
  if (!Last_) return {Mood::Calm, "nothing yet", ""};
  const auto& wish = Last_->Wish;
  if (!IsReady(wish.Sent)) return {Mood::Busy, Last_->What + ": being sent", ""};
  if (!IsReady(wish.Done)) return {Mood::Busy, Last_->What + ": the camera took it", ""};
  const auto outcome = wish.Done.get();
  const bool isStopped = outcome.Result == WishResult::Stopped || outcome.Result == WishResult::Replaced;
  if (Stop_ && IsDone(outcome.Result) && Last_->What == "stop")
    return {Mood::Calm, "stop: the camera took it",
            outcome.Tries > 1 ? "at try " + std::to_string(outcome.Tries) : ""};
  if (outcome.Result == WishResult::Sent)
    return {Mood::Calm, Last_->What + ": the camera took it", outcome.Text};
  const bool isMissing = outcome.Result == WishResult::Unsupported;
  const auto meaning = Meaning(outcome);
  auto detail = outcome.Text == meaning ? "" : outcome.Text;
  if (outcome.Result == WishResult::NotSent && detail.empty())
    detail = "it is there already, or this camera has no such thing";
  return {IsDone(outcome.Result) || isStopped ? Mood::Calm
          : isMissing                         ? Mood::Doubtful
                                              : Mood::Bad,
          Last_->What + ": " + meaning, detail};
}

std::string Pilot::SpeedText() const {
  if (TurnsInSteps()) return "steps of " + Text(Steps[static_cast<std::size_t>(Step_)]) + " degrees";
  if (HasOneSpeed(*Data_.PanSpeed)) return "one speed only";
  auto text = "pan " + Text(SpeedOf(Data_.PanSpeed, UsualTop, Level_, 1)) + ", tilt " +
              Text(SpeedOf(Data_.TiltSpeed, UsualTop, Level_, 1));
  if (!AtSpeed_.Zoom) return text + ", zoom in steps";
  return text + ", zoom " +
         (HasOneSpeed(*Data_.ZoomSpeed) ? "at one speed"
                                        : Text(SpeedOf(Data_.ZoomSpeed, UsualZoomTop, Level_, 1)));
}

std::string Pilot::SpeedUnit() const {
  if (TurnsInSteps()) return "no continuous motion, steps only";
  return HasOneSpeed(*Data_.PanSpeed) ? "" : "in " + std::string(Data_.PanSpeed->Unit);
}

}  // namespace ptzctl
