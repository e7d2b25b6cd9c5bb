#pragma once

#include <boost/asio/steady_timer.hpp>

#include <chrono>
#include <cstdint>
#include <deque>
#include <future>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "common/Credentials.h"
#include "gateway/core/Gate.h"
#include "gateway/mqtt/Broker.h"
#include "gateway/mqtt/HomeAssistant.h"

namespace ptzgate {

/// The cameras at an MQTT broker, as docs/ptzgate.md has it; nothing where the settings name none. Used on
/// the gateway's thread.
///
/// A camera belongs to one gateway, whose name stands in its topic "owner". That topic is read before it is
/// written: this gateway publishes on a topic of its own, and what comes before that comes back is all that
/// there was.
class MQTT {
 public:
  /// Raises `ptzd::InputError` where the password for the broker is nowhere.
  explicit MQTT(Gate& gate);
  /// Stops what is driven by MQTT, and tells the broker that the gateway has gone; blocks for that, 2 s at
  /// most.
  ~MQTT();
  MQTT(const MQTT&) = delete;
  MQTT& operator=(const MQTT&) = delete;

  /// Takes over what changed in the gateway's settings. What cannot be is told, and all is as before.
  void Reload();

 private:
  /// A camera as it stands at the broker.
  struct Offered {
    std::string Owner;  ///< of what the broker told; empty: nobody
    bool IsOurs = false;
    std::string State, About, Available;  ///< as published
    std::chrono::steady_clock::time_point WhenState, WhenAbout;
    std::unique_ptr<HeldDrive> Drive;
    nlohmann::json Driven;  ///< what was wished of it
    std::uint64_t DriveNumber = 0;
    /// Messages that must not be obeyed twice.
    std::deque<std::pair<std::chrono::steady_clock::time_point, std::string>> Once;
  };

  Client Who() const;
  std::string Address() const;

  // The connection.
  void Begin();
  void Connected();
  void Lost(const std::string& why);
  void Part();
  void StopDrives();
  void Came(const Broker::Message& message);

  // Whose a camera is.
  void ReconcileSoon();
  void Reconcile();
  void Ask();
  void Settle();
  void OwnerCame(const std::string& name, const std::string& owner);
  void Claim(const std::string& name);
  void Own(const std::string& name, Offered& offered);
  void Disown(const std::string& name, Offered& offered);
  void Withdraw(const std::string& name);
  void WithdrawAll();

  // What is told.
  void Changed(const std::string& name);
  void TellLater(const std::string& name);
  void TellWhatChanged();
  void Tell(const std::string& name, Offered& offered);
  void TellAbout(GateCamera& camera, Offered& offered);
  void TellList();
  void PublishDiscovery(const std::string& name, const DiscoveryMessages& wanted);
  void Publish(const std::string& topic, const std::string& payload, bool isRetained = true);
  void Answer(const std::string& name, const std::string& word, const nlohmann::json& id,
              nlohmann::json answer);

  // What is wished.
  void Obey(const std::string& name, Offered& offered, const std::string& word,
            const Broker::Message& message);
  void Do(GateCamera& camera, Offered& offered, const std::string& word, const nlohmann::json& id,
          const nlohmann::json& body);
  void Drive(GateCamera& camera, Offered& offered, const nlohmann::json& id, const nlohmann::json& body);
  /// Raises `Refusal` where the same came shortly before.
  void DemandNew(Offered& offered, const std::string& message);

  Gate& Gate_;
  MQTTSettings Settings_;
  ptzd::Login Login_;
  /// One for all: the broker does not tell who wishes.
  const std::uint64_t Session_ = NextSession();
  std::unique_ptr<Broker> Broker_;
  std::shared_future<void> Parted_;  ///< from the broker that was before
  bool IsConnected_ = false;
  bool IsReady_ = false;   ///< what stood at the broker is known
  std::size_t Asked_ = 0;  ///< what comes back until then
  std::map<std::string, Offered> Offered_;
  std::map<std::string, DiscoveryMessages> Discovery_;  ///< at the broker, by `DiscoveryID` of the camera
  /// Cameras of this gateway when it ran last, which it has no more, and whose they are now.
  std::map<std::string, std::string> Before_;
  std::string List_;          ///< of cameras, as published
  std::uint64_t Drives_ = 0;  ///< counts them
  std::set<std::string> Untold_;
  bool IsTelling_ = false, IsReconciling_ = false;
  boost::asio::steady_timer ReadyTimer_, RetryTimer_, TellTimer_;
  std::chrono::milliseconds Pause_;
  std::chrono::steady_clock::time_point WhenReady_;
  std::string WhyLost_;  ///< as told; empty: not since it was connected
  std::shared_ptr<void> Watch_;
  std::shared_ptr<int> Life_ = std::make_shared<int>();
};

}  // namespace ptzgate
