#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <ptzd/CameraControl.h>
#include "SimulatedSite.h"

/// What became of the wishes for some cameras.
struct Answers {
  std::size_t Wished = 0, Done = 0;
  std::size_t Superseded = 0;  ///< by a later wish or a stop
  std::size_t Needless = 0;    ///< the camera was there, or goes no further, and nothing was sent
  std::size_t Absent = 0;      ///< the camera was away or silent meanwhile
  std::size_t Lost = 0;        ///< none of these

  std::size_t All() const { return Done + Superseded + Needless + Absent + Lost; }
  Answers& operator+=(const Answers& other);
};

/// What a camera is said to have taken, against what it says it got.
class Ledger final : public ptzd::ExchangeSink {
 public:
  void Ended(const ptzd::Exchange& exchange) override;

  /// Strikes out what the camera logged.
  void Settle(const std::vector<std::string>& logged);
  /// Requests that the camera is said to have taken and did not log.
  std::vector<std::string> Missing() const;
  std::size_t Exchanges() const { return Exchanges_; }
  /// Of the last GET that went well; empty before.
  std::string LastURL() const;

 private:
  mutable std::mutex Mutex_;
  std::map<std::string, long> Open_;  ///< said to be taken beyond those logged; no zeros
  std::string LastURL_;
  std::atomic<std::size_t> Exchanges_ = 0;
};

/// A camera of the site under its control, with an account of all that was wished of it.
class LoadCamera {
 public:
  using Clock = std::chrono::steady_clock;
  enum class Kind { Step, Place, Zoom, Iris, Focus, Preset, Reading, Drive };
  static constexpr Kind Kinds[] = {Kind::Step,  Kind::Place,  Kind::Zoom,    Kind::Iris,
                                   Kind::Focus, Kind::Preset, Kind::Reading, Kind::Drive};

  LoadCamera(const SimulatedSite::Camera& camera, std::shared_ptr<ptzd::SerialPortPool> ports,
             std::int32_t portNumber);

  ptzd::CameraControl& Control() { return *Control_; }
  const ptzd::DriverData& Data() const { return *Control_->Driver().Data; }
  const std::string& Driver() const { return Driver_; }
  ::Ledger& Ledger() { return *Ledger_; }
  /// Whether it says anything; else what is written may still be on its way.
  bool Replies() const;
  /// What any client may ask of it, as its driver did; empty for none.
  std::string BareURL() const;

  /// Wishes for something; `turn` chooses how far and which way. Accounts for the answer.
  ptzd::Wish Make(Kind kind, unsigned turn) { return Make(kind, turn, Accounts(kind)); }
  /// Finds out whether it does something, unaccounted for. Blocks until it is done.
  ptzd::WishOutcome Try(Kind kind) { return Make(kind, 1, {}).Done.get(); }
  ptzd::Wish Stop();
  /// Done, as far as a wish of this kind is.
  static bool IsFulfilled(Kind kind, const ptzd::WishOutcome& outcome);

  std::size_t Outstanding() const { return Outstanding_; }
  Answers Account() const;
  /// What was told of the wishes that were lost, of some of them.
  std::vector<std::string> Complaints() const;

  /// A camera that returns is left alone until what was wished of it meanwhile is answered.
  enum class Presence { Here, Leaving, Away, Returning };
  void Is(Presence presence) { Presence_ = presence; }
  bool IsHere() const { return Presence_ == Presence::Here; }
  bool TakesWishes() const { return Presence_ == Presence::Here || Presence_ == Presence::Away; }
  /// Whether the control has it again, after its return; its absence is over then.
  bool IsBack();

 private:
  ptzd::Told Accounts(Kind kind);
  ptzd::Wish Make(Kind kind, unsigned turn, ptzd::Told told);

  std::string Driver_;
  std::shared_ptr<::Ledger> Ledger_ = std::make_shared<::Ledger>();
  std::atomic<std::size_t> Outstanding_ = 0;
  std::atomic<Presence> Presence_ = Presence::Here;
  std::atomic<Clock::rep> BackAt_ = Clock::time_point::min().time_since_epoch().count();
  mutable std::mutex Mutex_;
  Answers Account_;
  std::vector<std::string> Complaints_;
  std::unique_ptr<ptzd::CameraControl> Control_;  // last: it ends first, and tells what it gave up
};
