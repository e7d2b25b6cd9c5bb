#pragma once

#include <boost/asio/steady_timer.hpp>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "gateway/access/HTTPAccess.h"
#include "gateway/api/CameraListing.h"
#include "gateway/core/Gate.h"
#include "gateway/web/Call.h"

namespace ptzgate {

class Live;
struct Route;

/// The cameras as JSON over HTTP: `/api/v1`, and what describes it, `/openapi.json`. Used on the gateway's
/// thread.
class API {
 public:
  API(Gate& gate, HTTPAccess& access);
  ~API();
  API(const API&) = delete;
  API& operator=(const API&) = delete;

  /// Whether a path is this face's.
  static bool Has(const std::string& path);
  void Handle(const std::shared_ptr<Call>& call);

 private:
  friend struct Route;
  /// A request whose client is known.
  struct Asked;
  using Handler = void (API::*)(const Asked&);

  static std::span<const Route> Routes();
  static nlohmann::json Description();

  void Serve(const Route& route, const std::shared_ptr<Call>& call, const Client& client,
             std::map<std::string, std::string> parts);

  void GetCameras(const Asked& asked);
  void GetCamera(const Asked& asked);
  void GetPresets(const Asked& asked);
  void GetControl(const Asked& asked);
  void GetSeen(const Asked& asked);
  void GetMe(const Asked& asked);
  void GetConnection(const Asked& asked);
  void ChangeConnection(const Asked& asked);
  void DoWish(const Asked& asked);
  void GoPreset(const Asked& asked);
  void ForgetPreset(const Asked& asked);
  void SavePreset(const Asked& asked);
  void EndTour(const Asked& asked);
  void BeginDrive(const Asked& asked);
  void RenewDrive(const Asked& asked);
  void TakeControl(const Asked& asked);
  void ReleaseControl(const Asked& asked);
  void LogOut(const Asked& asked);
  void BeginEvents(const Asked& asked);
  void BeginSocket(const Asked& asked);

  void Carry(const Asked& asked, const Order& order);
  template <typename Work>
  void ForEachListener(const Work& work);
  void TellStreams(GateCamera& camera, Gate::Change change);
  void CatchUpSoon();
  void KeepStreams();
  /// Ends those of whoever is not known any more as what he was.
  void CheckStreams();

  struct Reader;

  Gate& Gate_;
  HTTPAccess& Access_;
  CameraListing Listing_{Gate_};
  /// Drives of requests that are open, by session and camera.
  std::map<std::pair<std::uint64_t, std::string>, std::weak_ptr<std::unique_ptr<HeldDrive>>> Drives_;
  std::set<std::shared_ptr<Reader>> Readers_;  ///< of events
  std::set<std::shared_ptr<Live>> Sockets_;
  boost::asio::steady_timer KeepTimer_, CatchUpTimer_;
  bool IsCatchingUp_ = false;
  std::map<std::string, std::string> Healths_;  ///< of cameras, as they were told last
  std::shared_ptr<void> Watch_;
  std::shared_ptr<int> Life_ = std::make_shared<int>();
};

/// The answer to what was refused.
Response ProblemOf(const Refusal& refusal);
/// The same for an outcome that did not do what was wished.
Response AnswerOf(const ptzd::WishOutcome& outcome, bool wasDrive);

}  // namespace ptzgate
