#include "Camera.h"

#include <algorithm>
#include <utility>

#include <ptzd/PTZContinuousControl.h>

#include "Words.h"
#include "common/Nearest.h"

namespace ptzctl {

namespace {

using namespace ptzd;

/// How often it is looked whether ptzctl is to end while it waits for a camera.
constexpr std::chrono::milliseconds Look(20);
constexpr char MayStillMove[] = "the camera may still be moving";

CameraSettings Told(CameraSettings settings, const std::shared_ptr<ExchangeLog>& log) {
  settings.Platform.Exchanges = log;
  return settings;
}

Result ResultOf(const WishOutcome& became) {
  switch (became.Result) {
    case WishResult::Arrived:
    case WishResult::Sent:
      return Result::Done;
    case WishResult::Stalled:
    case WishResult::StillMoving:
      return Result::NotArrived;
    case WishResult::OutOfRange:
      return Result::Usage;
    case WishResult::Failed: {
      const auto failed = [](const Exchange& exchange) { return exchange.ErrorNumber != 0; };
      const bool byRequest = became.ErrorNumber == 0 || std::ranges::any_of(became.Exchanges, failed);
      return byRequest ? Result::Refused : Result::Error;
    }
    default:
      return Result::Refused;
  }
}

/// Nothing of it can have reached the camera, or the camera did not take it.
bool LeavesAlone(const WishOutcome& became) {
  switch (became.Result) {
    case WishResult::OutOfRange:
    case WishResult::NotSent:
    case WishResult::Unsupported:
    case WishResult::Refused:
    case WishResult::LoginRefused:
      return true;
    default:
      return !became.Exchanges.empty() && std::ranges::none_of(became.Exchanges, &Exchange::HadConnection);
  }
}

}  // namespace

/// An operation while it is done.
class Camera::Telling {
 public:
  Telling(Camera& camera, const char* operation) : Camera_(camera) {
    Told.Operation = operation;
    Camera_.Log_->Take();
  }

  void Fail(Result result, std::string text) {
    Told.Result = result;
    Told.Text = std::move(text);
  }
  void Judge(const WishOutcome& became) {
    Told.Became = became.Result;
    Told.Answer = became.Answer;
    Told.Target = became.Target;
    if (became.ErrorNumber != 0) {
      Told.ErrorNumber = became.ErrorNumber;
      Told.ErrorText = became.ErrorText;
    }
    if (const auto result = ResultOf(became); result != Result::Done)
      Fail(result, became.Text.empty() ? std::string(Name(became.Result)) : became.Text);
    if (became.Result == WishResult::NotSent && !Camera_.State().Connected)
      Told.Text += ": the driver is not connected";
  }
  bool NeedsConnection() {
    const bool connected = Camera_.State().Connected;
    if (!connected) Fail(Result::Refused, "the driver is not connected");
    return connected;
  }
  /// Notes where the camera does not claim what it is asked for.
  void NeedsCapability(std::int32_t flag) {
    const auto state = Camera_.State();
    if (state.Connected && (state.Capabilities & flag) != flag)
      Told.Notes.push_back("the camera does not claim: " +
                           CapabilityWord(static_cast<ptzd::Capabilities>(flag)));
  }
  Outcome Done() {
    if (Camera_.Interruption_.Came()) {
      if (Camera_.MayMove() && !Told.Stop) Camera_.BringToRest(Told);
      const auto& stop = Told.Stop;
      Fail(Result::Interrupted,
           std::string("interrupted") + (!stop                  ? ""
                                         : IsDone(stop->Result) ? "; the camera was stopped"
                                                                : "; " + stop->Text));
      Told.Signal = Camera_.Interruption_.Signal();
    }
    Told.Took = std::chrono::steady_clock::now() - Began_;
    Told.Exchanges = Camera_.Log_->Take();
    return std::move(Told);
  }

  Outcome Told;

 private:
  Camera& Camera_;
  const std::chrono::steady_clock::time_point Began_ = std::chrono::steady_clock::now();
};

Camera::Camera(CameraSettings settings, std::string address, const Interruption& interruption,
               std::shared_ptr<ExchangeLog> log)
    : Address_(std::move(address)),
      Interruption_(interruption),
      Log_(std::move(log)),
      Settings_(ptzctl::Told(std::move(settings), Log_)),
      Control_(Settings_),
      Example_(Driver().Create({})) {}

Outcome Camera::Connect() {
  Telling telling(*this, "connect");
  auto& told = telling.Told;
  told.Text = "Connected to " + DriverName() + (Address_.empty() ? "" : " at " + Address_);
  const auto became = Await(Control_.Connect().Done);
  telling.Judge(became);
  if (told.Result != Result::Done) {
    told.Result = Result::NoConnection;
    return telling.Done();
  }
  if (MovesToConnect())
    told.Notes.emplace_back("connecting has moved the camera: such a head is sent home to know where it is");
  if (State().Link == LinkHealth::Untried)
    told.Notes.emplace_back(Data().Reads("Address")
                                ? "connecting asks nothing; only a move tells whether the camera is there"
                                : "such a line does not answer: nothing tells whether a camera is there");
  return telling.Done();
}

Outcome Camera::Disconnect() {
  Telling telling(*this, "disconnect");
  telling.Told.Text = "Disconnected";
  telling.Judge(Await(Control_.Disconnect().Done));
  if (telling.Told.Result == Result::Done) Drive_.reset();
  return telling.Done();
}

Outcome Camera::CarryOut(Deed deed) {
  Telling telling(*this, deed.Operation);
  auto& told = telling.Told;
  telling.NeedsCapability(deed.Needs);
  const bool moves = deed.Task.Moves, waits = deed.Task.RestTime.has_value();
  if (moves && State().Connected) told.Before = Position();
  deed.Task.Connected = false;  // that was an operation of its own
  const auto before = Moving_.load();
  const auto became = Await(Begin(moves, [&] { return Control_.Perform(deed.Task); }).Done);
  telling.Judge(became);
  if (moves && LeavesAlone(became)) Moving_ = before;
  if (moves) Drive_.reset();  // it was ended by this
  const auto after = State();
  const bool rests = after.Motion == CameraMotion::AtRest;
  if (moves && rests && !Interruption_.Came()) Moving_ = Moving::No;
  const auto& by = deed.Task.By;
  if (Site_.HasLimits() && (by.Pan || by.Tilt || by.Zoom) && Data().PositionRequests == 0 &&
      (!told.Before || told.Before->Kind == PositionKind::Unknown))
    told.Notes.emplace_back("nothing tells where this camera is, so its limits may not hold");
  const auto position = Position();
  // Of a head on its way to its target no more is known than that, unless it tells itself.
  if (moves && IsDone(became.Result) && (!told.Target || position.Kind == PositionKind::Read))
    told.Position = position;

  if (told.Result == Result::Done) {
    const bool isArrived = became.Result == WishResult::Arrived;
    const bool sentNothing = !deed.Task.Sends && became.Exchanges.empty();
    if (!deed.What.empty())
      told.Text = deed.What + (isArrived ? ": arrived" : sentNothing ? ": done" : ": sent");
    if (waits && !isArrived && rests) told.Text += ", and at rest by its own stop";
    if (waits && !isArrived && !rests)
      telling.Fail(Result::NotArrived, "sent, but this camera cannot tell when it is at rest");
  } else if (moves && became.Result == WishResult::NotReached && !LeavesAlone(became) &&
             Has<PTZContinuousControl>()) {
    BringToRest(told);
  }
  return telling.Done();
}

Outcome Camera::Drive(const Deed& deed, const DriveSpeeds& speeds,
                      std::optional<std::chrono::milliseconds> time, bool leave) {
  Telling telling(*this, deed.Operation);
  auto& told = telling.Told;
  if (!telling.NeedsConnection()) return telling.Done();
  telling.NeedsCapability(deed.Needs);
  const auto before = Moving_.load();
  // Without a lease: what owns the motion is this process, whose end stops it on every way there is. A thread
  // of its own waits for signals, so a lease would guard against nothing more.
  const auto wish = Begin(true, [&] {
    auto drive = Control_.DriveAt(speeds, std::chrono::milliseconds(0));
    if (leave) drive.Leave();
    auto itsWish = drive.Wish;
    Drive_ = std::move(drive);
    return itsWish;
  });
  const auto became = Await(wish.Sent);
  telling.Judge(became);
  const bool isOver =
      !Interruption_.Came() && wish.Done.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  if (!IsDone(became.Result)) {
    Drive_.reset();
    if (LeavesAlone(became))
      Moving_ = before;
    else
      BringToRest(told);
    return telling.Done();
  }
  if (isOver || leave) {  // over at once: of speed 0
    Drive_.reset();
    Moving_ = Moving::No;
    told.Text = deed.What + (leave ? ": sent; it goes on until somebody stops it" : ": sent");
    return telling.Done();
  }
  told.Text = deed.What + ": sent; it is stopped when ptzctl ends";
  if (!time) return telling.Done();
  told.Text = deed.What + " for " + Seconds(*time);
  const auto until = std::chrono::steady_clock::now() + *time;
  const auto isEnded = [&] {
    return wish.Done.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  };
  while (!isEnded() && std::chrono::steady_clock::now() < until && !Interruption_.Came())
    wish.Done.wait_for(std::min<std::chrono::nanoseconds>(Look, until - std::chrono::steady_clock::now()));
  if (!Interruption_.Came() && isEnded()) {  // at a limit of the site, for one
    telling.Judge(wish.Done.get());
    Drive_.reset();
    return telling.Done();
  }
  if (!Interruption_.Came()) {
    BringToRest(told);
    if (told.Result == Result::Done) told.Text += ", then stopped";
  }
  return telling.Done();
}

Outcome Camera::Stop() {
  Telling telling(*this, "stop");
  telling.Told.Text = "Stopped";
  Moving_ = Moving::Maybe;  // so that nothing keeps it from being tried
  BringToRest(telling.Told);
  telling.Told.Became = telling.Told.Stop->Result;
  return telling.Done();
}

std::optional<Outcome> Camera::StopAgain() {
  Telling telling(*this, "stop");
  auto& told = telling.Told;
  told.Text = "Stopped";
  const auto done = Control_.Stop().Done;
  while (done.wait_for(Look) != std::future_status::ready)
    if (State().StopTries > 1) return std::nullopt;
  if (!IsDone(done.get().Result)) return std::nullopt;
  {
    const std::lock_guard lock(Mutex_);
    Stopping_ = done;
  }
  BringToRest(told);
  told.Became = told.Stop->Result;
  return telling.Done();
}

void Camera::BringToRest(Outcome& outcome) {
  const auto stopped = AwaitStop();
  outcome.Stop = stopped;
  Drive_.reset();
  Moving_ = Moving::No;
  if (IsDone(stopped.Result)) {
    try {
      if (Data().PositionRequests != 0) Await(Control_.ReadPosition().Done);
    } catch (const Interrupted&) {
      // Where it stopped is not wanted any more.
    }
    outcome.Position = Position();
    return;
  }
  if (outcome.Result == Result::Done) {
    outcome.Result = ResultOf(stopped);
    outcome.Text = stopped.Text;
  }
  if (stopped.Result == WishResult::Unsupported) return;
  Moving_ = Moving::Unstopped;
  outcome.Notes.emplace_back(MayStillMove);
}

Outcome Camera::ReadPosition() {
  Telling telling(*this, "position");
  auto& told = telling.Told;
  if (!telling.NeedsConnection()) return telling.Done();
  const auto reading = Control_.ReadPosition().Done;
  while (reading.wait_for(Look) != std::future_status::ready)
    if (Interruption_.Came()) throw Interrupted();  // it comes behind the stop, and nobody wants it any more
  telling.Judge(reading.get());
  if (told.Result != Result::Done) return telling.Done();
  told.Position = Position();
  if (told.Position->Kind == PositionKind::Unknown)
    telling.Fail(Result::Refused, "this camera cannot tell where it is, and nobody can work it out");
  return telling.Done();
}

Outcome Camera::SetPosition(float pan, float tilt, std::string what) {
  Telling telling(*this, "set-position");
  auto& told = telling.Told;
  if (!telling.NeedsConnection()) return telling.Done();
  told.Before = Position();
  told.Text = std::move(what);
  telling.Judge(Await(Control_.SetPosition(pan, tilt).Done));
  KnowsPlace_ = KnowsPlace_ || Data().SetPanTilt != PlaceRule::Ignored;
  told.Position = Position();
  return telling.Done();
}

std::optional<Outcome> Camera::AwaitDrive() {
  while (Drive_) {
    const auto done = Drive_->Wish.Done;
    if (Interruption_.Came()) return std::nullopt;
    if (done.wait_for(Look) != std::future_status::ready || Interruption_.Came()) continue;
    Telling telling(*this, "continuous");
    telling.Judge(done.get());
    Drive_.reset();
    return telling.Done();
  }
  return std::nullopt;
}

void Camera::StopNow() {
  std::shared_future<WishOutcome> done;
  {
    const std::lock_guard lock(Mutex_);
    if (!MayMove()) return;
    Stopping_ = done = Control_.Stop().Done;
  }
  done.wait();
}

bool Camera::MovesToConnect() const {
  if (Data().MovesToConnect != ConnectMovement::OnSomeModels)
    return Data().MovesToConnect == ConnectMovement::OnEveryModel;
  return (State().Capabilities & CapabilityRelativeControl) != 0;
}

CameraPosition Camera::Position() const {
  const auto state = State();
  auto position = state.Position;
  if (state.Link == LinkHealth::Untried && !KnowsPlace_) position.Kind = PositionKind::Unknown;
  return position;
}

std::int32_t Camera::PresetNamed(const std::string& name) const {
  if (const auto found = Settings_.Presets.find(name); found != Settings_.Presets.end()) return found->second;
  std::vector<std::string> names;
  for (const auto& [each, number] : Settings_.Presets) names.push_back(each);
  throw UsageError("preset: \"" + Printable(name) +
                   "\" is not a whole number, and this camera has no such name" + DoYouMean(name, names));
}

void Camera::CheckPreset(const std::string& name) const {
  if (!name.empty()) PresetNamed(name);
}

std::string Camera::DriverName() const {
  return std::string(Driver().ProgID.substr(Driver().ProgID.find('.') + 1));
}

Wish Camera::Begin(bool moves, const std::function<Wish()>& wish) {
  // A signal either comes before, and nothing begins, or finds that something may be moving.
  const std::lock_guard lock(Mutex_);
  if (Interruption_.Came()) throw Interrupted();
  if (moves) {
    Moving_ = Moving::Maybe;
    Stopping_.reset();  // what was stopped before is not what begins
  }
  return wish();
}

WishOutcome Camera::Await(const std::shared_future<WishOutcome>& future) const {
  while (future.wait_for(Look) != std::future_status::ready)
    if (Interruption_.Came() && !MayMove()) throw Interrupted();
  return future.get();
}

WishOutcome Camera::AwaitStop() {
  std::shared_future<WishOutcome> done;
  {
    const std::lock_guard lock(Mutex_);
    if (!Stopping_) Stopping_ = Control_.Stop().Done;
    done = *Stopping_;
  }
  auto outcome = done.get();
  const std::lock_guard lock(Mutex_);
  Stopping_.reset();
  return outcome;
}

}  // namespace ptzctl
