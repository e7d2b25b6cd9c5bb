// `Broker` as the target `mqtt` has it: this stands in its place when the program is linked.

#include "FakeBroker.h"

#include <future>
#include <utility>

namespace ptzgate {

using ptzd::fuzz::BrokerLog;

struct Broker::State {
  Broker::Callbacks Callbacks;
};

Broker::Broker(boost::asio::io_context&, const MQTTSettings&, const ptzd::Login&, const Will&, std::size_t,
               std::shared_future<void>, Callbacks callbacks)
    : State_(std::make_shared<State>(State{std::move(callbacks)})) {
  std::promise<void> ended;
  ended.set_value();
  Ended_ = ended.get_future();
  BrokerLog::Now = &State_->Callbacks;
  BrokerLog::Subscribed.clear();
}
Broker::~Broker() { BrokerLog::Now = nullptr; }

void Broker::Publish(const std::string& topic, const std::string& payload, bool isRetained) {
  BrokerLog::Published.push_back({topic, payload, isRetained, false});
}
void Broker::Subscribe(const std::string& filter) { BrokerLog::Subscribed.insert(filter); }
void Broker::Unsubscribe(const std::string& filter) { BrokerLog::Subscribed.erase(filter); }
void Broker::End(std::chrono::milliseconds) {}

}  // namespace ptzgate
