#pragma once

#include <deque>
#include <set>
#include <string>

#include "gateway/mqtt/Broker.h"

namespace ptzd::fuzz {

/// What stands at the broker of the target `mqtt`, which is one within this process.
struct BrokerLog {
  /// Of the connection there is; null for none.
  static inline ptzgate::Broker::Callbacks* Now = nullptr;
  /// What the gateway published since this was emptied.
  static inline std::deque<ptzgate::Broker::Message> Published;
  static inline std::set<std::string> Subscribed;
};

}  // namespace ptzd::fuzz
