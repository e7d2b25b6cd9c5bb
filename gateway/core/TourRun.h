#pragma once

#include <ptzd/CameraControl.h>

#include <boost/asio/steady_timer.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "cameras/Glide.h"
#include "cameras/TourFile.h"

namespace ptzgate {

/// Sends a camera round the stops of a tour, until its rounds are over or this dies; a drive of its own ends
/// then. A stop that fails is left out, after a pause that grows as long as they fail. On the gateway's
/// thread.
class TourRun {
 public:
  /// Begins at once. `isOver` is called after the last round, and may let this die. `failed` is told what a
  /// stop failed of. Both are called on the gateway's thread.
  TourRun(boost::asio::io_context& context, ptzd::CameraControl& control, std::string name,
          const ptzd::Tour& tour, std::function<void()> isOver,
          std::function<void(const std::string&)> failed);
  ~TourRun();
  TourRun(const TourRun&) = delete;
  TourRun& operator=(const TourRun&) = delete;

  const std::string& Name() const { return Name_; }

 private:
  using Milliseconds = std::chrono::milliseconds;

  void Begin();
  void Glide();
  void FollowGlide();
  void Await(Milliseconds time, void (TourRun::*then)());
  /// What is called with an outcome on the gateway's thread, unless this has died or gone on meanwhile.
  ptzd::Told Then(void (TourRun::*then)(const ptzd::WishOutcome&));
  void Arrived(const ptzd::WishOutcome& outcome);
  void Located(const ptzd::WishOutcome& outcome);
  void Followed(const ptzd::WishOutcome& outcome);
  void Glided(const ptzd::WishOutcome& outcome);
  void TooLong();
  void Fail(const std::string& why);
  void Next();

  boost::asio::io_context& Context_;
  ptzd::CameraControl& Control_;
  const std::string Name_;
  const ptzd::Tour Tour_;
  const std::function<void()> IsOver_;
  const std::function<void(const std::string&)> Failed_;
  std::shared_ptr<int> Life_ = std::make_shared<int>();
  std::uint64_t Step_ = 0;  ///< counts what is waited for
  std::size_t At_ = 0;
  std::int32_t Round_ = 0;
  Milliseconds FailurePause_;
  std::optional<ptzd::Glide> Glide_;
  ptzd::CameraControl::Drive Drive_;
  boost::asio::steady_timer Timer_, Longest_;
};

}  // namespace ptzgate
