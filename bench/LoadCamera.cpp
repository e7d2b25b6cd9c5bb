#include "LoadCamera.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <ptzd/Error.h>
#include <ptzd/PropertyBag.h>

namespace {

using namespace std::chrono_literals;
using Kind = LoadCamera::Kind;

constexpr std::size_t MostComplaints = 3;

const char* Name(Kind kind) {
  constexpr const char* names[] = {"step", "place", "zoom", "iris", "focus", "preset", "reading", "drive"};
  return names[static_cast<std::size_t>(kind)];
}

/// As the log of the simulated camera has it.
std::string KeyOf(const ptzd::Exchange& exchange) {
  const std::string body(exchange.Sent.begin(), exchange.Sent.end());
  if (exchange.Link != ptzd::ExchangeLink::HTTP) return SimulatedSite::KeyOf("", body);
  const auto path = exchange.URL.find('/', exchange.URL.find("://") + 3);
  auto target = path == std::string::npos ? "/" : exchange.URL.substr(path);
  for (auto at = target.find(' '); at != target.npos; at = target.find(' ', at)) target.replace(at, 1, "%20");
  return SimulatedSite::KeyOf(target, body);
}

/// Within a range, near its middle, by `turn`.
float Within(const std::optional<ptzd::ValueRange>& range, unsigned turn) {
  const double least = range ? std::max(range->Least, -20.0) : -20;
  const double greatest = range ? std::min(range->Greatest, least + 40) : 20;
  return static_cast<float>(std::floor(least + (greatest - least) * (turn % 17) / 17));
}

float Speed(const std::optional<ptzd::ValueRange>& range, unsigned turn) {
  if (!range) return 0;
  const auto speed = static_cast<float>(std::min(range->Greatest, 10.0));
  return turn % 2 != 0 ? speed : -speed;
}

}  // namespace

Answers& Answers::operator+=(const Answers& other) {
  Wished += other.Wished;
  Done += other.Done;
  Superseded += other.Superseded;
  Needless += other.Needless;
  Absent += other.Absent;
  Lost += other.Lost;
  return *this;
}

void Ledger::Ended(const ptzd::Exchange& exchange) {
  ++Exchanges_;
  if (exchange.ErrorNumber != 0) return;
  const bool isHTTP = exchange.Link == ptzd::ExchangeLink::HTTP;
  if (!isHTTP && exchange.Sent.empty()) return;  // a line that was opened
  const std::lock_guard lock(Mutex_);
  if (exchange.Method == "GET") LastURL_ = exchange.URL;
  const auto entry = Open_.try_emplace(KeyOf(exchange), 0).first;
  if (++entry->second == 0) Open_.erase(entry);
}

void Ledger::Settle(const std::vector<std::string>& logged) {
  const std::lock_guard lock(Mutex_);
  for (const auto& key : logged) {
    const auto entry = Open_.try_emplace(key, 0).first;
    if (--entry->second == 0) Open_.erase(entry);
  }
}

std::vector<std::string> Ledger::Missing() const {
  const std::lock_guard lock(Mutex_);
  std::vector<std::string> missing;
  for (const auto& [key, count] : Open_)
    for (long i = 0; i < count; ++i) missing.push_back(key);
  return missing;
}

std::string Ledger::LastURL() const {
  const std::lock_guard lock(Mutex_);
  return LastURL_;
}

LoadCamera::LoadCamera(const SimulatedSite::Camera& camera, std::shared_ptr<ptzd::SerialPortPool> ports,
                       std::int32_t portNumber)
    : Driver_(camera.Driver) {
  ptzd::PropertyBag options;
  if (camera.Address.starts_with('/'))
    options.WriteProperty("COMPort", portNumber);
  else
    options.WriteProperty("Address", camera.Address);
  options.WriteProperty("Feed", "3");  // of a remote system, which has several
  ptzd::CameraSettings settings;
  settings.Driver = camera.Driver;
  settings.Options = options.Contents();
  settings.Platform.Exchanges = Ledger_;
  settings.Ports = std::move(ports);
  settings.WatchesMoves = false;
  settings.Lease = 200ms;
  settings.IdleTime = 1s;
  settings.LongestPause = 2s;
  Control_ = std::make_unique<ptzd::CameraControl>(std::move(settings));
}

bool LoadCamera::Replies() const { return Driver_ != "QVPTZ.Pelco" && Driver_ != "QVPTZ.Secubest"; }

std::string LoadCamera::BareURL() const {
  return Driver_ == "QVPTZ.Sanyo" ? "" : Ledger_->LastURL();  // which wants the session of its client
}

bool LoadCamera::IsFulfilled(Kind kind, const ptzd::WishOutcome& outcome) {
  // A drive is over when its lease is.
  if (kind == Kind::Drive && outcome.Result == ptzd::WishResult::Stopped) return true;
  return ptzd::IsDone(outcome.Result);
}

ptzd::Told LoadCamera::Accounts(Kind kind) {
  {
    const std::lock_guard lock(Mutex_);
    ++Account_.Wished;
  }
  ++Outstanding_;
  return [this, kind, wished = Clock::now()](const ptzd::WishOutcome& outcome) {
    using enum ptzd::WishResult;
    const bool wasAway = !IsHere() || Clock::time_point(Clock::duration(BackAt_)) >= wished;
    const auto result = outcome.Result;
    const bool isMove = kind == Kind::Place || kind == Kind::Step || kind == Kind::Zoom;
    {
      const std::lock_guard lock(Mutex_);
      if (IsFulfilled(kind, outcome)) {
        ++Account_.Done;
      } else if (result == Stopped || result == Replaced) {
        ++Account_.Superseded;
      } else if (isMove && (result == NotSent || outcome.ErrorNumber == ptzd::ErrorOverflow)) {
        ++Account_.Needless;
      } else if (wasAway) {
        ++Account_.Absent;
      } else {
        ++Account_.Lost;
        if (Complaints_.size() < MostComplaints)
          Complaints_.push_back(Driver_ + ", " + Name(kind) + ": " + std::string(ptzd::Name(result)) + ", " +
                                outcome.Text);
      }
    }
    --Outstanding_;
  };
}

ptzd::Wish LoadCamera::Make(Kind kind, unsigned turn, ptzd::Told told) {
  auto& control = *Control_;
  const auto sign = turn % 2 != 0 ? 1.0F : -1.0F;
  switch (kind) {
    case Kind::Step:
      return control.MoveBy(sign * 8, sign * 6, std::move(told));
    case Kind::Place:
      return control.MoveTo(Within(Data().PanRange, turn), Within(Data().TiltRange, turn / 17), {},
                            std::move(told));
    case Kind::Zoom:
      return control.Zoom(turn % 2 != 0 ? ptzd::ZoomIn : ptzd::ZoomOut, 1, std::move(told));
    case Kind::Iris:
      return control.Iris(turn % 2 != 0 ? ptzd::IrisOpen : ptzd::IrisClose, std::move(told));
    case Kind::Focus:
      return control.Focus(turn % 2 != 0 ? ptzd::FocusNear : ptzd::FocusFar, std::move(told));
    case Kind::Preset:
      return control.GotoPreset(1, std::move(told));
    case Kind::Reading:
      return control.ReadPosition(std::move(told));
    case Kind::Drive:
      break;
  }
  const ptzd::DriveSpeeds speeds{
      .PanTilt = ptzd::DriveSpeeds::Head{Speed(Data().PanSpeed, turn), Speed(Data().TiltSpeed, turn)}};
  auto drive = control.DriveAt(speeds, {}, std::move(told));
  drive.Leave();
  return std::move(drive.Wish);
}

ptzd::Wish LoadCamera::Stop() { return Control_->Stop(Accounts(Kind::Reading)); }

Answers LoadCamera::Account() const {
  const std::lock_guard lock(Mutex_);
  return Account_;
}

std::vector<std::string> LoadCamera::Complaints() const {
  const std::lock_guard lock(Mutex_);
  return Complaints_;
}

bool LoadCamera::IsBack() {
  if (Outstanding_ > 0) return false;
  const auto link = Control_->State().Link;
  if (link != ptzd::LinkHealth::Up && link != ptzd::LinkHealth::Untried) return false;
  BackAt_ = Clock::now().time_since_epoch().count();
  Presence_ = Presence::Here;
  return true;
}
