#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include <ptzd/Export.h>
#include <ptzd/SerialPort.h>

namespace ptzd {

/// Where drivers get their serial ports from, so that several cameras on one line share its port. A host may
/// put a pool of its own in place (`UseSerialPortPool`), to share a port with its own code.
class PTZD_API SerialPortPool {
 public:
  virtual ~SerialPortPool() = default;

  /// The one port of that number, the same object for all of its users. It may be open already; then it is
  /// used with the settings it has. Raises an `Error` where there is no such port.
  virtual std::shared_ptr<SerialPort> Acquire(std::int32_t portNumber) = 0;
  /// Ends one use. True when no other user is left: then the caller closes the port.
  virtual bool Release(std::int32_t portNumber) = 0;
};

/// The library's own pool: ports of the system, with a count of users for each number. The pool and its ports
/// may be used by several threads; frames go out whole.
class PTZD_API SharedSerialPorts final : public SerialPortPool {
 public:
  using MakePort = std::function<std::unique_ptr<SerialPort>(std::int32_t, const std::string& device)>;

  explicit SharedSerialPorts(MakePort makePort = MakeSerialPort) : MakePort_(std::move(makePort)) {}

  /// Raises 8002 for a number below 1. Whether the device is there shows when the port is opened.
  std::shared_ptr<SerialPort> Acquire(std::int32_t portNumber) override;
  /// False also for a port that has no user.
  bool Release(std::int32_t portNumber) override;

  /// The device that a port number means from now on, in place of `DefaultSerialDevice`; a port that is in
  /// use stays on its device until its last user has left.
  void MapDevice(std::int32_t portNumber, std::string device);

 private:
  struct Use {
    std::shared_ptr<SerialPort> Port;
    int Users = 0;
  };

  MakePort MakePort_;
  std::mutex Mutex_;
  std::map<std::int32_t, std::string> Devices_;
  std::map<std::int32_t, Use> Uses_;
};

/// The calling thread's pool; a `SharedSerialPorts` unless another was put in place.
PTZD_API std::shared_ptr<SerialPortPool> ThreadSerialPortPool();

/// Puts a pool in place for the calling thread; null brings a new pool of the library's own. Drivers that are
/// connected stay with the pool they acquired their port from.
PTZD_API void UseSerialPortPool(std::shared_ptr<SerialPortPool> pool);

}  // namespace ptzd
