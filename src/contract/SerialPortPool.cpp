#include <ptzd/SerialPortPool.h>

#include <utility>

#include <ptzd/Error.h>

namespace ptzd {

namespace {

thread_local std::shared_ptr<SerialPortPool> ThreadPool;

}  // namespace

std::shared_ptr<SerialPort> SharedSerialPorts::Acquire(std::int32_t portNumber) {
  if (portNumber < 1) throw Error(SerialErrorNoPort, "There is no serial port " + std::to_string(portNumber));
  auto use = Uses_.find(portNumber);
  if (use == Uses_.end()) {
    const auto mapped = Devices_.find(portNumber);
    auto port =
        MakePort_(portNumber, mapped == Devices_.end() ? DefaultSerialDevice(portNumber) : mapped->second);
    use = Uses_.emplace(portNumber, Use{std::move(port)}).first;
  }
  ++use->second.Users;
  return use->second.Port;
}

bool SharedSerialPorts::Release(std::int32_t portNumber) {
  const auto use = Uses_.find(portNumber);
  if (use == Uses_.end() || --use->second.Users > 0) return false;
  Uses_.erase(use);
  return true;
}

void SharedSerialPorts::MapDevice(std::int32_t portNumber, std::string device) {
  Devices_[portNumber] = std::move(device);
}

std::shared_ptr<SerialPortPool> ThreadSerialPortPool() {
  if (!ThreadPool) ThreadPool = std::make_shared<SharedSerialPorts>();
  return ThreadPool;
}

void UseSerialPortPool(std::shared_ptr<SerialPortPool> pool) { ThreadPool = std::move(pool); }

}  // namespace ptzd
