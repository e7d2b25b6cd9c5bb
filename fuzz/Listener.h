#pragma once

#include <ptzd/Exchange.h>

#include "Target.h"

namespace ptzd::fuzz {

/// Is told of all exchanges, and reads them as people do.
class Listener final : public ExchangeSink {
 public:
  void Ended(const Exchange& exchange) override {
    Demand(exchange.ReplyBeginning.size() <= 4 * Exchange::MaxBeginning, "a reply's beginning is short");
    Describe(exchange);
  }
  std::size_t WantsOfReply() const override { return 100; }
};

}  // namespace ptzd::fuzz
