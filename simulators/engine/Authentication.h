#pragma once

#include <map>
#include <optional>
#include <string>

#include "simulators/engine/Faults.h"
#include "simulators/engine/RequestLog.h"

namespace ptzsim {

/// The server's side of Basic (RFC 7617) and Digest (RFC 7616 with MD5 and qop=auth). Not locked.
class Authentication {
 public:
  struct Refusal {
    std::string Challenge;  ///< value for WWW-Authenticate
    std::string Violation;  ///< what no correct client sends; empty for merely missing or wrong credentials
  };

  /// Nothing when the request may pass.
  std::optional<Refusal> Check(const Request& request, const FaultSet& faults);

 private:
  std::optional<Refusal> CheckBasic(const Request& request, const std::string& credentials);
  std::optional<Refusal> CheckDigest(const Request& request, const std::string& credentials, bool staleOnce);
  Refusal NewDigest(bool stale, std::string violation = {});

  std::map<std::string, unsigned long> Nonces_;  ///< each with the highest count a client has used with it
  bool StaleTold_ = false;
};

}  // namespace ptzsim
