#include "gateway/onvif/Motions.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace ptzgate {

using namespace ptzd;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

/// Clients give up on an answer sooner than a gateway does on a camera.
constexpr std::chrono::seconds LongestAnswer(4);

Fault FaultOf(const WishOutcome& outcome) {
  auto text = std::string(ptzd::Name(outcome.Result));
  if (const auto& more = outcome.Text.empty() ? outcome.ErrorText : outcome.Text; !more.empty())
    text += ": " + more;
  if (outcome.Result == WishResult::OutOfRange) return InvalidArgument("ter:InvalidPosition", text);
  if (outcome.Result == WishResult::Unsupported) return NotSupported(text);
  return {"env:Receiver", {"ter:Action"}, text};
}

bool IsMotion(const std::optional<DriveSpeeds::Head>& speed) {
  return speed && (speed->Pan != 0 || speed->Tilt != 0);
}
bool IsMotion(const std::optional<float>& speed) { return speed && *speed != 0; }

}  // namespace

Fault FaultOf(const Refusal& refusal) {
  const std::string text = refusal.what();
  switch (refusal.Reason()) {
    case Refusal::Why::NotAllowed:
      return {"env:Sender", {"ter:NotAuthorized"}, text};
    case Refusal::Why::Unknown:
      return InvalidArgument("ter:NoToken", text);
    case Refusal::Why::Invalid:
      return {"env:Sender", {"ter:InvalidArgVal"}, text};
    case Refusal::Why::Unsupported:
      return NotSupported(text);
    case Refusal::Why::Exhausted:
      return {"env:Receiver", {"ter:Action", "ter:TooManyPresets"}, text};
    case Refusal::Why::Held:
    case Refusal::Why::Ending:
      break;
  }
  return {"env:Receiver", {"ter:Action"}, text};
}

/// A client that waits for its answer.
struct Motions::Waiting {
  Waiting(ptzgate::Asked asked, Element answer)
      : Of(std::move(asked)), Answer(std::move(answer)), Timer(Of.Site.Context()) {}

  const Asked Of;
  const Element Answer;
  bool GoesToPlace = false;
  boost::asio::steady_timer Timer;
};

Motions::Motions(Gate& gate) {
  Watch_ = gate.Watch([this](GateCamera& camera, Gate::Change change) {
    if (change == Gate::Change::Removed) Forget(camera);
  });
}

Motions::~Motions() = default;

std::shared_ptr<Motions::Waiting> Motions::Wait(const Asked& asked, Element answer) {
  auto waiting = std::make_shared<Waiting>(asked, std::move(answer));
  waiting->Timer.expires_after(LongestAnswer);
  waiting->Timer.async_wait(
      [this, life = std::weak_ptr(Life_), weak = std::weak_ptr(waiting)](const auto& error) {
        const auto late = weak.lock();
        if (error || !life.lock() || !late) return;
        late->Of.Answer(Fault("env:Receiver", {"ter:Action"},
                              "camera " + late->Of.Name + " has not taken it yet; it is still tried"));
        Waiting_.remove(late);
      });
  Waiting_.push_back(waiting);
  return waiting;
}

/// Nothing where it was answered before.
void Motions::End(const std::shared_ptr<Waiting>& waiting, const WishOutcome& outcome) {
  if (std::ranges::find(Waiting_, waiting) == Waiting_.end()) return;
  // Whatever ended a move later, it had begun.
  const bool begun = outcome.Result == WishResult::Stopped || outcome.Result == WishResult::Replaced ||
                     outcome.Result == WishResult::Stalled || outcome.Result == WishResult::StillMoving;
  // There is nothing to send to a camera that is there already.
  const bool isThere = waiting->GoesToPlace && outcome.Result == WishResult::NotSent &&
                       waiting->Of.Camera->State().Position.Kind == PositionKind::Read;
  if (IsDone(outcome.Result) || begun || isThere)
    waiting->Of.Answer(waiting->Answer);
  else
    waiting->Of.Answer(FaultOf(outcome));
  Waiting_.remove(waiting);
}

void Motions::Forget(const GateCamera& camera) {
  std::erase_if(Drives_, [&](const auto& drive) { return drive.second.Camera == camera.Name(); });
  Saving_.erase(camera.Name());
  const auto waiting = Waiting_;
  for (const auto& one : waiting)
    if (one->Of.Camera.get() == &camera) End(one, {.Result = WishResult::Abandoned});
}

void Motions::Do(const Asked& asked, const Order& order, Element answer, std::function<void()> done) {
  const auto waiting = Wait(asked, std::move(answer));
  waiting->GoesToPlace = std::holds_alternative<MoveTo>(order) || std::holds_alternative<GoToPreset>(order);
  const auto end = [this, life = std::weak_ptr(Life_), waiting](const WishOutcome& outcome) {
    if (life.lock()) End(waiting, outcome);
  };
  const auto over = [end, life = std::weak_ptr(Life_), done = std::move(done)](const WishOutcome& outcome) {
    if (!life.lock()) return;
    if (done) done();
    end(outcome);
  };
  try {
    // What is no move is over when all of it is.
    asked.Camera->Do(asked.Who, order, over, Moves(order) ? GateCamera::Told(end) : GateCamera::Told());
  } catch (const Refusal&) {
    Waiting_.remove(waiting);
    throw;
  }
}

void Motions::Drive(const Asked& asked, const DriveSpeeds& speeds, milliseconds time, Element answer) {
  // What the same client drives on the other axis goes on under this drive.
  auto whole = speeds;
  if (const auto* before = DrivenBy(asked)) {
    if (!whole.PanTilt) whole.PanTilt = before->Speeds.PanTilt;
    if (!whole.Zoom) whole.Zoom = before->Speeds.Zoom;
  }
  if (!IsMotion(whole.PanTilt) && !IsMotion(whole.Zoom)) return Do(asked, ptzgate::Stop(), std::move(answer));
  const auto number = ++LastDrive_;
  const auto waiting = Wait(asked, std::move(answer));
  const auto end = [this, life = std::weak_ptr(Life_), waiting](const WishOutcome& outcome) {
    if (life.lock()) End(waiting, outcome);
  };
  std::unique_ptr<HeldDrive> held;
  try {
    held = asked.Camera->Drive(
        asked.Who, speeds, time,
        [this, end, life = std::weak_ptr(Life_), number](const WishOutcome& outcome) {
          if (!life.lock()) return;
          Drives_.erase(number);
          end(outcome);
        },
        end);
  } catch (const Refusal&) {
    Waiting_.remove(waiting);
    throw;
  }
  Drives_[number] = {asked.Name, asked.Who.Session, whole, steady_clock::now() + time, std::move(held)};
}

const Motions::Driven* Motions::DrivenBy(const Asked& asked) const {
  for (auto drive = Drives_.rbegin(); drive != Drives_.rend(); ++drive)
    if (drive->second.Camera == asked.Name)
      return drive->second.Session == asked.Who.Session ? &drive->second : nullptr;
  return nullptr;
}

void Motions::Stop(const Asked& asked, bool panTilt, bool zoom, Element answer) {
  const auto* drive = panTilt != zoom ? DrivenBy(asked) : nullptr;
  if (drive != nullptr) {
    const bool goesOn = panTilt ? IsMotion(drive->Speeds.Zoom) : IsMotion(drive->Speeds.PanTilt);
    DriveSpeeds ended;
    if (panTilt)
      ended.PanTilt = {0, 0};
    else
      ended.Zoom = 0.0F;
    const auto left = std::chrono::duration_cast<milliseconds>(drive->Until - steady_clock::now());
    if (goesOn && left.count() > 0) return Drive(asked, ended, left, std::move(answer));
  }
  Do(asked, ptzgate::Stop(), std::move(answer));
}

}  // namespace ptzgate
