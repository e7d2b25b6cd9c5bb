#pragma once

#include <boost/asio/steady_timer.hpp>

#include <chrono>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "gateway/core/Gate.h"
#include "gateway/onvif/Asked.h"

namespace ptzgate {

/// What ONVIF's clients set going. A client of theirs has no connection to lose, so a drive belongs to this
/// until its time is over, it is stopped or replaced. Used on the gateway's thread.
class Motions {
 public:
  explicit Motions(Gate& gate);
  ~Motions();
  Motions(const Motions&) = delete;
  Motions& operator=(const Motions&) = delete;

  /// Has something done; `answer` goes out once the camera took it, a fault where it does not. Raises
  /// `Refusal`. `done` is called when all is over.
  void Do(const Asked& asked, const Order& order, Element answer, std::function<void()> done = {});
  /// Drives for a time. Axes that are not told go on as they do. Raises `Refusal`.
  void Drive(const Asked& asked, const ptzd::DriveSpeeds& speeds, std::chrono::milliseconds time,
             Element answer);
  /// Stops what is told. Where that is one of pan-tilt and zoom, and the client drives both, the other goes
  /// on for what is left of its time; else all stops. Raises `Refusal`.
  void Stop(const Asked& asked, bool panTilt, bool zoom, Element answer);

  /// Presets that are being saved, which nobody else may take meanwhile.
  std::set<std::string>& Saving(const std::string& camera) { return Saving_[camera]; }

 private:
  struct Waiting;
  struct Driven {
    std::string Camera;
    std::uint64_t Session = 0;
    ptzd::DriveSpeeds Speeds;
    std::chrono::steady_clock::time_point Until;
    std::unique_ptr<HeldDrive> Held;
  };

  std::shared_ptr<Waiting> Wait(const Asked& asked, Element answer);
  void End(const std::shared_ptr<Waiting>& waiting, const ptzd::WishOutcome& outcome);
  /// Of a camera that leaves the site.
  void Forget(const GateCamera& camera);
  /// What a client drives now, or drove last; null for nothing.
  const Driven* DrivenBy(const Asked& asked) const;

  std::list<std::shared_ptr<Waiting>> Waiting_;
  /// By their number. One that was replaced stays until that is told, since to let it go stops the camera.
  std::map<std::uint64_t, Driven> Drives_;
  std::map<std::string, std::set<std::string>> Saving_;
  std::uint64_t LastDrive_ = 0;
  std::shared_ptr<void> Watch_;
  std::shared_ptr<int> Life_ = std::make_shared<int>();
};

/// What a client is told of a refusal.
Fault FaultOf(const Refusal& refusal);

}  // namespace ptzgate
