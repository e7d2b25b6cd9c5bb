#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "SimulatedSite.h"

using SteadyClock = std::chrono::steady_clock;

/// Something that clients wish of the cameras of one make, and what such a camera gets of it.
struct GateWish {
  std::string Word;     ///< as the gateway has it: "stop", "go"
  nlohmann::json Body;  ///< with what
  /// One of these the camera logs for it; with `IsAnyOther` one of all others.
  std::set<std::string> Keys;
  bool IsAnyOther = false;

  bool IsDrive() const { return Word == "drive"; }
  /// Where the camera is set going by it, to somewhere.
  bool IsMove() const { return Word == "go" || Word == "move" || Word == "zoom"; }
};

/// What cameras get of a stop may be another thing after each motion.
struct GateDrive {
  GateWish Begin, Stop;
};

struct GateMake {
  std::vector<GateWish> Wishes;   ///< a stop among them
  std::vector<GateDrive> Drives;  ///< in two directions, or none
};

/// One simulated camera, as clients know it. Members may be called on any thread.
class Station {
 public:
  Station(SimulatedSite& site, std::size_t index) : Site_(site), Index_(index) {}

  std::size_t Index() const { return Index_; }
  const std::string& Driver() const { return Site_.Cameras()[Index_].Driver; }
  /// Whether it says anything; else what is written may still be on its way.
  bool Replies() const { return Driver() != "QVPTZ.Pelco" && Driver() != "QVPTZ.Secubest"; }

  /// When the camera had that, since a time; waits for it for so long. Nothing where it never did.
  std::optional<SteadyClock::time_point> Got(const GateWish& wish, SteadyClock::time_point since,
                                             std::chrono::milliseconds wait);
  /// All that came from a time until another.
  std::set<std::string> GotBetween(SteadyClock::time_point since, SteadyClock::time_point until);

  bool IsMoving() { return Site_.IsMoving(Index_); }
  void Leave(const std::string& fault);
  void Return();
  /// It is there again, as the gateway says.
  void IsBack();
  /// Whether it was away or on its way back at any time since then.
  bool WasAway(SteadyClock::time_point since) const {
    return IsAway_ || SteadyClock::time_point(SteadyClock::duration(BackAt_)) >= since;
  }
  bool IsHere() const { return !IsAway_; }
  std::vector<std::string> Violations() const;

 private:
  void Take();

  SimulatedSite& Site_;
  const std::size_t Index_;
  std::atomic<bool> IsAway_ = false;
  std::atomic<SteadyClock::rep> BackAt_ = SteadyClock::time_point::min().time_since_epoch().count();
  mutable std::mutex Mutex_;
  std::deque<std::pair<SteadyClock::time_point, std::string>> Log_;
  std::vector<std::string> Violations_;
};

/// What a client was told of a wish.
struct GateAnswer {
  /// The gateway closed the connection.
  static constexpr char CutOff[] = "cut off";

  bool IsDone = false;
  std::string Result;  ///< "arrived", or why it was refused; empty: nothing came in all the time
  std::string Text;
};

/// A wish that was sent to the gateway.
struct GateTicket {
  Station& Camera;
  const GateWish& Wish;
  SteadyClock::time_point Began = SteadyClock::now();
};

/// The account of all wishes. Members may be called on any thread.
class GateBook {
 public:
  struct Counts {
    std::size_t Wished = 0, Done = 0, Superseded = 0, Needless = 0, Absent = 0, Lost = 0, Killed = 0,
                CutOff = 0;
    std::size_t Stops = 0, Leases = 0, Refused = 0;  ///< of these, as the gateway should have counted them
    std::size_t UnseenLeases = 0;  ///< drives that may have ended with their lease unseen, at most
  };

  /// A wish is about to be sent.
  GateTicket Begin(Station& camera, const GateWish& wish);
  /// What became of it; looks into the camera's log where it is said to be done.
  void Judge(const GateTicket& ticket, const GateAnswer& answer);
  /// Its client was killed in mid-drive at that time. Waits for the camera's stop.
  void JudgeKilled(const GateTicket& drive, const GateWish& stop, SteadyClock::time_point killed,
                   std::chrono::milliseconds lease);
  void MayEndUnseen() {
    Change([](Counts& counts) { ++counts.UnseenLeases; });
  }

  /// Something that must hold, and did not.
  void Complain(const std::string& what);
  std::vector<std::string> Complaints() const;
  Counts Now() const;
  /// Milliseconds from the wish until the camera had it, since the last call.
  std::vector<double> TakeStops();
  std::string DriverOfLongestStop() const;
  /// Milliseconds from a client's end until its camera had its stop.
  std::vector<double> KilledStops() const;

 private:
  template <typename Work>
  void Change(const Work& work) {
    const std::lock_guard lock(Mutex_);
    work(Counts_);
  }

  mutable std::mutex Mutex_;
  Counts Counts_;
  std::vector<double> Stops_, KilledStops_;
  std::pair<double, std::string> Longest_{};
  std::map<std::string, std::size_t> Complaints_;  ///< how often
};
