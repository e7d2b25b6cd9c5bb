#include "CheckBench.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include <ptzd/Error.h>
#include "control/Verdict.h"
#include "drivers/kit/Driver.h"
#include "drivers/kit/Options.h"
#include "transport/HTTPClient.h"

namespace ptzctl {

namespace {

using namespace ptzd;
using namespace std::chrono_literals;
using std::chrono::steady_clock;

/// How long a reply is waited for that the driver does not wait for itself.
constexpr auto FirstPause = 250ms, UsualPace = 250ms;

/// Of a driver that shows no exchanges. Some answer False on purpose, also for what was done; all tell by
/// `Connect` whether they are connected.
WishOutcome JudgeAnswer(MemberCall call, bool connects) {
  WishOutcome outcome;
  outcome.Answer = call.Answer;
  if (call.Raised) {
    outcome.Result = WishResult::Failed;
    outcome.ErrorNumber = call.Raised->Number();
    outcome.ErrorText = call.Raised->Description();
    outcome.Text = std::to_string(outcome.ErrorNumber) + " " + outcome.ErrorText;
  } else if (connects && call.Answer == false) {
    outcome.Result = WishResult::Refused;
    outcome.Text = "the driver answered False";
  }
  return outcome;
}

}  // namespace

DriverUnderTest InterfacesOf(std::unique_ptr<PTZDevice> device, const DriverData* data) {
  const std::shared_ptr<PTZDevice> owner = std::move(device);
  return {owner, std::dynamic_pointer_cast<PTZDevice2>(owner),
          std::dynamic_pointer_cast<PTZContinuousControl>(owner),
          std::dynamic_pointer_cast<PTZNamedPresets>(owner), data};
}

CheckBench::CheckBench(const std::function<DriverUnderTest(const Platform&)>& make,
                       std::shared_ptr<ExchangeSink> log, const Interruption& interruption,
                       std::chrono::milliseconds stopTime)
    : Interruption_(interruption),
      StopTime_(stopTime),
      Collector_(std::make_shared<ExchangeCollector>(std::move(log))),
      Driver_(make({.Clock = &Clock_, .Exchanges = Collector_})) {}

bool CheckBench::Claims(ptzd::Capabilities flag) {
  return (Driver_.Device->Capabilities() & flag) == static_cast<std::int32_t>(flag);
}

void CheckBench::Check() const {
  if (!IsClosing_ && Interruption_.Came()) throw Interrupted();
}

void CheckBench::Cut() {
  Clock_.Cut();
  Collector_->Interrupt();
}

WishOutcome CheckBench::Call(const Member& member, std::optional<MemberRule> rule, bool connects) {
  Collector_->Clear();
  Clock_.Restore();
  Check();  // what comes later cuts this short
  auto call = CallMember(member, *Collector_);
  if (Driver_.Data == nullptr) return JudgeAnswer(std::move(call), connects);
  auto outcome = connects ? JudgeConnect(std::move(call)) : JudgeCall(std::move(call), rule);
  const bool isLost = outcome.Result == WishResult::NotReached;
  if (isLost || !outcome.Exchanges.empty()) IsSilent_ = isLost;
  return outcome;
}

WishOutcome CheckBench::Connect(const Bytes& options) {
  Options_ = options;
  auto outcome = Call([&] { return std::optional(Driver_.Device->Connect(options)); }, {}, true);
  Exchanges_ = outcome.Exchanges;
  return outcome;
}

WishOutcome CheckBench::AskForPage() {
  PropertyBag options;
  options.Contents(Options_);
  const auto address = options.Text(AddressOption.Name);
  return Do([&]() -> std::optional<bool> {
    HTTPClient client(SystemInternet(), Clock_, Teller(Collector_, {}, 0));
    client.FollowRedirects(false);  // who is asked is this address, and nobody else
    client.GetResource("http://" + address.substr(address.rfind('@') + 1) + "/", "", "");
    return std::nullopt;
  });
}

WishOutcome CheckBench::Do(const Member& member, std::optional<MemberRule> rule) {
  auto outcome = Call(member, rule);
  std::ranges::copy(outcome.Exchanges, std::back_inserter(Exchanges_));
  Check();
  return outcome;
}

WishOutcome CheckBench::Move(std::string what, const Member& member, std::optional<MemberRule> rule) {
  Check();
  const auto now = steady_clock::now();
  Rested();
  MayMove_ = true;
  IsUnstoppable_ = false;
  Motions_.push_back({now, now, std::move(what)});
  return Do(member, rule);
}

void CheckBench::Rested() {
  if (std::exchange(MayMove_, false)) Motions_.back().Ended = steady_clock::now();
}

/// Some drivers ask where the camera is only as they connect, and keep what they know where it does not tell.
bool CheckBench::AskByConnecting() {
  const auto& data = *Driver_.Data;
  const bool takesPlace =
      data.SetPanTilt == PlaceRule::Taken || data.SetPanTilt == PlaceRule::TakenIfConnected;
  if (data.Source() != PositionSource::OnConnecting || data.MovesToConnect != ConnectMovement::Never ||
      !takesPlace)
    return false;
  PropertyBag options;
  options.Contents(Options_);
  if (data.Reads(ResetOption.Name)) options.WriteProperty(std::string(ResetOption.Name), false);
  constexpr float nowhere = 7654;
  const float pan = Driver_.Device->Pan(), tilt = Driver_.Device->Tilt();
  Driver_.Device->SetPanTilt(nowhere, nowhere);
  const bool told = Driver_.Device->Connect(options.Contents()) && Driver_.Device->Pan() != nowhere &&
                    Driver_.Device->Tilt() != nowhere;
  if (!told) Driver_.Device->SetPanTilt(pan, tilt);
  return told;
}

Sighting CheckBench::Look() {
  auto* driver = dynamic_cast<ptzd::Driver*>(Driver_.Device.get());
  Sighting seen;
  const auto outcome = Call(
      [&]() -> std::optional<bool> {
        seen.TellsHead = seen.TellsZoom = driver == nullptr;
        if (driver != nullptr) {
          const auto told = driver->AskPosition();
          seen.TellsHead = (told.Pan && told.Tilt) || AskByConnecting();
          seen.TellsZoom = told.Zoom;
        }
        seen.Pan = Driver_.Device->Pan();
        seen.Tilt = Driver_.Device->Tilt();
        if (Driver_.Device2) seen.Zoom = Driver_.Device2->ZoomLevel();
        return std::nullopt;
      },
      {});
  const bool isAsked = !outcome.Exchanges.empty() || !Driver_.Data;
  if (isAsked && Looks_++ == 0) std::ranges::copy(outcome.Exchanges, std::back_inserter(Exchanges_));
  Check();
  if (!IsDone(outcome.Result) && outcome.Result != WishResult::NotSent) throw CannotLook{outcome.Text};
  seen.TellsZoom = seen.TellsZoom && seen.Zoom;
  seen.When = steady_clock::now();
  Track_.push_back(seen);
  return seen;
}

void CheckBench::Sleep(std::chrono::milliseconds time) const {
  Check();
  if (!IsClosing_ && !Interruption_.Sleep(time)) throw Interrupted();
  if (IsClosing_) SystemClock().SleepUntil(SystemClock().Now() + time);
}

void CheckBench::Pause() const {
  Sleep(Driver_.Data ? std::chrono::milliseconds(Driver_.Data->PositionPace) : UsualPace);
}

WishOutcome CheckBench::Stop() {
  if (!Driver_.Continuous) return {.Result = WishResult::Unsupported, .Text = "this make has no stop"};
  const auto ends = steady_clock::now() + StopTime_;
  auto pause = FirstPause;
  while (true) {
    auto outcome = Do([this]() -> std::optional<bool> {
      // Some take another stop for a repeat, whether or not the camera took the first.
      if (auto* driver = dynamic_cast<ptzd::Driver*>(Driver_.Device.get())) driver->ForgetMotion();
      Driver_.Continuous->ContinuousMove(0, 0);
      return std::nullopt;
    });
    const auto zoom = Do([this]() -> std::optional<bool> {
      Driver_.Continuous->ContinuousZoom(0);
      return std::nullopt;
    });
    if (IsDone(outcome.Result) && Claims(CapabilityContinuousZoom) && zoom.Result != WishResult::NotSent)
      outcome = zoom;
    IsUnstoppable_ = !IsDone(outcome.Result);
    if (!IsUnstoppable_ || steady_clock::now() + pause > ends) return outcome;
    Sleep(pause);
    pause *= 2;
  }
}

std::vector<Exchange> CheckBench::TakeExchanges() { return std::exchange(Exchanges_, {}); }

int CheckBench::TakeLooks() { return std::exchange(Looks_, 0); }

}  // namespace ptzctl
