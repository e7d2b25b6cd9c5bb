#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "gateway/access/HTTPAccess.h"
#include "gateway/core/Gate.h"
#include "gateway/web/Call.h"

namespace ptzgate {

/// How the gateway is, for whoever supervises it: `/healthz`, which anybody may ask, and `/metrics`, as
/// Prometheus reads it, for users.
class Status {
 public:
  /// `connections`: how many clients have by HTTP now.
  Status(Gate& gate, HTTPAccess& access, std::function<std::size_t()> connections)
      : Gate_(gate), Access_(access), Connections_(std::move(connections)) {}

  static bool Has(const std::string& path) { return path == "/healthz" || path == "/metrics"; }
  void Handle(const std::shared_ptr<Call>& call);

 private:
  Response Health() const;
  /// Of the cameras that a user may see.
  std::string MetricsText(const std::string& user) const;

  Gate& Gate_;
  HTTPAccess& Access_;
  std::function<std::size_t()> Connections_;
};

}  // namespace ptzgate
