#pragma once

#include <memory>
#include <string>
#include <utility>

#include "gateway/access/HTTPAccess.h"
#include "gateway/core/Gate.h"
#include "gateway/onvif/DigestAccess.h"
#include "gateway/onvif/Discovery.h"
#include "gateway/onvif/Motions.h"
#include "gateway/web/Call.h"

namespace ptzgate {

/// Each camera as an ONVIF device, whose services are at `/onvif/CAMERA/device_service`, `media_service` and
/// `ptz_service`; on a port of the camera's own without its name. Which service an operation belongs to is
/// known by its name; all of them are answered at each of the addresses. Used on the gateway's thread.
class ONVIF {
 public:
  ONVIF(Gate& gate, HTTPAccess& access) : Gate_(gate), Access_(access), Logins_(gate), Motions_(gate) {}

  /// Whether a path is this face's.
  static bool Has(const std::string& path) { return path.starts_with("/onvif/"); }
  /// `camera`: whose own port it came by; empty: its path says which.
  void Handle(const std::shared_ptr<Call>& call, const std::string& camera = {});
  /// Tells those who look for cameras on the network where these are, from now on there. Raises
  /// `std::runtime_error` where the system does not let it.
  void Announce(Discovery::WhereIs whereIs) {
    EndAnnouncing();  // the goodbye of the old comes before the greeting of the new
    Discovery_ = std::make_unique<Discovery>(Gate_, std::move(whereIs));
  }
  void EndAnnouncing() { Discovery_.reset(); }
  bool IsAnnouncing() const { return Discovery_ != nullptr; }

 private:
  void Serve(const std::shared_ptr<Call>& call, const std::string& camera, const std::string& base);

  Gate& Gate_;
  HTTPAccess& Access_;
  DigestAccess Logins_;
  Motions Motions_;
  std::unique_ptr<Discovery> Discovery_;
};

}  // namespace ptzgate
