#include <ptzd/SerialPortPool.h>

#include <utility>

#include <ptzd/Error.h>

namespace ptzd {

namespace {

thread_local std::shared_ptr<SerialPortPool> ThreadPool;

/// A port whose users may be on several threads.
class LockedPort final : public SerialPort {
 public:
  explicit LockedPort(std::unique_ptr<SerialPort> port) : Port_(std::move(port)) {}

  std::int32_t CommPort() override { return Port_->CommPort(); }
  void Settings(std::string_view text) override {
    const std::lock_guard lock(Mutex_);
    Port_->Settings(text);
  }
  bool PortOpen() override {
    const std::lock_guard lock(Mutex_);
    return Port_->PortOpen();
  }
  void PortOpen(bool open) override {
    const std::lock_guard lock(Mutex_);
    Port_->PortOpen(open);
  }
  void Output(std::span<const std::uint8_t> frame) override {
    const std::lock_guard lock(Mutex_);
    Port_->Output(frame);
  }

 private:
  std::mutex Mutex_;
  const std::unique_ptr<SerialPort> Port_;
};

}  // namespace

std::shared_ptr<SerialPort> SharedSerialPorts::Acquire(std::int32_t portNumber) {
  if (portNumber < 1) throw Error(SerialErrorNoPort, "There is no serial port " + std::to_string(portNumber));
  const std::lock_guard lock(Mutex_);
  auto use = Uses_.find(portNumber);
  if (use == Uses_.end()) {
    const auto mapped = Devices_.find(portNumber);
    auto port =
        MakePort_(portNumber, mapped == Devices_.end() ? DefaultSerialDevice(portNumber) : mapped->second);
    use = Uses_.emplace(portNumber, Use{std::make_shared<LockedPort>(std::move(port))}).first;
  }
  ++use->second.Users;
  return use->second.Port;
}

bool SharedSerialPorts::Release(std::int32_t portNumber) {
  const std::lock_guard lock(Mutex_);
  const auto use = Uses_.find(portNumber);
  if (use == Uses_.end() || --use->second.Users > 0) return false;
  Uses_.erase(use);
  return true;
}

void SharedSerialPorts::MapDevice(std::int32_t portNumber, std::string device) {
  const std::lock_guard lock(Mutex_);
  Devices_[portNumber] = std::move(device);
}

std::shared_ptr<SerialPortPool> ThreadSerialPortPool() {
  if (!ThreadPool) ThreadPool = std::make_shared<SharedSerialPorts>();
  return ThreadPool;
}

void UseSerialPortPool(std::shared_ptr<SerialPortPool> pool) { ThreadPool = std::move(pool); }

}  // namespace ptzd
