#pragma once

#include <ptzd/PropertyBag.h>
#include <ptzd/SerialPortPool.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace ptzd {

/// The serial lines of a program: cameras on one line share its port, whatever each calls it.
class SerialLines {
 public:
  /// Has a driver use a line: a port number, or any device, which stands for a number in the pool that is
  /// answered. Raises `InputError` for a number that is none of a port.
  std::shared_ptr<SerialPortPool> Use(PropertyBag& bag, const std::string& line);

 private:
  std::int32_t NumberOf(const std::string& line);

  const std::shared_ptr<SharedSerialPorts> Ports_ = std::make_shared<SharedSerialPorts>();
  std::map<std::string, std::int32_t> Numbers_;  ///< by device, with links followed
};

}  // namespace ptzd
