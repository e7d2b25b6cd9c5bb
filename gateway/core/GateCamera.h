#pragma once

#include <ptzd/CameraControl.h>
#include <ptzd/PTZNamedPreset.h>

#include <boost/asio/steady_timer.hpp>

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cameras/NamedCamera.h"
#include "gateway/core/Client.h"
#include "gateway/core/GateFile.h"
#include "gateway/core/Order.h"
#include "gateway/core/Ranges.h"
#include "gateway/core/Refusal.h"

namespace ptzgate {

class Gate;
class GateCamera;
class TourRun;

/// A drive that a client began. Its camera stops when this dies before the drive is over. Used on the
/// gateway's thread.
class HeldDrive {
 public:
  HeldDrive(ptzd::CameraControl::Drive drive, std::weak_ptr<GateCamera> camera, Client client,
            std::chrono::milliseconds lease);
  ~HeldDrive();
  HeldDrive(const HeldDrive&) = delete;
  HeldDrive& operator=(const HeldDrive&) = delete;

  /// For as long again as its lease is, from now; the client holds the camera for longer, too. False where
  /// he does not hold it any more.
  bool Renew();

 private:
  ptzd::CameraControl::Drive Drive_;
  const std::weak_ptr<GateCamera> Camera_;
  const Client Client_;
  const std::chrono::milliseconds Lease_;
};

/// A camera of the site, with who holds it and what was seen of it. All members are for the gateway's thread,
/// and answer at once; what they are given to call is called on that thread, also where the camera leaves the
/// site meanwhile.
///
/// Control: whoever moves a camera holds it from then on, until `GateSettings::Hold` after his last wish, his
/// drive's end, or `Release`. Others are refused meanwhile, but those of a greater priority, who take it
/// over, and those who take it on purpose with the same. A stop needs no control.
class GateCamera : public std::enable_shared_from_this<GateCamera> {
 public:
  /// As much of an exchange as people are shown.
  struct Seen {
    std::chrono::system_clock::time_point When;
    std::string Text;  ///< as `ptzd::Describe`
    bool Failed = false;
  };
  struct TrackPoint {
    std::chrono::steady_clock::time_point When;
    float Pan = 0, Tilt = 0;
  };
  struct Holder {
    ptzgate::Client Client;
    std::chrono::steady_clock::time_point Until;
  };
  using Told = ptzd::Told;

  /// Does nothing before `Begin`.
  GateCamera(Gate& gate, ptzd::NamedCamera camera, ptzd::CameraSettings settings);
  ~GateCamera();
  GateCamera(const GateCamera&) = delete;
  GateCamera& operator=(const GateCamera&) = delete;

  /// Connects the camera where that is wished, and stops it where it may be moving since the gateway was
  /// killed.
  void Begin();
  /// Stops it for nobody's sake; the answer is fulfilled when the camera took that.
  std::shared_future<ptzd::WishOutcome> StopAtEnd();
  /// Ends all that goes on, and answers what may block when it dies: until the camera took its stop. The
  /// camera can do nothing from then on.
  std::unique_ptr<ptzd::CameraControl> End();

  const std::string& Name() const { return Camera_.Name; }
  const ptzd::NamedCamera& Description() const { return Camera_; }
  const ptzd::DriverClass& Driver() const { return Control_->Driver(); }
  const Ranges& RangesNow() const { return Ranges_; }
  ptzd::CameraState State() const { return Control_->State(); }
  /// Of the connected camera, and else what its driver claims.
  ptzd::Capabilities CapabilitiesNow() const;

  /// Has something done. Raises `Refusal`. `told` is called once it is done: for a move, when the camera
  /// rests or cannot be watched. `sent` is called once when the camera took it, or it came to nothing.
  void Do(const Client& client, const Order& order, Told told = {}, Told sent = {});
  /// Begins a drive, for `GateSettings::Lease` where no lease is named, `LongestLease` at most. Raises
  /// `Refusal`. `told` is called when it is over: stopped, replaced, or not taken by the camera; `sent` as
  /// above.
  [[nodiscard]] std::unique_ptr<HeldDrive> Drive(const Client& client, const ptzd::DriveSpeeds& speeds,
                                                 std::optional<std::chrono::milliseconds> lease,
                                                 Told told = {}, Told sent = {});

  /// Raises `Refusal` for whoever is no administrator of it.
  void DemandAdministrator(const Client& client, const std::string& what);
  /// Takes the camera from somebody of the same or a lesser priority. Raises `Refusal`.
  void Take(const Client& client);
  /// Gives it back; nothing where the client does not hold it. What he drives goes on to the end of its
  /// lease.
  void Release(const Client& client);
  /// Somebody's connection went: his control ends. A tour that he began goes on.
  void Forget(std::uint64_t session);
  /// After the users changed: whoever may not move it any more does not.
  void UsersChanged();
  /// Who holds it now; null for nobody.
  const Holder* HeldBy() const;

  /// In the order of their numbers, then as the camera lists them. Those without a name are told up to the
  /// camera's count where that is at most 256.
  std::vector<Preset> Presets() const;
  /// Whether the gateway keeps its presets, as places, since the camera has none.
  bool KeepsPlaces() const;
  /// By its token, or its name. Raises `Refusal`.
  Preset FindPreset(const std::string& word) const;

  /// The last 50, the oldest first.
  const std::deque<Seen>& Exchanges() const { return Exchanges_; }
  /// Of the last minute.
  const std::deque<TrackPoint>& Track() const { return Track_; }
  /// The tour that goes on; empty for none.
  std::string Tour() const;

  /// Changes of what the camera is told of: its state, holder, presets, tour. Counts up.
  std::uint64_t Version() const { return Version_; }

 private:
  friend class HeldDrive;
  class Sink;

  enum class Kind { Drive, Move, Stop, Other };

  template <typename Work>
  auto Audited(const Client& client, const std::string& what, const Work& work);
  /// Raises `Refusal` for whoever may not do that.
  void Check(const Client& client, const std::string& what, Role role) const;
  void CheckQueue() const;
  void Gain(const Client& client, bool onPurpose);
  /// Has somebody hold it until `GateSettings::Hold` after a time.
  void Hold(const Client& client, std::chrono::milliseconds beyond = {});
  /// What carries a wish's outcome to the audit, and to `told`, on the gateway's thread.
  ptzd::Told Telling(const Client& client, std::string what, Told told, Kind kind,
                     std::optional<MoveTo> to = {});
  void Judge(const ptzd::WishOutcome& outcome, const std::optional<MoveTo>& to, Told then);
  bool IsAt(const MoveTo& place) const;
  std::optional<MoveTo> PlaceOf(const Order& order) const;
  /// What carries what came of sending a wish to `sent`, on the gateway's thread.
  ptzd::Told TellingSent(Told sent, std::optional<MoveTo> to = {});
  void Carry(const Client& client, const Order& order, const ptzd::WishTold& told);
  /// It may be moving from here on, whatever becomes of the gateway.
  void Mark();
  void ClearMark(bool isOver);
  void Save(const SavePreset& wish, const ptzd::WishTold& told);
  void SavePlace(const SavePreset& wish, const ptzd::WishTold& told);
  std::int32_t FreePreset() const;
  void AskPresets();
  void StateChanged();
  void Remember(Seen seen);
  void Changed();
  void StartTourRun(const Client& client, const std::string& name, const ptzd::Tour& tour);
  void EndTourRun();

  Gate& Gate_;
  const ptzd::NamedCamera Camera_;
  const Ranges Ranges_;
  std::shared_ptr<Sink> Sink_;
  std::vector<ptzd::PTZNamedPreset> Named_;  ///< the camera's own
  bool WasConnected_ = false;
  std::optional<Holder> Holder_;
  const HeldDrive* LatestDrive_ = nullptr;
  /// Shared by whatever may set it in motion and is not over.
  const std::shared_ptr<int> UnderWay_ = std::make_shared<int>();
  std::deque<Seen> Exchanges_;
  std::deque<TrackPoint> Track_;
  std::uint64_t Version_ = 0;
  boost::asio::steady_timer HoldTimer_;
  std::unique_ptr<ptzd::CameraControl> Control_;
  std::shared_ptr<void> Subscription_;
  std::unique_ptr<TourRun> Tour_;
};

}  // namespace ptzgate
