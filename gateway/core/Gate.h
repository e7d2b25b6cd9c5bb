#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/steady_timer.hpp>

#include <chrono>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cameras/SerialLines.h"
#include "gateway/core/GateCamera.h"
#include "gateway/core/GateFile.h"
#include "gateway/core/Journal.h"
#include "gateway/core/Logins.h"
#include "gateway/core/Metrics.h"
#include "gateway/core/MotionMarks.h"
#include "gateway/core/PlacePresets.h"
#include "gateway/core/PresetNames.h"
#include "gateway/core/Refusal.h"
#include "gateway/core/Users.h"

namespace ptzgate {

/// The cameras of a site and all that its faces share. Used on the gateway's thread, the one that runs
/// `Context`, but where a class says otherwise.
class Gate {
 public:
  enum class Change { Added, Removed, Changed };
  /// Is called at a change of a camera, on the gateway's thread; a camera that changes quickly is told once
  /// for several of its changes.
  using Watcher = std::function<void(GateCamera&, Change)>;

  /// Raises `ptzd::InputError` for settings that do not fit, and for a camera whose password is nowhere.
  /// `stateFolder`: where names of presets are kept; empty: they are forgotten at the end.
  Gate(boost::asio::io_context& context, GateSettings settings, const std::string& stateFolder,
       Journal& journal);
  ~Gate();
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;

  /// Takes over what changed; cameras that did not change are not touched. Raises `ptzd::InputError` with
  /// everything as before, and what `last` raises, which is done when nothing else can fail any more.
  void Reload(GateSettings settings, const std::function<void(const GateSettings&)>& last = {});
  /// Stops what may be moving, without waiting for it, and refuses what comes from then on.
  void StopAll();
  /// The same, and ends all cameras. Blocks until each took its stop, for as long as said at most; how many
  /// did not is answered.
  std::size_t End(std::chrono::milliseconds longest);
  bool IsEnding() const { return IsEnding_; }

  boost::asio::io_context& Context() { return Context_; }
  const GateSettings& Settings() const { return Settings_; }
  const ptzgate::Users& Users() const { return Users_; }
  ptzgate::Logins& Logins() { return Logins_; }
  ptzgate::Journal& Journal() { return Journal_; }
  ptzgate::Metrics& Metrics() { return Metrics_; }
  const ptzgate::Metrics& Metrics() const { return Metrics_; }
  PresetNames& Names() { return Names_; }
  PlacePresets& Places() { return Places_; }
  MotionMarks& Marks() { return Marks_; }

  /// In the order of their names.
  std::vector<std::shared_ptr<GateCamera>> Cameras() const;
  /// Those that a user may see.
  std::vector<std::shared_ptr<GateCamera>> CamerasFor(const std::string& user) const;
  /// Raises `Refusal` where there is none of that name, or the user may not see it, which is told alike.
  std::shared_ptr<GateCamera> Find(const std::string& name, const std::string& user) const;

  /// Until the answer dies, which it may do while it is called.
  [[nodiscard]] std::shared_ptr<void> Watch(Watcher watcher);

 private:
  friend class GateCamera;

  void Tell(GateCamera& camera, Change change);
  /// Tells that a camera changed, soon.
  void TellSoon(const std::shared_ptr<GateCamera>& camera);
  void Leave(const std::shared_ptr<GateCamera>& camera);

  boost::asio::io_context& Context_;
  ptzgate::Journal& Journal_;
  GateSettings Settings_;
  ptzgate::Users Users_;
  ptzgate::Metrics Metrics_;
  PresetNames Names_;
  PlacePresets Places_;
  MotionMarks Marks_;
  ptzd::SerialLines Lines_;
  ptzgate::Logins Logins_;
  std::map<std::string, std::shared_ptr<GateCamera>> Cameras_;
  std::vector<std::weak_ptr<Watcher>> Watchers_;
  std::map<std::string, std::weak_ptr<GateCamera>> Dirty_;
  boost::asio::steady_timer DirtyTimer_;
  std::vector<std::future<void>> Leaving_;  ///< cameras that stop on threads of their own
  std::map<std::string, std::shared_future<ptzd::WishOutcome>> Stopping_;  ///< at the end
  bool IsEnding_ = false;
};

}  // namespace ptzgate
