#include "Checks.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include <ptzd/DriverData.h>
#include "Words.h"
#include "common/Numbers.h"
#include "control/Verdict.h"

namespace ptzctl {

namespace {

using namespace ptzd;
using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr auto MoveTime = 30s;      ///< until a small move is over
constexpr auto IdleTime = 10s;      ///< until a camera that nobody moves is at rest
constexpr auto PutBackTime = 15s;   ///< after an interruption
constexpr auto StopRestTime = 10s;  ///< from a stop until rest
constexpr auto UnseenTime = 1s;     ///< that a small step takes
constexpr auto DriveTime = 1s;      ///< of continuous motion, where nobody sees it
constexpr double DriveRoom = 4;     ///< steps that continuous motion may take
constexpr auto LongestDrive = 4s;   ///< and where somebody waits to see it
constexpr auto Reluctance = 2s;  ///< a head that was told to move may take so long before it is seen moving
constexpr int SightingsAtRest = 3;  ///< how often a head must be seen at one place to be at rest there
constexpr double LeastStep = 5;     ///< degrees
constexpr double UsualSpeed = 10;   ///< in any driver's scale neither crawling nor racing
constexpr double WidestTurn = 360;  ///< of a believable position, whatever the driver's data say
constexpr double Horizon = 90;

/// Ends a check.
struct Ended {
  ptzctl::Verdict Verdict;
  std::string Text;
};

[[noreturn]] void Pass(std::string text) { throw Ended{Verdict::Passed, std::move(text)}; }
[[noreturn]] void Fail(std::string text) { throw Ended{Verdict::Failed, std::move(text)}; }
[[noreturn]] void Skip(std::string text) { throw Ended{Verdict::Skipped, std::move(text)}; }
[[noreturn]] void Doubt(std::string text) { throw Ended{Verdict::NotProvable, std::move(text)}; }

std::string Number(double value) { return Text(Round(value, 2)); }
std::string Degrees(double value) { return Number(value) + " degrees"; }
std::string PlaceText(const Sighting& at) {
  auto text = "pan " + Number(at.Pan) + ", tilt " + Number(at.Tilt);
  if (at.Zoom) text += ", zoom " + Number(*at.Zoom);
  return text;
}

double SecondsBetween(steady_clock::time_point from, steady_clock::time_point to) {
  return std::chrono::duration<double>(to - from).count();
}

/// Of two pans the nearest way between them counts.
double PanWay(double from, double to) { return std::remainder(to - from, 360); }

bool IsAlike(const Sighting& a, const Sighting& b) {
  constexpr double tiny = 1e-3;
  return std::fabs(PanWay(a.Pan, b.Pan)) < tiny && std::fabs(a.Tilt - b.Tilt) < tiny &&
         std::fabs(a.Zoom.value_or(0) - b.Zoom.value_or(0)) < tiny;
}

bool HadAnswer(const Exchange& exchange) {
  return exchange.StatusCode != 0 || (exchange.ErrorNumber == 0 && exchange.Link == ExchangeLink::TCP) ||
         exchange.ReplySize != 0;
}

enum class HeadAxis { Pan, Tilt };

class Checks {
 public:
  Checks(CheckBench& bench, const Bytes& options, const CheckScope& scope, const Interruption& interruption,
         const std::function<void(const CheckResult&)>& done)
      : Bench_(bench), Options_(options), Scope_(scope), Interruption_(interruption), Done_(done) {}

  void CarryOut();

 private:
  void Run(const char* name, const char* finds, const std::function<void()>& check);
  void NeedsConnection() const;
  void NeedsMoving() const;
  void Note(std::string name, double value, std::string unit) {
    Current_.Figures.push_back({std::move(name), value, std::move(unit)});
  }

  void Reached();
  void Login();
  void Make();
  void Position();
  void Turn(HeadAxis axis);
  void Zoom();
  void Presets();
  void Continuous();
  void Refusals();
  void PutBack();

  // Moving.
  void Expect(const WishOutcome& outcome);
  void SavePlace();
  void Step(HeadAxis axis, double angle);
  void GoBack(HeadAxis axis, double angle, const Sighting& from);
  void ZoomBy(double amount);
  void StopHead();
  /// Lets a move be over that nobody sees.
  void AwaitUnseen();
  bool DriveUntilSeen(double speed, const Sighting& from);
  void MoveToStart();

  struct Rest {
    Sighting At;
    bool Arrived = false, Rests = false, Moved = false;
    double ArrivedAfter = 0, RestedAfter = 0;  ///< seconds
  };
  /// Watches the camera until it rests, and whether that is near a place.
  Rest AwaitRest(std::optional<Sighting> target, std::chrono::milliseconds time);
  bool IsNear(const Sighting& at, const Sighting& to) const;

  double PositionStep() const { return Data() ? Data()->PositionStep : 1; }
  /// A step of that size that stays within the axis and the site's limits, to the right or upwards where it
  /// can. Raises where there is none.
  double Fitting(HeadAxis axis, double at, double angle) const;
  bool Fits(HeadAxis axis, double target) const;
  /// Whether the head goes back by steps, each of which is rounded anew.
  bool GoesBackBySteps() const {
    return Bench_.Claims(CapabilityRelativeControl) || Bench_.Claims(CapabilitySimpleControl) ||
           (Data() && Data()->MisreadsBelowHorizon) || DoesNothing(&DriverData::MoveTo);
  }
  double Tolerance() const { return (GoesBackBySteps() ? 2 : 1) * PositionStep(); }
  double ZoomStep() const { return Data() ? Data()->ZoomStep : ZoomStepAmount; }
  double StepAngle() const { return std::max(LeastStep, 2 * PositionStep()); }
  const DriverData* Data() const { return Bench_.Data(); }
  PTZDevice& Device() const { return *Bench_.Driver().Device; }
  template <typename Rule>
  std::optional<MemberRule> RuleOf(Rule rule) const {
    return Data() ? std::optional((*Data()).*rule) : std::nullopt;
  }
  bool DoesNothing(MemberRule DriverData::*rule) const { return RuleOf(rule) == MemberRule::Nothing; }

  CheckBench& Bench_;
  const Bytes& Options_;
  const CheckScope& Scope_;
  const Interruption& Interruption_;
  const std::function<void(const CheckResult&)>& Done_;

  CheckResult Current_;
  bool IsConnected_ = false;
  std::string WhyNot_;           ///< nothing more is asked of the camera
  std::string ConnectText_;      ///< why it is not connected, although it answers
  std::vector<Exchange> Heard_;  ///< all that was exchanged until the head is moved
  std::optional<Sighting> Start_;
  std::string WhyStill_;  ///< why nothing may be moved
  bool IsSaved_ = false;  ///< the start is a preset of the camera
  WishOutcome Saved_;
  bool HasMoved_ = false;
  bool IsLost_ = false;  ///< where a camera that tells no place is, nobody can work out any more
  double PanAway_ = 0, TiltAway_ = 0,
         ZoomAway_ = 0;  ///< of a camera that tells no place: yet to be taken back
  bool HasZoomed_ = false;
  bool AnswersFalse_ = false;  ///< the last member that was called
};

void Checks::CarryOut() {
  Run("reached", "a wrong address, a cable or a switch, a firewall, a camera without power",
      [&] { Reached(); });
  Run("login", "a wrong user or password, or a user who may not move the camera", [&] { Login(); });
  Run("make",
      "a camera of another make, or any web server, which takes the driver's requests and does nothing",
      [&] { Make(); });
  Run("position", "a camera that tells no position or one that its head cannot have, or that moves by itself",
      [&] { Position(); });
  if (IsConnected_) SavePlace();
  Run("pan", "a head that does not turn, turns the wrong way or too far, or tells a wrong place",
      [&] { Turn(HeadAxis::Pan); });
  Run("tilt", "the same of its tilt: a blocked head, one that hangs while its camera believes that it stands",
      [&] { Turn(HeadAxis::Tilt); });
  Run("zoom", "a lens that does not move, or that the camera drives the wrong way", [&] { Zoom(); });
  Run("presets", "presets that are not stored, or not found again where they were stored",
      [&] { Presets(); });
  Run("continuous", "a stop that the camera does not take, or takes late: the head would run on to its end",
      [&] { Continuous(); });
  Run("refusals", "a driver that sends what its own data say it refuses", [&] { Refusals(); });
  if (Interruption_.Came()) Bench_.Close();
  Run("put back", "a camera that does not stand where it stood before", [&] { PutBack(); });
}

void Checks::Run(const char* name, const char* finds, const std::function<void()>& check) {
  Current_ = {.Name = name, .Finds = finds};
  const auto began = steady_clock::now();
  try {
    check();
  } catch (const Ended& ended) {
    Current_.Verdict = ended.Verdict;
    Current_.Text = ended.Text;
  } catch (const CheckBench::CannotLook& problem) {
    Current_.Verdict = Verdict::Failed;
    Current_.Text = "its position could not be read: " + problem.Why;
  } catch (const Interrupted&) {
    Current_.Verdict = Verdict::Skipped;
    Current_.Text = "interrupted";
    if (Bench_.MayMove()) IsLost_ = true;
  }
  if (!Interruption_.Came() && Bench_.MayMove() && !Bench_.IsUnstoppable()) {
    try {
      StopHead();
    } catch (const Interrupted&) {
      IsLost_ = true;
    } catch (const CheckBench::CannotLook&) {
      // That is what the check failed by.
    }
  }
  // Anything else would only be waited for in vain. To stop it and to put it back is tried all the same.
  if (IsConnected_ && Current_.Verdict == Verdict::Failed && Bench_.IsSilent()) {
    IsConnected_ = false;
    WhyNot_ = "the camera does not answer any more";
  }
  Current_.Took = std::chrono::duration_cast<std::chrono::milliseconds>(steady_clock::now() - began);
  Current_.Looks = Bench_.TakeLooks();
  for (auto& exchange : Bench_.TakeExchanges()) Current_.Exchanges.push_back(std::move(exchange));
  Done_(Current_);
}

void Checks::NeedsConnection() const {
  if (!IsConnected_) Skip(WhyNot_);
}

void Checks::NeedsMoving() const {
  NeedsConnection();
  if (!Scope_.Moves) Skip(Scope_.WhyStill);
  if (!WhyStill_.empty()) Skip(WhyStill_);
  if (Interruption_.Came()) throw Interrupted();
  if (Bench_.MayMove() && Bench_.IsUnstoppable()) Skip("the camera did not take the stop before");
  if (!Start_) Skip("where it is could not be read");
}

// Without moving.

void Checks::Reached() {
  WhyNot_ = "the camera was not reached";
  if (Data() && Data()->MovesToConnect == ConnectMovement::OnEveryModel && !Scope_.Moves) {
    WhyNot_ = "connecting moves a camera of this make, and " + Scope_.WhyStill;
    Skip(WhyNot_);
  }
  const auto began = steady_clock::now();
  const auto became = Bench_.Connect(Options_);
  const double took = SecondsBetween(began, steady_clock::now());
  IsConnected_ = IsDone(became.Result);
  Heard_ = became.Exchanges;
  const bool answered = std::ranges::any_of(Heard_, HadAnswer);
  if (!IsConnected_ && !answered && Data()) Fail(became.Text + " (tried for " + Number(took) + " s)");
  WhyNot_ = "not connected";
  if (!IsConnected_) ConnectText_ = became.Text;
  if (!Data()) {
    if (!IsConnected_) Fail(became.Text.empty() ? "the driver answered False" : became.Text);
    Note("connecting", took, "s");
    Pass("the driver connects; what it exchanges with the camera is not seen from outside");
  }
  if (!answered && Data()->AsksToConnect)
    Fail("nothing answered" + std::string(Heard_.empty() ? "" : " the driver's requests"));
  if (!answered && Data()->Reads("Address")) {
    const bool stops = Scope_.Moves && Bench_.Driver().Continuous;
    const auto stop = [this]() -> std::optional<bool> {
      Bench_.Driver().Continuous->ContinuousMove(0, 0);
      return std::nullopt;
    };
    const auto asked = stops ? Bench_.Do(stop) : Bench_.AskForPage();
    if (stops) Heard_ = asked.Exchanges;
    const std::string what = stops ? "a stop" : "a request for its page";
    if (std::ranges::none_of(asked.Exchanges, HadAnswer)) {
      IsConnected_ = false;
      WhyNot_ = "the camera was not reached";
      Fail("connecting asks nothing, and " + what + " was not answered: " + asked.Text);
    }
    Pass("connecting asks nothing; " + what + " was answered");
  }
  if (!answered)
    Doubt("the line is open; such a line does not answer, so nothing tells whether a camera is there");
  const auto first = std::ranges::find_if(Heard_, HadAnswer);
  Note("connecting", took, "s");
  Note("first reply", std::chrono::duration<double, std::milli>(first->Took).count(), "ms");
  Pass(first->Where + (first->Link == ExchangeLink::TCP ? " takes the connection" : " answers"));
}

void Checks::Login() {
  if (const auto refused = std::ranges::find_if(Heard_, IsLoginRefusal); refused != Heard_.end()) {
    IsConnected_ = false;
    ConnectText_.clear();
    WhyNot_ = LoginDemand(*refused);
    Fail(WhyNot_);
  }
  const bool isHTTP = std::ranges::any_of(
      Heard_, [](const Exchange& e) { return e.Link == ExchangeLink::HTTP && HadAnswer(e); });
  if (!isHTTP) NeedsConnection();
  if (!Data()) Pass("the driver connects");
  if (isHTTP)
    Pass(Scope_.HasLogin ? "no request was refused for want of another login"
                         : "no request was refused for want of a login, and none was given: so anybody who "
                           "reaches the camera can ask it as much");
  if (Data()->Reads("Address") && Heard_.empty()) Doubt("nothing was asked yet");
  Doubt("such a link has no login: who reaches it can move the camera");
}

void Checks::Make() {
  if (!IsConnected_ && !ConnectText_.empty()) Fail(ConnectText_);
  NeedsConnection();
  if (!Data()) Doubt("what the camera replies is not seen from outside the driver");
  if (std::ranges::any_of(Heard_, HadAnswer) && std::ranges::all_of(Heard_, IsRefusal)) {
    IsConnected_ = false;
    WhyNot_ = "the camera is not known to be of this make";
    Fail("it refuses what any camera of this make knows: " + std::to_string(Heard_.back().StatusCode) + " " +
         Heard_.back().Reason);
  }
  std::vector<std::string> evidence;
  if (Device().Capabilities() != Data()->Capabilities || Device().PresetCount() != Data()->PresetCount)
    evidence.emplace_back("it told the driver what it can do");
  if (Data()->PositionRequests != 0) {
    const auto at = Bench_.Look();
    if (at.TellsHead || at.TellsZoom) {
      evidence.emplace_back("it tells its position in this make's form");
    } else if (evidence.empty() && !Bench_.Claims(CapabilityRelativeControl)) {
      IsConnected_ = false;
      WhyNot_ = "the camera is not known to be of this make";
      Fail("it was asked for its position, as this make tells it, and its reply holds none");
    }
  }
  if (Bench_.Driver().NamedPresets) {
    std::size_t count = 0;
    const auto asked = Bench_.Do([&]() -> std::optional<bool> {
      count = Bench_.Driver().NamedPresets->GetNamedPresets().size();
      return std::nullopt;
    });
    if (IsDone(asked.Result) && count > 0)
      evidence.push_back("it lists " + std::to_string(count) + " presets by name");
  }
  if (evidence.empty()) {
    if (Heard_.empty() || std::ranges::none_of(Heard_, &Exchange::ReplySize))
      Doubt("nothing that it replied would not come from another make as well");
    Doubt("this make's replies have no form that would tell it from another");
  }
  std::string text;
  for (const auto& one : evidence) text += (text.empty() ? "" : "; ") + one;
  Pass(text);
}

void Checks::Position() {
  NeedsConnection();
  if (Data() && Data()->PositionRequests == 0) {
    Start_ = Bench_.Look();
    Doubt("this make tells no position; the driver works it out from the moves that it makes");
  }
  const auto rest = AwaitRest({}, IdleTime);
  Start_ = rest.At;
  if (!rest.At.TellsHead)
    Doubt("this model tells no position; the driver works it out from the moves that it makes");
  Note("pan", rest.At.Pan, "degrees");
  Note("tilt", rest.At.Tilt, "degrees");
  if (rest.At.TellsZoom) Note("zoom", *rest.At.Zoom, "driver units");
  if (!rest.Rests) {
    WhyStill_ = "the camera moves by itself";
    Fail("nobody moves it from here, and it is not at rest after " +
         Number(std::chrono::duration<double>(IdleTime).count()) + " s");
  }
  const auto believe = [](const char* name, double value, const std::optional<ValueRange>& range,
                          double slack) {
    const auto least = range ? range->Least : -std::numeric_limits<double>::infinity();
    const auto greatest = range ? range->Greatest : std::numeric_limits<double>::infinity();
    if (!std::isfinite(value) || value < least - slack || value > greatest + slack)
      Fail(std::string(name) + " " + Number(value) + " is not between " + Number(least) + " and " +
           Number(greatest) + ", where this make's heads are");
  };
  const ValueRange anywhere{-WidestTurn, WidestTurn};
  const auto within = [&](const std::optional<ValueRange>& range) {
    auto whole = range.value_or(anywhere);
    if (range && range->Ends == Beyond::GoesAround) whole = anywhere;
    whole.Least = std::max(whole.Least, anywhere.Least);
    whole.Greatest = std::min(whole.Greatest, anywhere.Greatest);
    return whole;
  };
  if (Data() && Data()->MisreadsBelowHorizon && rest.At.Tilt > Horizon) {
    believe("pan", rest.At.Pan, within(Data()->PanRange), PositionStep());
    Pass("pan " + Number(rest.At.Pan) +
         "; the tilt is below the horizon, of which this make's driver reads no more");
  }
  believe("pan", rest.At.Pan, within(Data() ? Data()->PanRange : std::nullopt), PositionStep());
  believe("tilt", rest.At.Tilt, within(Data() ? Data()->TiltRange : std::nullopt), PositionStep());
  if (rest.At.TellsZoom && Data()) believe("zoom", *rest.At.Zoom, Data()->ZoomRange, ZoomStep());
  Pass(PlaceText(rest.At) +
       (Data() ? "" : ", as the driver answers; whether the camera told it is not seen from outside"));
}

// Moving.

/// Raises where the camera did not take it.
void Checks::Expect(const WishOutcome& outcome) {
  AnswersFalse_ = outcome.Answer == false;
  // A driver may know that the head is there already; where the camera tells its place, that decides.
  if (outcome.Result == WishResult::NotSent && Start_->TellsHead) return;
  if (!IsDone(outcome.Result))
    Fail(outcome.Text.empty() ? std::string(ptzd::Name(outcome.Result)) : outcome.Text);
}

/// Before anything moves: a camera that tells no place can only be put back by a preset, or by what was done
/// to it the other way around.
void Checks::SavePlace() {
  if (!Scope_.Moves || !Start_ || !WhyStill_.empty()) return;
  if (Scope_.Preset && Bench_.Claims(CapabilityPreset)) {
    const auto count = Device().PresetCount();
    if (*Scope_.Preset >= count)
      throw UsageError("--preset " + std::to_string(*Scope_.Preset) + ": this camera has " +
                       std::to_string(count) + " presets, counted from 0");
    try {
      Saved_ = Bench_.Do([&] { return std::optional(Device().PresetSave(*Scope_.Preset)); },
                         RuleOf(&DriverData::PresetSave));
      IsSaved_ = IsDone(Saved_.Result) && (Data() || Saved_.Answer != false);
    } catch (const Interrupted&) {
      return;
    }
    Bench_.TakeExchanges();  // they are told with the presets
  }
  const bool isRelative = Bench_.Claims(CapabilityRelativeControl) || Bench_.Claims(CapabilitySimpleControl);
  if (!Start_->TellsHead && (Scope_.PanLimits || Scope_.TiltLimits))
    WhyStill_ = "limits are set for this camera, and it does not tell where it is";
  else if (!Start_->TellsHead && !isRelative && !IsSaved_)
    WhyStill_ =
        "this camera takes places and tells none, so it could not be put back; with --preset its place is "
        "kept in one";
}

bool Checks::IsNear(const Sighting& at, const Sighting& to) const {
  const double step = Tolerance() * 1.001;  // positions are singles
  const bool misread = Data() && Data()->MisreadsBelowHorizon && (at.Tilt > Horizon || to.Tilt > Horizon);
  return std::fabs(PanWay(at.Pan, to.Pan)) <= step && (misread || std::fabs(at.Tilt - to.Tilt) <= step) &&
         (!at.TellsZoom || !to.TellsZoom || std::fabs(*at.Zoom - *to.Zoom) <= ZoomStep() * 1.001);
}

Checks::Rest Checks::AwaitRest(std::optional<Sighting> target, std::chrono::milliseconds time) {
  const auto began = steady_clock::now();
  Rest rest;
  int alike = 0;
  std::optional<steady_clock::time_point> changed;  ///< when it was first seen where it rests
  for (std::optional<Sighting> last;; last = rest.At) {
    if (last) Bench_.Pause();
    rest.At = Bench_.Look();
    const bool isAlike = last && IsAlike(*last, rest.At);
    alike = isAlike ? alike + 1 : 1;
    if (!isAlike) changed = rest.At.When;
    rest.Moved = rest.Moved || (last && !isAlike);
    const bool isNear = target && IsNear(rest.At, *target);
    if (isNear && !rest.Arrived) rest.ArrivedAfter = SecondsBetween(began, rest.At.When);
    rest.Arrived = isNear;
    const bool isPatient = rest.Moved || rest.Arrived || !target || rest.At.When >= began + Reluctance;
    if (alike >= SightingsAtRest && isPatient) {
      rest.Rests = true;
      break;
    }
    if (rest.At.When >= began + time) break;
  }
  rest.RestedAfter = SecondsBetween(began, *changed);
  if (rest.Rests) Bench_.Rested();
  return rest;
}

void Checks::StopHead() {
  const auto stopped = Bench_.Stop();
  if (stopped.Result == WishResult::Unsupported) {
    if (Start_ && Start_->TellsHead) AwaitRest({}, MoveTime);
    Bench_.Rested();
    return;
  }
  if (IsDone(stopped.Result)) Bench_.Rested();
}

void Checks::AwaitUnseen() {
  Bench_.Look();  // what the driver makes of it, for the track
  Bench_.Sleep(UnseenTime);
  Bench_.Rested();
  Bench_.Look();
}

void Checks::Step(HeadAxis axis, double angle) {
  const bool isPan = axis == HeadAxis::Pan;
  const auto direction =
      isPan ? (angle > 0 ? DirectionRight : DirectionLeft) : (angle > 0 ? DirectionUp : DirectionDown);
  const auto size = static_cast<float>(std::fabs(angle));
  HasMoved_ = true;
  (isPan ? PanAway_ : TiltAway_) += angle;
  Expect(Bench_.Move(
      DirectionText(direction) + " " + Number(size),
      [&] { return std::optional(Device().Move(direction, size)); }, RuleOf(&DriverData::Move)));
}

/// By a place, where the camera tells it and takes it; else by the opposite step.
void Checks::GoBack(HeadAxis axis, double angle, const Sighting& from) {
  if (!Start_->TellsHead || GoesBackBySteps()) return Step(axis, -angle);
  (axis == HeadAxis::Pan ? PanAway_ : TiltAway_) = 0;
  Expect(Bench_.Move(
      "to pan " + Number(from.Pan) + ", tilt " + Number(from.Tilt),
      [&] { return std::optional(Device().MoveTo(from.Pan, from.Tilt)); }, RuleOf(&DriverData::MoveTo)));
}

bool Checks::Fits(HeadAxis axis, double target) const {
  const bool isPan = axis == HeadAxis::Pan;
  const auto& limits = isPan ? Scope_.PanLimits : Scope_.TiltLimits;
  if (limits && (target < limits->Least || target > limits->Greatest)) return false;
  const auto& range = Data() ? (isPan ? Data()->PanRange : Data()->TiltRange) : std::optional<ValueRange>();
  return !range || range->Ends == Beyond::GoesAround || (target >= range->Least && target <= range->Greatest);
}

double Checks::Fitting(HeadAxis axis, double at, double angle) const {
  if (Fits(axis, at + angle)) return angle;
  if (Fits(axis, at - angle)) return -angle;
  if (axis == HeadAxis::Pan ? Scope_.PanLimits : Scope_.TiltLimits)
    Skip("the limits set for this camera leave no room for " + Degrees(angle));
  return angle;
}

void Checks::Turn(HeadAxis axis) {
  NeedsMoving();
  const bool isPan = axis == HeadAxis::Pan;
  const char* name = isPan ? "pan" : "tilt";
  if (!Bench_.Claims(isPan ? CapabilityPan : CapabilityTilt) && Data() == nullptr)
    Skip(std::string("the driver claims no ") + name);
  if (!Bench_.Claims(isPan ? CapabilityPan : CapabilityTilt)) Skip(std::string("this camera has no ") + name);
  if (DoesNothing(&DriverData::Move)) Skip("this make's driver does nothing for Move");
  const auto from = Bench_.Look();
  double angle = Fitting(axis, isPan ? from.Pan : from.Tilt, StepAngle());

  if (!Start_->TellsHead) {
    Step(axis, angle);
    AwaitUnseen();
    GoBack(axis, angle, from);
    AwaitUnseen();
    Doubt("the camera took a step of " + Degrees(std::fabs(angle)) +
          " and one back, and does not tell where it is");
  }
  if (!isPan && Data() && Data()->MisreadsBelowHorizon && from.Tilt > Horizon) {
    Step(axis, angle);
    AwaitRest({}, MoveTime);
    GoBack(axis, angle, from);
    AwaitRest({}, MoveTime);
    Doubt(
        "the camera took a step and one back; of a tilt below the horizon this make's driver reads no more");
  }

  // A head may stand at its end, which few makes tell.
  for (const bool isSecond : {false, true}) {
    auto target = from;
    (isPan ? target.Pan : target.Tilt) += static_cast<float>(angle);
    Step(axis, angle);
    const auto out = AwaitRest(target, MoveTime);
    if (!out.Rests) Fail("the head is not at rest after " + Number(out.RestedAfter) + " s");
    const double way = isPan ? PanWay(from.Pan, out.At.Pan) : out.At.Tilt - from.Tilt;
    if (!out.Arrived && !Data() && IsAlike(out.At, from) && !AnswersFalse_)
      Doubt("the driver's answers do not change: it does not ask, and does not count along");
    if (!out.Arrived && !isSecond && std::fabs(way) <= PositionStep() * 1.001) {
      (isPan ? PanAway_ : TiltAway_) = 0;
      if (!Fits(axis, (isPan ? from.Pan : from.Tilt) - angle))
        Fail("the head did not move: it rests at " + PlaceText(out.At));
      angle = -angle;
      continue;
    }
    if (!out.Arrived && way * angle < 0 && std::fabs(way) > PositionStep())
      Fail("it was sent by " + Degrees(angle) + " and moved by " + Degrees(way) +
           ": the axis is turned around");
    if (!out.Arrived && std::fabs(way) <= PositionStep() * 1.001)
      Fail("the head did not move, in either direction: it rests at " + PlaceText(out.At));
    if (!out.Arrived) Fail("the head rests at " + PlaceText(out.At) + ", not at " + PlaceText(target));
    GoBack(axis, angle, from);
    const auto back = AwaitRest(from, MoveTime);
    if (!back.Arrived)
      Fail("on its way back the head " + std::string(back.Rests ? "rests" : "is still moving") + " at " +
           PlaceText(back.At) + ", not at " + PlaceText(from));
    Note("step", angle, "degrees");
    Note("moved", way, "degrees");
    Note("time", out.ArrivedAfter, "s");
    Note("time back", back.ArrivedAfter, "s");
    Note("off when back", isPan ? PanWay(from.Pan, back.At.Pan) : back.At.Tilt - from.Tilt, "degrees");
    Note("tolerance", Tolerance(), "degrees");
    Pass("the head went " + Number(std::fabs(way)) + " of " + Degrees(std::fabs(angle)) + ", and back" +
         (isSecond ? "; the other way it did not move, so it may stand at its end" : "") +
         (Data() ? "" : ", by the driver's own answers"));
  }
}

void Checks::ZoomBy(double amount) {
  const auto direction = amount > 0 ? ZoomIn : ZoomOut;
  const auto size = static_cast<float>(std::fabs(amount));
  HasMoved_ = HasZoomed_ = true;
  ZoomAway_ += amount;
  const std::string what = std::string("zoom ") + (amount > 0 ? "in " : "out ");
  if (Bench_.Driver().Device2 && size != ZoomStepAmount)
    return Expect(Bench_.Move(what + Number(size), [&]() -> std::optional<bool> {
      Bench_.Driver().Device2->Zoom(direction, size);
      return std::nullopt;
    }));
  Expect(Bench_.Move(
      what, [&] { return std::optional(Device().Zoom(direction)); }, RuleOf(&DriverData::Zoom)));
}

void Checks::Zoom() {
  NeedsMoving();
  if (!Bench_.Claims(CapabilityZoom)) Skip(Data() ? "this camera has no zoom" : "the driver claims no zoom");
  if (DoesNothing(&DriverData::Zoom)) Skip("this make's driver does nothing for Zoom");
  if (!Start_->TellsZoom) {
    if (Bench_.Claims(CapabilityFullZoom) && !Bench_.Claims(CapabilityRelativeControl) && !IsSaved_)
      Skip(
          "this camera takes a zoom and tells none, so it could not be put back; with --preset its place is "
          "kept in one");
    ZoomBy(ZoomStepAmount);
    AwaitUnseen();
    ZoomBy(-ZoomStepAmount);
    AwaitUnseen();
    Doubt("the camera took a step in and one out, and does not tell its zoom");
  }
  const auto from = Bench_.Look();
  const double amount = Bench_.Driver().Device2 ? 2 * ZoomStep() : ZoomStepAmount;
  const auto fits = [&](double zoom) {
    const auto& limits = Scope_.ZoomLimits;
    return !limits || (zoom >= limits->Least && zoom <= limits->Greatest);
  };
  for (const double sign : {1.0, -1.0}) {
    if (!fits(*from.Zoom + sign * amount)) continue;
    ZoomBy(sign * amount);
    auto target = from;
    target.Zoom = *from.Zoom + static_cast<float>(sign * amount);
    const auto out = AwaitRest(target, MoveTime);
    const double way = *out.At.Zoom - *from.Zoom;
    if (!Data() && way == 0) Doubt("the driver's answers do not change");
    if (way * sign <= 0 && sign > 0) {
      if (way < -ZoomStep()) Fail("it was sent in and went out, by " + Number(-way));
      ZoomAway_ = 0;
      continue;  // it may be at its end
    }
    if (way * sign <= 0)
      Fail("the zoom did not move, neither in nor out: it rests at " + Number(*out.At.Zoom));
    const auto was = from.Zoom.value();
    ZoomAway_ = 0;
    if (Bench_.Driver().Device2 && Bench_.Claims(CapabilityFullZoom))
      Expect(Bench_.Move("zoom to " + Number(was), [&]() -> std::optional<bool> {
        Bench_.Driver().Device2->ZoomTo(was);
        return std::nullopt;
      }));
    else
      ZoomBy(-sign * amount);
    const auto back = AwaitRest(from, MoveTime);
    if (!back.Arrived)
      Fail("on its way back the zoom rests at " + Number(*back.At.Zoom) + ", not at " + Number(was));
    Note("step", sign * amount, "driver units");
    Note("moved", way, "driver units");
    Note("time", out.RestedAfter, "s");
    Note("off when back", *back.At.Zoom - was, "driver units");
    Note("tolerance", ZoomStep(), "driver units");
    Pass("the zoom went " + std::string(sign > 0 ? "in" : "out") + " by " + Number(std::fabs(way)) +
         ", and back" + (sign > 0 ? "" : "; further in it did not go, so it may stand at its end"));
  }
  Skip("the limits set for this camera leave no room for it, or it is at its end");
}

void Checks::Presets() {
  NeedsMoving();
  if (!Bench_.Claims(CapabilityPreset))
    Skip(Data() ? "this camera has no numbered presets" : "the driver claims no numbered presets");
  if (DoesNothing(&DriverData::PresetGoto)) Skip("this make's driver does nothing for PresetGoto");
  if (!Scope_.Preset) Skip("no preset number was given to be overwritten (--preset)");
  Current_.Exchanges = Saved_.Exchanges;
  if (!IsSaved_) Expect(Saved_);
  const auto number = *Scope_.Preset;
  const double angle = Fitting(HeadAxis::Pan, Start_->Pan, StepAngle());
  const auto recall = [&] {
    PanAway_ = TiltAway_ = ZoomAway_ = 0;
    Expect(Bench_.Move(
        "preset " + std::to_string(number), [&] { return std::optional(Device().PresetGoto(number)); },
        RuleOf(&DriverData::PresetGoto)));
  };
  Step(HeadAxis::Pan, angle);
  if (!Start_->TellsHead) {
    AwaitUnseen();
    recall();
    AwaitUnseen();
    Doubt("the camera took the saving and the recall, and does not tell where it is");
  }
  const auto away = AwaitRest({}, MoveTime);
  if (IsNear(away.At, *Start_))
    Skip("the head does not move away from the preset, so nothing would show that it is found");
  recall();
  const auto back = AwaitRest(*Start_, MoveTime);
  if (!back.Arrived && !Data() && !AnswersFalse_) Doubt("the driver does not answer where a preset leads");
  if (!back.Arrived)
    Fail("preset " + std::to_string(number) + " was saved at " + PlaceText(*Start_) + " and leads to " +
         PlaceText(back.At));
  Note("number", number, "");
  Note("time back", back.ArrivedAfter, "s");
  Note("off when back", PanWay(Start_->Pan, back.At.Pan), "degrees");
  Pass("saved as preset " + std::to_string(number) + ", left and found again");
}

/// Whether the head was seen moving.
bool Checks::DriveUntilSeen(double speed, const Sighting& from) {
  HasMoved_ = true;
  Expect(Bench_.Move("drive " + std::string(speed > 0 ? "right" : "left"), [&]() -> std::optional<bool> {
    Bench_.Driver().Continuous->ContinuousMove(static_cast<float>(speed), 0);
    return std::nullopt;
  }));
  const auto began = steady_clock::now();
  if (!Start_->TellsHead) {
    Bench_.Sleep(DriveTime);
    Bench_.Look();
    return false;
  }
  const double seen = std::max(2 * PositionStep(), 2.0);
  while (true) {
    Bench_.Pause();
    const auto at = Bench_.Look();
    const double way = PanWay(from.Pan, at.Pan);
    if (std::fabs(way) >= seen && at.When >= began + DriveTime / 2) {
      if (way * speed < 0)
        Fail("driven to the " + std::string(speed > 0 ? "right" : "left") + " it went the other way");
      return true;
    }
    if (at.When >= began + LongestDrive || !Fits(HeadAxis::Pan, at.Pan)) return false;
  }
}

void Checks::Continuous() {
  NeedsMoving();
  if (!Bench_.Claims(CapabilityContinuousMove) || !Bench_.Driver().Continuous)
    Skip(Data() ? "this camera has no continuous motion" : "the driver claims no continuous motion");
  double speed = UsualSpeed;
  if (Data() && Data()->PanSpeed) {
    const auto& range = *Data()->PanSpeed;
    speed = range.Ends == Beyond::SignOnly ? 1 : std::min(UsualSpeed, range.Greatest / 2);
  }
  Note("speed", speed, "driver units");
  if (!Start_->TellsHead) {
    for (const double way : {speed, -speed}) {
      DriveUntilSeen(way, *Start_);
      Expect(Bench_.Stop());
      Bench_.Rested();
    }
    Doubt(
        "the camera took the motion, its stop and the same back; it does not tell where it is or whether it "
        "rests");
  }
  auto from = Bench_.Look();
  if (Fitting(HeadAxis::Pan, from.Pan, DriveRoom * StepAngle()) < 0) speed = -speed;
  bool seen = DriveUntilSeen(speed, from);
  const auto stopAndWatch = [&] {
    const auto sent = steady_clock::now();
    const auto stopped = Bench_.Stop();
    if (!IsDone(stopped.Result)) Fail("the camera does not take a stop: " + stopped.Text);
    const auto taken = SecondsBetween(sent, steady_clock::now());
    Note("stop taken after", taken * 1000, "ms");
    const auto rest = AwaitRest({}, StopRestTime);
    if (!rest.Rests)
      Fail("the head still moves " + Number(SecondsBetween(sent, steady_clock::now())) +
           " s after it took a stop");
    Note("at rest after", 1000 * (taken + rest.RestedAfter), "ms");
    return rest;
  };
  auto rest = stopAndWatch();
  if (!seen && Data() &&
      Fits(HeadAxis::Pan,
           from.Pan - std::copysign(DriveRoom * StepAngle(), speed))) {  // it may have stood at its end
    Current_.Figures.resize(1);
    from = Bench_.Look();
    speed = -speed;
    seen = DriveUntilSeen(speed, from);
    rest = stopAndWatch();
  }
  if (!seen && !Data()) Doubt("the driver took motion and stop; its answers did not change meanwhile");
  if (!seen) Fail("the head did not move, in either direction");
  Note("moved", PanWay(from.Pan, rest.At.Pan), "degrees");
  Pass("the head moved until it was stopped, and rests at " + PlaceText(rest.At));
}

void Checks::Refusals() {
  NeedsMoving();
  if (!Data()) Skip("a driver of another maker promises no refusals");
  std::vector<std::string> kept;
  const auto& data = *Data();
  const auto sendsNothing = [&](const std::string& what, const CheckBench::Member& member) {
    auto became = Bench_.Do(member);
    if (!became.Exchanges.empty()) {
      HasMoved_ = true;
      Bench_.Stop();
      Fail(what + " was sent, and is to be refused");
    }
    kept.push_back(what);
    return became;
  };
  const auto overflows = [&](const std::string& name, const std::optional<ValueRange>& range,
                             const std::function<void(float)>& member) {
    if (!range || range->Ends != Beyond::Overflows || !std::isfinite(range->Greatest)) return;
    const auto value = static_cast<float>(2 * range->Greatest + 1);
    const auto what = name + " " + Text(value);
    const auto became = sendsNothing(what, [&]() -> std::optional<bool> {
      member(value);
      return std::nullopt;
    });
    constexpr int overflow = 6;
    if (became.ErrorNumber != overflow)
      Fail(what + " is to raise 6 (overflow), and raised " + std::to_string(became.ErrorNumber));
  };
  if (const auto& device = Bench_.Driver().Device2)
    overflows("ZoomTo", data.ZoomRange, [&](float zoom) { device->ZoomTo(zoom); });
  if (const auto& device = Bench_.Driver().Continuous) {
    overflows("ContinuousMove pan", data.PanSpeed, [&](float speed) { device->ContinuousMove(speed, 0); });
    overflows("ContinuousMove tilt", data.TiltSpeed, [&](float speed) { device->ContinuousMove(0, speed); });
    overflows("ContinuousZoom", data.ZoomSpeed, [&](float speed) { device->ContinuousZoom(speed); });
  }
  const struct {
    const char* Name;
    MemberRule DriverData::*Rule;
    std::function<bool(PTZDevice&)> Member;
  } members[] = {
      {"Move", &DriverData::Move, [](PTZDevice& d) { return d.Move(DirectionRight, 1); }},
      {"MoveBoth", &DriverData::MoveBoth, [](PTZDevice& d) { return d.MoveBoth(1, 0); }},
      {"MoveTo", &DriverData::MoveTo, [](PTZDevice& d) { return d.MoveTo(d.Pan(), d.Tilt()); }},
      {"Zoom", &DriverData::Zoom, [](PTZDevice& d) { return d.Zoom(ZoomIn); }},
      {"Iris", &DriverData::Iris, [](PTZDevice& d) { return d.Iris(IrisAuto); }},
      {"Focus", &DriverData::Focus, [](PTZDevice& d) { return d.Focus(FocusAuto); }},
      {"PresetGoto", &DriverData::PresetGoto, [](PTZDevice& d) { return d.PresetGoto(0); }},
      {"Home", &DriverData::Home, [](PTZDevice& d) { return d.Home(); }},
  };
  for (const auto& member : members) {
    if (data.*member.Rule != MemberRule::Nothing) continue;
    const auto became = sendsNothing(member.Name, [&] { return std::optional(member.Member(Device())); });
    if (became.Answer == true) Fail(std::string(member.Name) + " answers True, and does nothing");
  }
  if (kept.empty()) Skip("this driver's data promise no refusals");
  std::string text;
  for (const auto& one : kept) text += (text.empty() ? "" : ", ") + one;
  Note("refusals", static_cast<double>(kept.size()), "");
  Pass("nothing was sent for " + text);
}

void Checks::MoveToStart() {
  const auto& start = *Start_;
  const bool isMisread = Data() && Data()->MisreadsBelowHorizon;
  const auto at = Bench_.Look();
  if (GoesBackBySteps()) {
    const auto pan = static_cast<float>(PanWay(at.Pan, start.Pan));
    const auto tilt = isMisread && (at.Tilt > Horizon || start.Tilt > Horizon)
                          ? static_cast<float>(-TiltAway_)
                          : start.Tilt - at.Tilt;
    if (pan != 0)
      Expect(Bench_.Move(
          "back by pan " + Number(pan),
          [&] {
            return std::optional(Device().Move(pan > 0 ? DirectionRight : DirectionLeft, std::fabs(pan)));
          },
          RuleOf(&DriverData::Move)));
    if (pan != 0) AwaitRest({}, MoveTime);
    if (tilt != 0)
      Expect(Bench_.Move(
          "back by tilt " + Number(tilt),
          [&] {
            return std::optional(Device().Move(tilt > 0 ? DirectionUp : DirectionDown, std::fabs(tilt)));
          },
          RuleOf(&DriverData::Move)));
  } else {
    Expect(Bench_.Move(
        "to pan " + Number(start.Pan) + ", tilt " + Number(start.Tilt),
        [&] { return std::optional(Device().MoveTo(start.Pan, start.Tilt)); }, RuleOf(&DriverData::MoveTo)));
  }
  if (!HasZoomed_ || !start.TellsZoom || !Bench_.Driver().Device2) return;
  const auto zoom = *start.Zoom;
  if (std::fabs(*Bench_.Look().Zoom - zoom) <= ZoomStep() / 2) return;
  AwaitRest({}, MoveTime);
  Expect(Bench_.Move("zoom to " + Number(zoom), [&]() -> std::optional<bool> {
    Bench_.Driver().Device2->ZoomTo(zoom);
    return std::nullopt;
  }));
}

void Checks::PutBack() {
  if (!HasMoved_) Skip("nothing was moved");
  const auto time =
      Interruption_.Came() ? std::chrono::milliseconds(PutBackTime) : std::chrono::milliseconds(MoveTime);
  if (Bench_.MayMove()) {
    const auto stopped = Bench_.Stop();
    if (!IsDone(stopped.Result) && stopped.Result != WishResult::Unsupported)
      Fail("the camera may still be moving: it does not take a stop: " + stopped.Text);
    Bench_.Rested();
  }
  if (Start_->TellsHead) {
    AwaitRest({}, time);
    std::string refusal;
    try {
      MoveToStart();
    } catch (const Ended& ended) {
      refusal = ended.Text + "; ";
    }
    const auto back = AwaitRest(*Start_, time);
    if (!back.Arrived && !Data())
      Doubt("the driver took the way back; its answers do not show that the camera is there");
    if (!back.Arrived)
      Fail(refusal + "the camera " + std::string(back.Rests ? "rests" : "is") + " at " + PlaceText(back.At) +
           ", and was at " + PlaceText(*Start_));
    Note("off pan", PanWay(Start_->Pan, back.At.Pan), "degrees");
    Note("off tilt", back.At.Tilt - Start_->Tilt, "degrees");
    if (back.At.TellsZoom && Start_->TellsZoom)
      Note("off zoom", *back.At.Zoom - *Start_->Zoom, "driver units");
    Pass("at rest at " + PlaceText(back.At));
  }
  if (IsSaved_) {
    const auto number = *Scope_.Preset;
    Expect(Bench_.Move(
        "preset " + std::to_string(number), [&] { return std::optional(Device().PresetGoto(number)); },
        RuleOf(&DriverData::PresetGoto)));
    AwaitUnseen();
    Doubt("sent to preset " + std::to_string(number) +
          ", which was saved where it stood; the camera does not tell where it is");
  }
  if (IsLost_)
    Doubt("a motion was cut short that nobody can work out, so the camera was stopped where it is");
  if (std::fabs(PanAway_) > 0) Step(HeadAxis::Pan, -PanAway_);
  if (std::fabs(TiltAway_) > 0) Step(HeadAxis::Tilt, -TiltAway_);
  if (std::fabs(ZoomAway_) > 0) ZoomBy(-ZoomAway_);
  AwaitUnseen();
  Doubt("every step was taken back; the camera does not tell where it is");
}

}  // namespace

const char* Name(Verdict verdict) {
  switch (verdict) {
    case Verdict::Passed:
      return "passed";
    case Verdict::Failed:
      return "failed";
    case Verdict::NotProvable:
      return "not provable";
    case Verdict::Skipped:
      return "skipped";
  }
  return "";
}

void CarryOutChecks(CheckBench& bench, const Bytes& options, const CheckScope& scope,
                    const Interruption& interruption, const std::function<void(const CheckResult&)>& done) {
  Checks(bench, options, scope, interruption, done).CarryOut();
}

}  // namespace ptzctl
