#pragma once

#include <memory>
#include <string>

#include "gateway/access/HTTPAccess.h"
#include "gateway/core/Gate.h"
#include "gateway/web/Call.h"

namespace ptzgate {

/// How the gateway is, for whoever supervises it: `/healthz`, which anybody may ask, and `/metrics`, as
/// Prometheus reads it, for users.
class Status {
 public:
  Status(Gate& gate, HTTPAccess& access) : Gate_(gate), Access_(access) {}

  static bool Has(const std::string& path) { return path == "/healthz" || path == "/metrics"; }
  void Handle(const std::shared_ptr<Call>& call);

 private:
  std::string MetricsText() const;

  Gate& Gate_;
  HTTPAccess& Access_;
};

}  // namespace ptzgate
