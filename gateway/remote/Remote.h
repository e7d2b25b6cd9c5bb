#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "gateway/access/HTTPAccess.h"
#include "gateway/core/Gate.h"
#include "gateway/web/Call.h"

namespace ptzgate {

/// The cameras as feeds of a remote system, for its driver in another installation: `/feedlist.xml`,
/// `/ptz/presets.xml`, `/ptz/control.htm`. Pan and tilt are moved by whole degrees; a joystick goes from -100
/// to 100, and what it drives stops when the connection that asked for it goes, or after `LongestLease`. A
/// client that keeps no connection drives for `Lease`. Used on the gateway's thread.
class Remote {
 public:
  Remote(Gate& gate, HTTPAccess& access) : Gate_(gate), Access_(access) {}

  static bool Has(const std::string& path);
  void Handle(const std::shared_ptr<Call>& call);
  /// To be told of every connection that ended.
  void Forget(std::uint64_t connection);

 private:
  /// What a connection drives.
  struct Joystick {
    ptzd::DriveSpeeds Speeds;
    std::unique_ptr<HeldDrive> Drive;
    std::uint64_t Number = 0;  ///< of the drive
  };
  using Key = std::pair<std::uint64_t, std::string>;  ///< connection and camera

  void Serve(const std::shared_ptr<Call>& call, const Client& client);
  void Control(const std::shared_ptr<Call>& call, const Client& client, GateCamera& camera);
  void Drive(const std::shared_ptr<Call>& call, const Client& client, GateCamera& camera,
             const ptzd::DriveSpeeds& change);

  Gate& Gate_;
  HTTPAccess& Access_;
  std::map<Key, Joystick> Joysticks_;
  std::uint64_t LastNumber_ = 0;
  std::shared_ptr<int> Life_ = std::make_shared<int>();
};

}  // namespace ptzgate
