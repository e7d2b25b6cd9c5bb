#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include <ptzd/Export.h>

namespace ptzd {

/// Error numbers of a serial port, those that hosts know from serial-port controls.
enum SerialPortErrors : std::int32_t {
  SerialErrorDevice = 57,         ///< the device took no byte or is gone
  SerialErrorSettings = 380,      ///< the settings text, or a speed that the device refuses
  SerialErrorNoPort = 8002,       ///< there is no such port, or it may not be used
  SerialErrorAlreadyOpen = 8005,  ///< another program or thread has the port
  SerialErrorNotOpen = 8018,
};

/// A serial line that is only written to. The members are the four that a host's own serial-port control has,
/// so that one can stand in for it. All raise `Error` with a number of `SerialPortErrors`.
class PTZD_API SerialPort {
 public:
  virtual ~SerialPort() = default;

  /// The number that the port was acquired by.
  virtual std::int32_t CommPort() = 0;
  /// "baud,n,8,1", for example "2400,n,8,1"; other parities and sizes are refused. Holds from the next
  /// opening on, at once when the port is open.
  virtual void Settings(std::string_view text) = 0;
  /// False also from the moment the device is seen to be gone.
  virtual bool PortOpen() = 0;
  /// Opens or closes; nothing happens where it is so already.
  virtual void PortOpen(bool open) = 0;
  /// Hands the whole frame to the line, in the order of calls, and does not wait for its transmission unless
  /// the system's buffer is full. Raises 8018 while closed and 57 where the device is gone, which also closes
  /// the port, or takes no byte for 5 seconds.
  virtual void Output(std::span<const std::uint8_t> frame) = 0;
};

/// A port of the system, closed. `device` is a path ("/dev/ttyUSB0") or on Windows a name ("COM3"). Opening
/// takes it for exclusive use, raw and without flow control; input is never read and never blocks output.
PTZD_API std::unique_ptr<SerialPort> MakeSerialPort(std::int32_t commPort, const std::string& device);

/// The device that a port number means unless someone says otherwise: COM1 is "COM1" or "/dev/ttyS0".
PTZD_API std::string DefaultSerialDevice(std::int32_t commPort);
}  // namespace ptzd
