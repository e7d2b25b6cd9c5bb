#include "control/CameraWorker.h"

#include <ptzd/Error.h>
#include <ptzd/PTZContinuousControl.h>

#include <algorithm>
#include <cmath>
#include <utility>

#include "common/Numbers.h"
#include "drivers/kit/Driver.h"
#include "transport/HTTPHandles.h"

namespace ptzd {

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

/// A head that was told to move may take so long before it is seen moving.
constexpr auto Reluctance = 2s;
/// How often a head must be seen at one place to be at rest there.
constexpr int Sightings = 3;
/// Between readings of a camera that is driven.
constexpr auto FollowPace = 500ms;
constexpr int JitterPercent = 25;

const DriverClass& ClassOf(const std::string& progID) {
  if (const auto* found = FindDriverClass(progID)) return *found;
  CreateDriver(progID);  // says why not
  Raise(ErrorCannotCreateObject);
}

Platform PlatformOf(const CameraSettings& settings, Clock& clock, std::shared_ptr<ExchangeSink> sink) {
  auto platform = settings.Platform;
  platform.Clock = &clock;
  platform.Exchanges = std::move(sink);
  return platform;
}

std::shared_ptr<SerialPortPool> PortsOfProcess() {
  static const auto ports = std::make_shared<SharedSerialPorts>();
  return ports;
}

bool IsStill(const DriveSpeeds& speeds) {
  const auto head = speeds.PanTilt.value_or(DriveSpeeds::Head{});
  return head.Pan == 0 && head.Tilt == 0 && speeds.Zoom.value_or(0) == 0;
}

bool Same(const DriveSpeeds& a, const DriveSpeeds& b) {
  const auto head = [](const DriveSpeeds& s) { return s.PanTilt.value_or(DriveSpeeds::Head{}); };
  return a.PanTilt.has_value() == b.PanTilt.has_value() && head(a).Pan == head(b).Pan &&
         head(a).Tilt == head(b).Tilt && a.Zoom == b.Zoom;
}

/// Of two pans the nearest way between them counts.
double PanApart(double a, double b) { return std::fabs(std::remainder(a - b, 360)); }

bool IsNear(const CameraPosition& at, const Target& to, const DriverData& data) {
  const double step = data.PositionStep * 1.001;  // positions are singles
  const bool isAway = PanApart(at.Pan, to.Pan) > step ||
                      // Such a camera tells of no tilt below the horizon how far.
                      (std::fabs(at.Tilt - to.Tilt) > step && !data.MisreadsBelowHorizon);
  return !isAway && (!to.Zoom || !at.Zoom || std::fabs(*at.Zoom - *to.Zoom) <= data.ZoomStep * 1.001);
}

/// Where a `Place` or a `Zoom` sends the camera.
CameraPlace PlaceOf(const CameraRequest& request) {
  const auto& target = request.Target;
  if (request.What == CameraRequest::Kind::Zoom) return {.Zoom = target.Zoom};
  return {target.Pan, target.Tilt, target.Zoom};
}

/// Whether what becomes of it within limits depends on where the camera is.
bool DependsOnPlace(const CameraRequest& request) {
  using Kind = CameraRequest::Kind;
  const auto& by = request.Task.By;
  return request.What == Kind::Drive || request.What == Kind::Step || by.Pan || by.Tilt || by.Zoom;
}

void ForgetMotion(PTZDevice& device) {
  if (auto* driver = dynamic_cast<Driver*>(&device)) driver->ForgetMotion();
}

WishOutcome Abandoned() {
  return {.Result = WishResult::Abandoned, .Text = "the camera's control ended first"};
}

std::string PlaceText(float pan, float tilt) { return "pan " + Text(pan) + ", tilt " + Text(tilt); }

}  // namespace

struct CameraControl::Worker::Subscriber {
  std::mutex Mutex;
  std::function<void(const CameraState&)> Changed;
};

CameraControl::Worker::Worker(CameraSettings settings)
    : Settings_(std::move(settings)),
      Class_(ClassOf(Settings_.Driver)),
      Data_(*Class_.Data),
      Clock_(*Settings_.Platform.Clock),
      Collector_(std::make_shared<ExchangeCollector>(Settings_.Platform.Exchanges)),
      Device_(Class_.Create(PlatformOf(Settings_, Clock_, Collector_))),
      ReconnectPause_(Settings_.FirstPause) {}

void CameraControl::Worker::End() {
  {
    const std::lock_guard lock(Mutex_);
    Ending_ = true;
    ReconnectAt_.reset();
    if ((Drive_ && !Drive_->Terms->OutliveControl()) || Sending_ || Stop_)
      BeginStop({}, "the camera's control ended");
    AbandonQueue();
    if (Stop_) EnsureRunning();
    Changed_.notify_all();
  }
  do {
    if (Thread_.joinable()) Thread_.join();
    Lock lock(Mutex_);
    EndWatch(Abandoned());
    if (Drive_) Drive_->Tickets.Done(Abandoned());
    Tell(lock);
  } while (Thread_.joinable());  // somebody who was told wished for a stop
}

// The thread.

void CameraControl::Worker::EnsureRunning() {
  if (Running_) return;
  if (Thread_.joinable()) Thread_.join();  // it has ended but for its last steps
  Running_ = true;
  Thread_ = std::thread([this] { Run(); });
}

void CameraControl::Worker::Run() {
  UseSerialPortPool(Settings_.Ports ? Settings_.Ports : PortsOfProcess());
  Lock lock(Mutex_);
  RunLocked(lock);
  Running_ = false;
}

void CameraControl::Worker::RunLocked(Lock& lock) {
  auto idleSince = steady_clock::now();
  while (true) {
    const bool worked = Step(lock);
    if (worked) idleSince = steady_clock::now();
    // Nobody who is told delays a stop, and what is told does not wait for the rest of the queue.
    const bool mustStop = Stop_ && Stop_->NextTry <= steady_clock::now();
    if (!mustStop && !Later_.empty()) {
      Tell(lock);
      continue;
    }
    if (!mustStop && std::exchange(Dirty_, false)) {
      Publish(lock);
      continue;
    }
    if (worked || mustStop) continue;
    if (Ending_ && !Stop_) return;
    auto due = NextDue();
    if (IsIdle()) {
      due = idleSince + Settings_.IdleTime;
      if (steady_clock::now() >= due) return;
    }
    if (due == TimePoint::max())
      Changed_.wait(lock);
    else
      Changed_.wait_until(lock, due);
  }
}

bool CameraControl::Worker::Step(Lock& lock) {
  const auto now = steady_clock::now();
  if (Stop_ && Stop_->NextTry <= now) {
    TryStop(lock);
    return true;
  }
  if (Drive_ && Drive_->Terms->IsOver(now)) {
    BeginStop({}, "its lease ended");
    return true;
  }
  if (!Queue_.empty() && Ending_) {
    AbandonQueue();
    return true;
  }
  if (!Queue_.empty()) {
    auto request = std::move(Queue_.front());
    Queue_.pop_front();
    Changed();
    const auto terms = request.Terms;
    Do(std::move(request), lock);
    // One that failed has nothing that its owner could stop; the one before it goes on, for its own owner.
    if (terms && CurrentDrive_ == terms && (!Drive_ || Drive_->Terms != terms)) {
      CurrentDrive_ = Drive_ ? Drive_->Terms : nullptr;
      if (CurrentDrive_ && CurrentDrive_->IsLetGo) BeginStop({}, "its owner let go of it");
    }
    return true;
  }
  if (ReconnectAt_ && *ReconnectAt_ <= now && !Stop_) {
    Reconnect(lock);
    return true;
  }
  if (Watch_ && Watch_->Next <= now && !Stop_) {
    Look(lock);
    return true;
  }
  if (Follows() && FollowAt_ <= now && !Stop_) {
    FollowDrive(lock);
    return true;
  }
  return false;
}

CameraControl::Worker::TimePoint CameraControl::Worker::NextDue() const {
  auto due = TimePoint::max();
  if (Stop_) return Stop_->NextTry;
  if (ReconnectAt_) due = std::min(due, *ReconnectAt_);
  if (Watch_) due = std::min(due, Watch_->Next);
  if (Drive_ && Drive_->Terms->Lease != 0ms) due = std::min(due, Drive_->Terms->LeaseEnds);
  if (Follows()) due = std::min(due, FollowAt_);
  return due;
}

bool CameraControl::Worker::IsIdle() const {
  return !Stop_ && !Drive_ && !Watch_ && !ReconnectAt_ && Queue_.empty();
}

void CameraControl::Worker::Changed() { Dirty_ = true; }

void CameraControl::Worker::Tell(Lock& lock) {
  const auto calls = std::exchange(Later_, {});
  lock.unlock();
  for (const auto& call : calls) call();
  lock.lock();
}

void CameraControl::Worker::Publish(Lock& lock) {
  std::erase_if(Subscribers_, [](const auto& subscriber) { return subscriber.expired(); });
  if (Subscribers_.empty()) return;
  const auto subscribers = Subscribers_;
  lock.unlock();
  const auto state = State();
  for (const auto& weak : subscribers)
    if (const auto subscriber = weak.lock()) {
      const std::lock_guard calling(subscriber->Mutex);
      if (subscriber->Changed) subscriber->Changed(state);
    }
  lock.lock();
}

std::shared_ptr<void> CameraControl::Worker::Subscribe(std::function<void(const CameraState&)> changed) {
  auto subscriber = std::make_shared<Subscriber>();
  subscriber->Changed = std::move(changed);
  {
    const std::lock_guard lock(Mutex_);
    Subscribers_.push_back(subscriber);
  }
  auto* raw = subscriber.get();
  return {raw, [subscriber = std::move(subscriber)](void*) {
            const std::lock_guard calling(subscriber->Mutex);
            subscriber->Changed = nullptr;
          }};
}

CameraState CameraControl::Worker::State() const {
  const std::lock_guard lock(Mutex_);
  CameraState state;
  state.Connected = Connected_;
  state.Link = Link_;
  state.ErrorNumber = ErrorNumber_;
  state.ErrorText = ErrorText_;
  state.Position = Position_;
  state.Motion = Motion_;
  if (Drive_ && Drive_->Terms->Lease != 0ms)
    state.LeaseLeft =
        std::max(0ms, std::chrono::ceil<Milliseconds>(Drive_->Terms->LeaseEnds - steady_clock::now()));
  state.Queued = Queue_.size();
  if (Stop_) state.StopTries = Stop_->Tries;
  state.Capabilities = Capabilities_;
  state.PresetCount = PresetCount_;
  return state;
}

// Wishes.

Wish CameraControl::Worker::Submit(CameraRequest request, WishTold told) {
  const std::lock_guard lock(Mutex_);
  // Else one who wishes again whenever he is told would keep the control from its end.
  if (Ending_) told = {};
  const auto ticket = std::make_shared<Ticket>(std::move(told), Later_);
  auto wish = ticket->Wish();
  request.Tickets.Add(ticket);
  if (Ending_) {
    request.Tickets.Done(Abandoned());
    return wish;
  }
  if (request.What == CameraRequest::Kind::Drive) {
    request.Terms->LeaseEnds = steady_clock::now() + request.Terms->Lease;
    CurrentDrive_ = request.Terms;
  } else if (request.What == CameraRequest::Kind::Place) {
    CurrentDrive_ = Drive_ ? Drive_->Terms : nullptr;  // one that waits is replaced
  }
  Enqueue(std::move(request));
  Changed();
  EnsureRunning();
  Changed_.notify_all();
  return wish;
}

Wish CameraControl::Worker::Refuse(std::string why, WishTold told) {
  const std::lock_guard lock(Mutex_);
  Ticket ticket(std::move(told), Later_);
  auto wish = ticket.Wish();
  ticket.Done({.Result = WishResult::Unsupported, .Text = std::move(why)});
  EnsureRunning();
  Changed_.notify_all();
  return wish;
}

/// The latest motion wins over those that have not left; steps add up; the rest keeps its order.
void CameraControl::Worker::Enqueue(CameraRequest request) {
  using Kind = CameraRequest::Kind;
  if (request.What == Kind::Step && !Queue_.empty()) {
    auto& last = Queue_.back();
    if (last.What == Kind::Step || (last.What == Kind::Place && !request.Target.Zoom)) {
      last.Target.Pan += request.Target.Pan;
      last.Target.Tilt += request.Target.Tilt;
      if (request.Target.Zoom) last.Target.Zoom = last.Target.Zoom.value_or(0) + *request.Target.Zoom;
      return last.Tickets.Add(std::move(request.Tickets));
    }
  }
  if (request.What == Kind::Drive || request.What == Kind::Place || request.What == Kind::Zoom) {
    const auto isOlder = [&request](const CameraRequest& other) {
      if (request.What == Kind::Zoom) return other.What == Kind::Zoom;
      return other.What != Kind::Task && other.Moves();
    };
    for (auto& older : Queue_) {
      if (!isOlder(older)) continue;
      // What a drive leaves alone goes on as the one before it wished.
      if (request.What == Kind::Drive && older.What == Kind::Drive) {
        if (!request.Speeds.PanTilt) request.Speeds.PanTilt = older.Speeds.PanTilt;
        if (!request.Speeds.Zoom) request.Speeds.Zoom = older.Speeds.Zoom;
      }
      older.Tickets.Done({.Result = WishResult::Replaced, .Text = "not sent: a later wish took its place"});
    }
    std::erase_if(Queue_, isOlder);
  }
  Queue_.push_back(std::move(request));
}

void CameraControl::Worker::AbandonQueue() {
  for (auto& request : std::exchange(Queue_, {})) {
    if (request.Terms == CurrentDrive_) CurrentDrive_.reset();
    request.Tickets.Done(Abandoned());
  }
}

void CameraControl::Worker::Do(CameraRequest request, Lock& lock) {
  using Kind = CameraRequest::Kind;
  if (request.What == Kind::Connect) return DoConnect(std::move(request), lock);
  if (request.What == Kind::Disconnect) return DoDisconnect(std::move(request), lock);
  if (Stop_)  // it was tried before anything else was looked at
    return request.Tickets.Done({.Result = WishResult::NotReached,
                                 .Text = "the camera has not taken the stop yet: " + Stop_->Last.Text});
  if (!EnsureConnected(request, lock)) return;
  if (DependsOnPlace(request)) LocateForLimits(lock);
  if (Ending_) return request.Tickets.Done(Abandoned());
  if (Stop_) {  // meanwhile
    if (request.Moves())
      return request.Tickets.Done({.Result = WishResult::Stopped, .Text = "stopped before it was sent"});
    return Queue_.push_front(std::move(request));
  }
  switch (request.What) {
    case Kind::Drive:
      return DoDrive(std::move(request), lock);
    case Kind::Reading:
      return DoReading(std::move(request), lock);
    default:
      return DoTask(std::move(request), lock);
  }
}

bool CameraControl::Worker::EnsureConnected(CameraRequest& request, Lock& lock) {
  if (Link_ == LinkHealth::Lost && ReconnectAt_) {
    request.Tickets.Done({.Result = WishResult::NotReached,
                          .Text = LostText(),
                          .ErrorNumber = ErrorNumber_,
                          .ErrorText = ErrorText_});
    return false;
  }
  if (request.What == CameraRequest::Kind::Task && !request.Task.Connected) return true;
  if (Connected_ && Link_ != LinkHealth::Lost) return true;
  auto opened = Open(lock);
  if (IsDone(opened.Result)) return true;
  opened.Text = "cannot connect: " + opened.Text;
  request.Tickets.Done(opened);
  return false;
}

void CameraControl::Worker::DoConnect(CameraRequest request, Lock& lock) { request.Tickets.Done(Open(lock)); }

void CameraControl::Worker::DoDisconnect(CameraRequest request, Lock& lock) {
  if (Drive_) {
    BeginStop({}, "the camera was disconnected");
    return Queue_.push_front(std::move(request));
  }
  auto call = Call(
      [](PTZDevice& device) {
        device.Disconnect();
        return std::nullopt;
      },
      lock);
  EndWatch({.Result = WishResult::Replaced, .Text = "the camera was disconnected"});
  Connected_ = false;
  Link_ = LinkHealth::NotConnected;
  ReconnectAt_.reset();
  Changed();
  auto outcome = JudgeCall(std::move(call), std::nullopt);
  if (outcome.Result == WishResult::NotSent) outcome = {};
  request.Tickets.Done(outcome);
}

void CameraControl::Worker::DoDrive(CameraRequest request, Lock& lock) {
  auto* control = As<PTZContinuousControl>();
  if (control == nullptr)
    return request.Tickets.Done(
        {.Result = WishResult::Unsupported, .Text = "this make has no continuous motion"});
  if (const auto refusal = Site_.Refusal(request.Speeds, Data_))
    return request.Tickets.Done({.Result = WishResult::OutOfRange, .Text = *refusal});
  if (request.Terms->IsOver(steady_clock::now()))
    return request.Tickets.Done(
        {.Result = WishResult::Stopped, .Text = "its lease ended before it was sent"});

  const auto within = Site_.Within(request.Speeds, Position_);
  if (IsStill(within) && !IsStill(request.Speeds))
    return request.Tickets.Done(
        {.Result = WishResult::OutOfRange, .Text = "the camera is at the limit that is set for it"});
  auto all = within;
  if (Drive_) {
    if (!all.PanTilt) all.PanTilt = Drive_->Speeds.PanTilt;
    if (!all.Zoom) all.Zoom = Drive_->Speeds.Zoom;
  }
  if (IsStill(all)) return BeginStop(std::move(request.Tickets), "a drive of speed 0");

  const bool wasDriven = Drive_.has_value();
  ActiveDrive drive{std::move(request.Tickets), all, std::move(request.Terms)};
  if (Drive_ && Same(Drive_->Speeds, all)) {
    drive.Tickets.Sent({});
    Drive_->Tickets.Done({.Result = WishResult::Replaced, .Text = "goes on at the same speed"});
    Drive_ = std::move(drive);
    return Changed();
  }
  EndWatch({.Result = WishResult::Replaced, .Text = "a later wish took its place"});

  Sending_ = true;
  auto call = Call(
      [this, control, &within](PTZDevice& device) -> std::optional<bool> {
        // A motion of which only the driver thinks that the camera has it would not be sent.
        ForgetMotion(device);
        // Some makes have one stop for all axes: it comes before what is to go on.
        const bool zoomStops = within.Zoom == 0.0F;
        if (zoomStops) control->ContinuousZoom(0);
        if (const auto& head = within.PanTilt)
          control->ContinuousMove(Site_.Pan(head->Pan), Site_.Tilt(head->Tilt));
        if (within.Zoom && !zoomStops) control->ContinuousZoom(*within.Zoom);
        return std::nullopt;
      },
      lock);
  Sending_ = false;
  const bool mayMove = wasDriven || MayHaveTaken(call);
  NoteLink(call.Exchanges);
  auto outcome = JudgeCall(std::move(call), std::nullopt);
  ForgetPosition();
  if (IsDone(outcome.Result)) {
    drive.Tickets.Sent(outcome);
    if (Drive_) Drive_->Tickets.Done({.Result = WishResult::Replaced, .Text = "a later wish took its place"});
    Drive_ = std::move(drive);
    Motion_ = CameraMotion::Driven;
    FollowAt_ = steady_clock::now() + FollowPace;
    if (Stop_) BeginStop({}, Stop_->Reason);  // it came while this was sent, and ends it
  } else {
    drive.Tickets.Done(outcome);
    if (mayMove) BeginStop({}, "a later drive failed: " + outcome.Text);
  }
  Changed();
}

std::optional<CameraTask> CameraControl::Worker::TaskOf(CameraRequest& request) {
  using Kind = CameraRequest::Kind;
  const auto refuse = [&request](WishResult result, std::string text) {
    request.Tickets.Done({.Result = result, .Text = std::move(text)});
    return std::nullopt;
  };
  auto& target = request.Target;
  switch (request.What) {
    case Kind::Place:
    case Kind::Zoom:
      if (target.Zoom && As<PTZDevice2>() == nullptr)
        return refuse(WishResult::Unsupported, "this make has no zoom position");
      if (const auto refusal = Site_.Refusal(PlaceOf(request), Data_))
        return refuse(WishResult::OutOfRange, *refusal);
      if (request.What == Kind::Place) return PlaceTask(Site_.Turned(target));
      return CameraTask{.Work = [zoom = *target.Zoom](PTZDevice& device) -> std::optional<bool> {
                          dynamic_cast<PTZDevice2&>(device).ZoomTo(zoom);
                          return std::nullopt;
                        },
                        .Rule = Data_.Zoom,
                        .Moves = true};
    case Kind::Step: {
      const auto isNone = [](const ptzd::Target& t) {
        return t.Pan == 0 && t.Tilt == 0 && t.Zoom.value_or(0) == 0;
      };
      if (!std::isfinite(target.Pan) || !std::isfinite(target.Tilt) ||
          !std::isfinite(target.Zoom.value_or(0)))
        return refuse(WishResult::OutOfRange, "the step is no number");
      const auto within = Site_.Within(target, Position_);
      if (isNone(within) && !isNone(target))
        return refuse(WishResult::OutOfRange, "the camera is at the limit that is set for it");
      target = within;
      return StepTask(Site_.Turned(target));
    }
    case Kind::Position:
      return CameraTask{.Work = [at = Site_.Turned(target)](PTZDevice& device) -> std::optional<bool> {
                          device.SetPanTilt(at.Pan, at.Tilt);
                          return std::nullopt;
                        },
                        .Rule = std::nullopt,
                        .Sends = false};
    default: {
      const auto& to = request.Task.To;
      auto refusal = Site_.Refusal(to, Data_);
      if (!refusal) refusal = Site_.Refusal(request.Task.By, Position_);
      if (refusal) return refuse(WishResult::OutOfRange, *refusal);
      return std::move(request.Task);
    }
  }
}

CameraTask CameraControl::Worker::PlaceTask(const ptzd::Target& place) const {
  return {.Work = [place](PTZDevice& device) -> std::optional<bool> {
            if (!place.Zoom) return device.MoveTo(place.Pan, place.Tilt);
            dynamic_cast<PTZDevice2&>(device).MoveTo(place.Pan, place.Tilt, *place.Zoom);
            return std::nullopt;
          },
          .Rule = Data_.MoveTo,
          .Moves = true};
}

/// By both axes at once where the driver does that, else one after the other.
CameraTask CameraControl::Worker::StepTask(const ptzd::Target& step) const {
  const bool turns = step.Pan != 0 || step.Tilt != 0 || !step.Zoom;
  const bool together = Data_.MoveBoth != MemberRule::Nothing;
  const auto work = [step, turns, together](PTZDevice& device) -> std::optional<bool> {
    std::optional<bool> answer;
    const auto also = [&answer](bool taken) { answer = taken && answer.value_or(true); };
    if (turns && together) also(device.MoveBoth(step.Pan, step.Tilt));
    if (!together && step.Pan != 0)
      also(device.Move(step.Pan < 0 ? DirectionLeft : DirectionRight, std::fabs(step.Pan)));
    if (!together && step.Tilt != 0)
      also(device.Move(step.Tilt < 0 ? DirectionDown : DirectionUp, std::fabs(step.Tilt)));
    if (step.Zoom.value_or(0) == 0) return answer;
    const auto direction = *step.Zoom > 0 ? ZoomIn : ZoomOut;
    if (auto* device2 = dynamic_cast<PTZDevice2*>(&device))
      device2->Zoom(direction, std::fabs(*step.Zoom));
    else
      also(device.Zoom(direction));
    return answer;
  };
  return {.Work = work, .Rule = !turns ? Data_.Zoom : together ? Data_.MoveBoth : Data_.Move, .Moves = true};
}

void CameraControl::Worker::DoTask(CameraRequest request, Lock& lock) {
  if (request.Moves() && Drive_) {  // which nothing else would end
    BeginStop({}, "a later wish took its place");
    return Queue_.push_front(std::move(request));
  }
  auto task = TaskOf(request);
  if (!task) return;
  using Kind = CameraRequest::Kind;
  std::optional<ptzd::Target> to;
  if (request.What == Kind::Place) to = request.Target;
  if (request.What == Kind::Zoom && Position_.Kind == PositionKind::Read)
    to = {Position_.Pan, Position_.Tilt, request.Target.Zoom};
  if (request.What == Kind::Step && Position_.Kind == PositionKind::Read) {
    to = {Position_.Pan + request.Target.Pan, Position_.Tilt + request.Target.Tilt, std::nullopt};
    if (request.Target.Zoom && Position_.Zoom) to->Zoom = *Position_.Zoom + *request.Target.Zoom;
  }
  const auto motion = Motion_;
  if (task->Moves) Motion_ = CameraMotion::Moving;
  Changed();

  Sending_ = task->Moves;
  // Drivers wait for nothing but a motor that they have started.
  Clock_.WhenSleeping([&] {
    Lock telling(Mutex_);
    request.Tickets.Sent({});
    Tell(telling);
  });
  auto call = Call(task->Work, lock);
  Clock_.WhenSleeping({});
  Sending_ = false;
  NoteLink(call.Exchanges);
  const bool onlyAsked = task->Moves && task->Sends && call.OnlyAsked;
  const bool lost = IsLinkLost(call.Exchanges) || call.Unanswered, mayMove = !onlyAsked && MayHaveTaken(call);
  const bool sentAny = !onlyAsked && (!call.Exchanges.empty() || call.Unanswered);
  if (task->Moves && sentAny)
    EndWatch({.Result = WishResult::Replaced, .Text = "a later wish took its place"});
  auto outcome = JudgeCall(std::move(call), task->Rule);
  if (outcome.Result == WishResult::NotSent && !task->Sends) {
    outcome.Result = WishResult::Sent;
    outcome.Text.clear();
  }
  Changed();
  if (!task->Moves) {
    if (request.What == Kind::Position) TakePosition(PositionKind::Estimated, lock);
    return request.Tickets.Done(outcome);
  }

  if (onlyAsked && IsDone(outcome.Result)) {  // what the driver heard left nothing to send
    TakePosition(PositionKind::Read, lock);
    const bool isThere = to && Position_.Kind == PositionKind::Read && IsNear(Position_, *to, Data_);
    outcome.Result = isThere ? WishResult::Arrived : WishResult::NotSent;
    outcome.Text = isThere ? "it is there already" : "nothing was sent";
  }
  const bool isTimed = Clock_.Slept(), wasCut = Clock_.WasCut();
  if (!IsDone(outcome.Result) || onlyAsked) {
    request.Tickets.Done(outcome);
    Motion_ = sentAny ? CameraMotion::Unknown : motion;
    if (isTimed || lost) ForgetPosition();
    // What the camera made of it is not known, and a timed move's own stop may be what was lost.
    if ((isTimed || lost) && mayMove && As<PTZContinuousControl>() != nullptr)
      BeginStop({}, "a move failed: " + outcome.Text);
    return;
  }
  if (isTimed) {  // its stop was sent, so it is over
    const bool known = Position_.Kind != PositionKind::Unknown;
    TakePosition(PositionKind::Estimated, lock);
    if (wasCut || !known) ForgetPosition();
    Motion_ = CameraMotion::AtRest;
    if (wasCut) {
      outcome.Result = WishResult::Stopped;
      outcome.Text = "stopped on the way";
    }
    return request.Tickets.Done(outcome);
  }
  if (request.What != Kind::Task || task->KnowsTarget) {
    TakePosition(Data_.PositionRequests != 0 ? PositionKind::Target : PositionKind::Estimated, lock);
    if (Position_.Kind != PositionKind::Read) outcome.Target = Position_;
  } else {
    ForgetPosition();
  }
  if (!to && outcome.Target) {
    to = {outcome.Target->Pan, outcome.Target->Tilt, outcome.Target->Zoom};
    if (request.What == Kind::Step && !request.Target.Zoom) to->Zoom.reset();
  }
  WatchUntilRest(std::move(request.Tickets), std::move(outcome), to, task->RestTime.value_or(RestTime()));
}

void CameraControl::Worker::DoReading(CameraRequest request, Lock& lock) {
  auto outcome = AskPosition(lock);
  if (outcome.Result == WishResult::NotSent) {
    outcome = {};
    if (Position_.Kind != PositionKind::Unknown) TakePosition(PositionKind::Estimated, lock);
  }
  request.Tickets.Done(outcome);
}

void CameraControl::Worker::WatchUntilRest(ptzd::Tickets tickets, WishOutcome sent,
                                           std::optional<ptzd::Target> to, Milliseconds time) {
  tickets.Sent(sent);
  if (Data_.PositionRequests == 0 || time == 0ms) {
    Motion_ = CameraMotion::Unknown;
    return tickets.Done(sent);
  }
  const auto now = steady_clock::now();
  Watch_ = RestWatch{.Tickets = std::move(tickets),
                     .Sent = std::move(sent),
                     .To = to,
                     .Began = now,
                     .Next = now + Milliseconds(Data_.PositionPace),
                     .Time = time,
                     .Last = std::nullopt};
}

void CameraControl::Worker::Look(Lock& lock) {
  const auto asked = AskPosition(lock);
  if (!Watch_) return;  // a stop or a loss of the link ended it
  Changed();
  auto& watch = *Watch_;
  const auto now = steady_clock::now();
  watch.Next = now + Milliseconds(Data_.PositionPace);
  const bool isOver = now >= watch.Began + watch.Time;
  auto outcome = watch.Sent;
  const auto end = [&](WishResult result, std::string text) {
    outcome.Result = result;
    outcome.Text = std::move(text);
    Motion_ = result == WishResult::Arrived || result == WishResult::Stalled ? CameraMotion::AtRest
                                                                             : CameraMotion::Unknown;
    EndWatch(outcome);
  };
  if (asked.Result == WishResult::NotSent && Position_.Kind == PositionKind::Target)
    Position_.Kind = PositionKind::Estimated;
  if (asked.Result == WishResult::NotSent || (IsDone(asked.Result) && Position_.Kind != PositionKind::Read))
    return end(WishResult::Sent, "the camera does not tell where it is");
  if (!IsDone(asked.Result)) {
    if (isOver) end(asked.Result, "its position could not be read: " + asked.Text);
    return;
  }
  const auto& at = Position_;
  if (watch.To && IsNear(at, *watch.To, Data_)) {
    if (watch.To->Zoom && !TellsZoom_) return end(WishResult::Sent, "the camera does not tell its zoom");
    return end(WishResult::Arrived, "");
  }
  const bool isAlike = watch.Last && PanApart(watch.Last->Pan, at.Pan) < 1e-3 &&
                       std::fabs(watch.Last->Tilt - at.Tilt) < 1e-3 &&
                       std::fabs(watch.Last->Zoom.value_or(0) - at.Zoom.value_or(0)) < 1e-3;
  watch.Moved = watch.Moved || (watch.Last && !isAlike);
  watch.Alike = isAlike ? watch.Alike + 1 : 1;
  watch.Last = at;
  if (watch.Alike >= Sightings && (watch.Moved || now >= watch.Began + Reluctance)) {
    if (!watch.To) return end(WishResult::Arrived, "");
    return end(WishResult::Stalled, "the camera rests at " + PlaceText(at.Pan, at.Tilt) + ", not at " +
                                        PlaceText(watch.To->Pan, watch.To->Tilt));
  }
  if (isOver)
    end(WishResult::StillMoving,
        "not at rest after " + Text(std::chrono::duration<double>(watch.Time).count()) + " s");
}

void CameraControl::Worker::LocateForLimits(Lock& lock) {
  const bool isKnown = Position_.Kind == PositionKind::Read || Position_.Kind == PositionKind::Target;
  if (Site_.HasLimits() && Connected_ && !isKnown && Data_.PositionRequests != 0) AskPosition(lock);
}

void CameraControl::Worker::FollowDrive(Lock& lock) {
  FollowAt_ = steady_clock::now() + std::max<Milliseconds>(FollowPace, Milliseconds(Data_.PositionPace));
  if (Data_.PositionRequests == 0) {
    FollowAt_ = TimePoint::max();
    return;
  }
  const auto asked = AskPosition(lock);
  if (asked.Result == WishResult::NotSent) FollowAt_ = TimePoint::max();
  Changed();
  if (!Drive_ || !IsDone(asked.Result)) return;
  if (!Same(Site_.Within(Drive_->Speeds, Position_), Drive_->Speeds))
    BeginStop({}, "the camera came to the limit that is set for it");
}

void CameraControl::Worker::EndWatch(const WishOutcome& outcome) {
  if (!Watch_) return;
  auto tickets = std::move(Watch_->Tickets);
  auto told = Watch_->Sent;
  told.Result = outcome.Result;
  told.Text = outcome.Text;
  Watch_.reset();
  tickets.Done(told);
}

// Stopping.

Wish CameraControl::Worker::Stop(WishTold told) {
  const auto ticket = std::make_shared<Ticket>(std::move(told), Later_);
  auto wish = ticket->Wish();
  ptzd::Tickets tickets;
  tickets.Add(ticket);
  const std::lock_guard lock(Mutex_);
  BeginStop(std::move(tickets), "stopped");
  EnsureRunning();
  return wish;
}

void CameraControl::Worker::EndDrive(DriveTerms& drive) {
  const std::lock_guard lock(Mutex_);
  drive.IsLetGo = true;
  if (CurrentDrive_.get() != &drive) return;
  BeginStop({}, "its owner let go of it");
  EnsureRunning();
}

void CameraControl::Worker::RenewDrive(DriveTerms& drive) {
  const std::lock_guard lock(Mutex_);
  drive.LeaseEnds = steady_clock::now() + drive.Lease;
}

void CameraControl::Worker::LeaveDrive(DriveTerms& drive) {
  const std::lock_guard lock(Mutex_);
  drive.IsLeft = true;
}

void CameraControl::Worker::BeginStop(ptzd::Tickets tickets, std::string reason) {
  const auto now = steady_clock::now();
  if (!Stop_)
    Stop_ =
        PendingStop{.Tickets = {}, .Ended = {}, .Reason = reason, .Pause = Settings_.FirstPause, .Last = {}};
  Stop_->Since = Stop_->NextTry = now;
  Stop_->Once = false;
  Stop_->Tickets.Add(std::move(tickets));
  CurrentDrive_.reset();
  if (Drive_) {
    Stop_->Ended.Add(std::move(Drive_->Tickets));
    Stop_->Reason = std::move(reason);
    Drive_.reset();
  }
  EndWatch({.Result = WishResult::Stopped, .Text = "stopped on the way"});
  std::deque<CameraRequest> kept;
  for (auto& request : std::exchange(Queue_, {})) {
    using Kind = CameraRequest::Kind;
    if (request.What == Kind::Connect || request.What == Kind::Disconnect)
      kept.push_back(std::move(request));
    else
      Stop_->Dropped.Add(std::move(request.Tickets));
  }
  Queue_ = std::move(kept);
  if (Calling_) {
    Clock_.Cut();
    Collector_->Interrupt();
  }
  Changed();
  Changed_.notify_all();
}

void CameraControl::Worker::TryStop(Lock& lock) {
  auto* control = As<PTZContinuousControl>();
  if (control == nullptr)
    return EndStop({.Result = WishResult::Unsupported,
                    .Text = "this make has no stop; a move that it was sent ends by itself"});
  ++Stop_->Tries;
  Stop_->NextTry = TimePoint::max();  // until this one is judged; another wish for a stop sets it anew
  Changed();

  std::optional<WishOutcome> failure = Revive(lock);
  WishOutcome outcome;
  if (failure) {
    outcome = *std::move(failure);
  } else {
    // Together they end all motion on every make.
    auto head = Call(
        [control](PTZDevice& device) -> std::optional<bool> {
          // Some take another stop for a repeat, whether or not the camera took the first.
          ForgetMotion(device);
          control->ContinuousMove(0, 0);
          return std::nullopt;
        },
        lock, Cutting::Forbidden);
    auto zoom = Call(
        [control](PTZDevice&) -> std::optional<bool> {
          control->ContinuousZoom(0);
          return std::nullopt;
        },
        lock, Cutting::Forbidden);
    const bool zoomSends = !zoom.Exchanges.empty() || zoom.Unanswered;
    auto exchanges = head.Exchanges;
    exchanges.insert(exchanges.end(), zoom.Exchanges.begin(), zoom.Exchanges.end());
    NoteLink(exchanges);
    outcome = JudgeCall(std::move(head), std::nullopt);
    auto zoomOutcome = JudgeCall(std::move(zoom), std::nullopt);
    // A camera may have no zoom to stop, or no head.
    const auto isMissing = [](const WishOutcome& o) {
      return o.Result == WishResult::NotSent ||
             (o.Result == WishResult::Refused && o.StatusCode >= 400 && o.StatusCode < 500);
    };
    const bool zoomStands = IsDone(zoomOutcome.Result)
                                ? isMissing(outcome)
                                : IsDone(outcome.Result) && zoomSends && !isMissing(zoomOutcome);
    if (zoomStands) outcome = zoomOutcome;
    outcome.Exchanges = std::move(exchanges);
  }
  auto& stop = *Stop_;
  TellDropped();
  for (auto& exchange : outcome.Exchanges) stop.Exchanges.push_back(std::move(exchange));
  if (IsDone(outcome.Result)) {
    outcome.Text.clear();
    Motion_ = CameraMotion::AtRest;
    if (stop.NextTry == TimePoint::max()) return EndStop(std::move(outcome));
    return;  // somebody wished for another meanwhile
  }
  stop.Last = outcome;
  Motion_ = CameraMotion::Unknown;
  const auto now = steady_clock::now();
  // Where the camera answers by now, what it refused is repeated like any other stop.
  if (stop.Once && Link_ == LinkHealth::Lost) return EndStop(std::move(outcome));
  if (now - stop.Since >= Settings_.StopTime) {
    outcome.Text =
        "the camera could not be stopped, tried " + std::to_string(stop.Tries) + " times: " + outcome.Text;
    return EndStop(std::move(outcome));
  }
  if (stop.NextTry == TimePoint::max()) {
    stop.NextTry = std::min(now + Jittered(stop.Pause), stop.Since + Settings_.StopTime);
    Lengthen(stop.Pause);
  }
}

/// Behind the stop, which is not to wait for however many these are.
void CameraControl::Worker::TellDropped() {
  Stop_->Dropped.Done({.Result = WishResult::Stopped, .Text = "stopped before it was sent"});
}

void CameraControl::Worker::EndStop(WishOutcome outcome) {
  TellDropped();
  auto stop = *std::exchange(Stop_, std::nullopt);
  outcome.Tries = stop.Tries;
  outcome.Exchanges = std::move(stop.Exchanges);
  const bool stopped = IsDone(outcome.Result);
  if (stopped) {
    ReconnectPause_ = Settings_.FirstPause;
    if (Settings_.WatchesMoves && !Ending_) WatchUntilRest({}, {}, std::nullopt, RestTime());
    Motion_ = CameraMotion::AtRest;
  }
  auto ended = outcome;
  if (stopped) {
    ended.Result = WishResult::Stopped;
    ended.Text = stop.Reason;
  } else {
    ended.Text = outcome.Text + "; the camera may still be moving";
  }
  stop.Ended.Done(ended);
  stop.Tickets.Done(outcome);
  Changed();
}

// The link.

WishOutcome CameraControl::Worker::Open(Lock& lock, bool takesPosition) {
  const bool wasLost = Link_ == LinkHealth::Lost;
  Link_ = LinkHealth::Connecting;
  ReconnectAt_.reset();
  Changed();
  if (std::exchange(Dirty_, false)) Publish(lock);
  auto call =
      Call([this](PTZDevice& device) { return std::optional(device.Connect(Settings_.Options)); }, lock);
  const bool lost = IsLinkLost(call.Exchanges);
  auto outcome = JudgeConnect(std::move(call));
  Connected_ = IsDone(outcome.Result);
  Changed();
  if (!Connected_) {
    ErrorNumber_ = outcome.ErrorNumber;
    ErrorText_ = outcome.ErrorText.empty() ? outcome.Text : outcome.ErrorText;
    if (lost || wasLost)  // it may be back, and not ready yet
      LoseLink();
    else
      Link_ = LinkHealth::NotConnected;
    return outcome;
  }
  Link_ = outcome.Exchanges.empty() ? LinkHealth::Untried : LinkHealth::Up;
  if (Link_ == LinkHealth::Up) ReconnectPause_ = Settings_.FirstPause;
  const bool asks = (Data_.PositionRequests & AsksOnConnecting) != 0;
  lock.unlock();
  const auto capabilities = Device_->Capabilities();
  const auto presets = Device_->PresetCount();
  lock.lock();
  Capabilities_ = capabilities;
  PresetCount_ = presets;
  if (takesPosition) TakePosition(asks ? PositionKind::Read : PositionKind::Estimated, lock);
  return outcome;
}

/// Connecting itself moves some heads. Those are asked by what follows, the stop, where they were connected.
std::optional<WishOutcome> CameraControl::Worker::Revive(Lock& lock) {
  if (Connected_ && (Link_ != LinkHealth::Lost || Data_.MovesToConnect != ConnectMovement::Never))
    return std::nullopt;
  auto opened = Open(lock, false);
  if (IsDone(opened.Result)) return std::nullopt;
  return opened;
}

/// What somebody drove when the link was lost may still be moving.
void CameraControl::Worker::Reconnect(Lock& lock) {
  ReconnectAt_.reset();
  if (As<PTZContinuousControl>() != nullptr) {
    const bool wasConnected = Connected_ && Data_.MovesToConnect != ConnectMovement::Never;
    if (!wasConnected && !IsDone(Open(lock, false).Result)) return;
    if (Stop_) return;  // wished for meanwhile
    BeginStop({}, "the link was lost");
    Stop_->Once = true;
    return;
  }
  Open(lock);
}

void CameraControl::Worker::NoteLink(const std::vector<Exchange>& exchanges) {
  if (exchanges.empty()) return;
  const auto& last = exchanges.back();
  if (last.ErrorNumber != 0) {
    ErrorNumber_ = last.ErrorNumber;
    ErrorText_ = last.ErrorText;
  }
  if (IsLinkFailure(last)) return LoseLink();
  Link_ = Connected_ ? LinkHealth::Up : Link_;
  ReconnectAt_.reset();
  ReconnectPause_ = Settings_.FirstPause;
  Changed();
}

void CameraControl::Worker::LoseLink() {
  Link_ = LinkHealth::Lost;
  if (Motion_ != CameraMotion::Unknown) Motion_ = CameraMotion::Unknown;
  EndWatch({.Result = WishResult::NotReached, .Text = "the link was lost: " + ErrorText_});
  if (Settings_.Reconnects && !Ending_) {
    ReconnectAt_ = steady_clock::now() + Jittered(ReconnectPause_);
    Lengthen(ReconnectPause_);
  }
  if (Drive_) BeginStop({}, "the link was lost");
  Changed();
}

std::string CameraControl::Worker::LostText() const {
  const auto left = std::chrono::duration<double>(*ReconnectAt_ - steady_clock::now()).count();
  const auto number = ErrorNumber_ == 0 ? "" : std::to_string(ErrorNumber_) + " ";
  return "the link is lost (" + number + ErrorText_ + "); the next try is in " +
         Text(Round(std::max(left, 0.0), 1)) + " s";
}

CameraControl::Worker::Milliseconds CameraControl::Worker::Jittered(Milliseconds pause) {
  std::uniform_int_distribution<int> percent(100 - JitterPercent, 100 + JitterPercent);
  return pause * percent(Random_) / 100;
}

void CameraControl::Worker::Lengthen(Milliseconds& pause) const {
  pause = std::min(pause * 2, Settings_.LongestPause);
}

// The driver.

MemberCall CameraControl::Worker::Call(const Work& work, Lock& lock, Cutting cutting) {
  Collector_->Clear();
  Clock_.Restore();
  Calling_ = cutting == Cutting::Allowed;
  lock.unlock();
  auto call = CallMember([&] { return work(*Device_); }, *Collector_);
  lock.lock();
  Calling_ = false;
  if (call.Unanswered && !call.Interrupted) {
    ErrorNumber_ = HTTPErrorNoServer;
    ErrorText_ = "the camera did not answer";
    LoseLink();
  }
  return call;
}

CameraPosition CameraControl::Worker::PositionOf(PTZDevice& device) const {
  CameraPosition position{.Pan = Site_.Pan(device.Pan()), .Tilt = Site_.Tilt(device.Tilt())};
  if (auto* device2 = dynamic_cast<PTZDevice2*>(&device)) position.Zoom = device2->ZoomLevel();
  position.When = steady_clock::now();
  return position;
}

void CameraControl::Worker::TakePosition(PositionKind unasked, Lock& lock) {
  CameraPosition position;
  const auto call = Call(
      [&](PTZDevice& device) -> std::optional<bool> {
        position = PositionOf(device);
        return std::nullopt;
      },
      lock);
  NoteLink(call.Exchanges);
  if (call.Raised) return;
  const bool told = !call.Exchanges.empty();
  if (told && !IsDone(JudgeCall(call, std::nullopt).Result)) return;
  position.Kind = told ? PositionKind::Read : unasked;
  Position_ = position;
  Changed();
}

WishOutcome CameraControl::Worker::AskPosition(Lock& lock) {
  auto* driver = As<ptzd::Driver>();
  ptzd::Driver::TellingAxes told;
  CameraPosition position;
  auto call = Call(
      [&](PTZDevice& device) -> std::optional<bool> {
        if (driver == nullptr) return std::nullopt;
        told = driver->AskPosition();
        position = PositionOf(device);
        return std::nullopt;
      },
      lock);
  NoteLink(call.Exchanges);
  auto outcome = JudgeCall(std::move(call), std::nullopt);
  if (IsDone(outcome.Result)) {
    TellsZoom_ = told.Zoom;
    position.Kind = told.Pan && told.Tilt ? PositionKind::Read : Position_.Kind;
    Position_ = position;
    Changed();
  }
  return outcome;
}

}  // namespace ptzd
