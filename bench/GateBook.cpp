#include "GateBook.h"

#include <algorithm>
#include <thread>

namespace {

using namespace std::chrono_literals;

constexpr auto KeptLog = 120s;
/// What a machine that does other things may be late.
constexpr auto Stall = 1s;
/// What was handed to a line that says nothing may be on its way.
constexpr std::chrono::milliseconds TimeOnTheWay = 2s;

double Milliseconds(SteadyClock::duration time) {
  return std::chrono::duration<double, std::milli>(time).count();
}

}  // namespace

void Station::Take() {
  auto log = Site_.Take(Index_);
  for (std::size_t i = 0; i < log.Requests.size(); ++i)
    Log_.emplace_back(log.When[i], std::move(log.Requests[i]));
  for (auto& violation : log.Violations) Violations_.push_back(std::move(violation));
  while (!Log_.empty() && Log_.front().first < SteadyClock::now() - KeptLog) Log_.pop_front();
}

std::set<std::string> Station::GotBetween(SteadyClock::time_point since, SteadyClock::time_point until) {
  const std::lock_guard lock(Mutex_);
  Take();
  std::set<std::string> keys;
  for (const auto& [when, key] : Log_)
    if (when >= since && when < until) keys.insert(key);
  return keys;
}

std::optional<SteadyClock::time_point> Station::Got(const GateWish& wish, SteadyClock::time_point since,
                                                    std::chrono::milliseconds wait) {
  for (const auto limit = SteadyClock::now() + wait;; std::this_thread::sleep_for(2ms)) {
    {
      const std::lock_guard lock(Mutex_);
      Take();
      for (const auto& [when, key] : Log_)
        if (when >= since && wish.Keys.contains(key) != wish.IsAnyOther) return when;
    }
    if (SteadyClock::now() >= limit) return std::nullopt;
  }
}

void Station::Leave(const std::string& fault) {
  IsAway_ = true;
  Site_.Break(Index_, fault);
}

void Station::Return() { Site_.Mend(Index_); }

void Station::IsBack() {
  BackAt_ = SteadyClock::now().time_since_epoch().count();
  IsAway_ = false;
}

std::vector<std::string> Station::Violations() const {
  const std::lock_guard lock(Mutex_);
  return Violations_;
}

GateTicket GateBook::Begin(Station& camera, const GateWish& wish) {
  Change([](Counts& counts) { ++counts.Wished; });
  return {camera, wish};
}

void GateBook::Judge(const GateTicket& ticket, const GateAnswer& answer) {
  auto& [camera, wish, began] = ticket;
  const bool isStop = wish.Word == "stop";
  const bool wasEnded = answer.Result == "stopped" || answer.Result == "replaced";
  const bool isNeedless = answer.Result == "not sent" || answer.Result == "out of range" ||
                          answer.Text == "it is there already" || answer.Text.ends_with("Overflow");
  std::optional<SteadyClock::time_point> got;
  // Where a move ended is the camera's affair, as long as it got it.
  const bool isTaken = answer.IsDone || answer.Result == "stalled" || answer.Result == "still moving" ||
                       (wish.IsDrive() && wasEnded);
  if (isTaken) got = camera.Got(wish, began, camera.Replies() ? 0ms : TimeOnTheWay);
  const bool wasAway = camera.WasAway(began);
  const auto fate = got                                   ? &Counts::Done
                    : answer.Result == GateAnswer::CutOff ? &Counts::CutOff
                    : wasAway                             ? &Counts::Absent
                    : !isStop && wasEnded                 ? &Counts::Superseded
                    : !isStop && isNeedless               ? &Counts::Needless
                                                          : &Counts::Lost;
  Change([&](Counts& counts) {
    ++(counts.*fate);
    if (isStop) ++counts.Stops;
    if (wish.IsDrive() && answer.Text.starts_with("its lease ended")) ++counts.Leases;
    if (answer.Result == "refused") ++counts.Refused;
    if (isStop && got && !wasAway) {
      Stops_.push_back(Milliseconds(*got - began));
      if (Stops_.back() > Longest_.first) Longest_ = {Stops_.back(), camera.Driver()};
    }
  });
  const auto what = camera.Driver() + ", " + wish.Word + ": ";
  if (answer.Result.empty())
    Complain(what + "never answered");
  else if (fate == &Counts::Lost)
    Complain(what +
             (isTaken ? answer.Result + answer.Text + ", never came" : answer.Result + ", " + answer.Text));
}

void GateBook::JudgeKilled(const GateTicket& drive, const GateWish& stop, SteadyClock::time_point killed,
                           std::chrono::milliseconds lease) {
  auto& camera = drive.Camera;
  std::optional<SteadyClock::time_point> got;
  for (const auto limit = killed + lease + TimeOnTheWay; !got && SteadyClock::now() < limit;) {
    if (camera.WasAway(drive.Began)) break;
    got = camera.Got(stop, killed, 100ms);
  }
  const bool wasAway = camera.WasAway(drive.Began);
  Change([&](Counts& counts) {
    ++counts.Killed;
    if (got && !wasAway) KilledStops_.push_back(Milliseconds(*got - killed));
  });
  // Its lease may have ended just before.
  if (wasAway || (got ? *got - killed <= lease + Stall : !camera.IsMoving())) return;
  Complain(camera.Driver() + " went on beyond its lease when its client was killed, " +
           (got ? std::to_string(Milliseconds(*got - killed)) + " ms" : "for ever"));
}

void GateBook::Complain(const std::string& what) {
  const std::lock_guard lock(Mutex_);
  ++Complaints_[what];
}

std::vector<std::string> GateBook::Complaints() const {
  const std::lock_guard lock(Mutex_);
  std::vector<std::string> complaints;
  for (const auto& [what, count] : Complaints_)
    complaints.push_back(what + " (" + std::to_string(count) + ")");
  return complaints;
}

GateBook::Counts GateBook::Now() const {
  const std::lock_guard lock(Mutex_);
  return Counts_;
}

std::vector<double> GateBook::TakeStops() {
  const std::lock_guard lock(Mutex_);
  return std::exchange(Stops_, {});
}

std::string GateBook::DriverOfLongestStop() const {
  const std::lock_guard lock(Mutex_);
  return Longest_.second;
}

std::vector<double> GateBook::KilledStops() const {
  const std::lock_guard lock(Mutex_);
  return KilledStops_;
}
