#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include <ptzd/Platform.h>  // SystemSockets

namespace ptzd {

/// A TCP connection that carries messages one way. Members answer the system's error number, 0 for success;
/// they never raise, not even a signal. Destruction closes the connection.
class Socket {
 public:
  virtual ~Socket() = default;

  /// Makes the socket and binds it to any address and a free port.
  virtual std::int32_t Open() = 0;
  /// Connects to an address in dotted decimal, as the system's `inet_addr` reads it; names are not resolved.
  /// Blocks for at most so many milliseconds.
  virtual std::int32_t Connect(const std::string& address, std::uint16_t port, std::int32_t timeout) = 0;
  /// Sends a whole message, blocking for at most so many milliseconds when the other side takes nothing. What
  /// the other side sends is thrown away, and a connection that it has closed takes no message. A message
  /// that could not be sent as a whole ends the connection, so that no later one follows half a message, and
  /// every later one fails at once.
  virtual std::int32_t Send(std::span<const std::uint8_t> message, std::int32_t timeout) = 0;
};

/// What the system says of an error number of a socket.
std::string SocketErrorText(std::int32_t error);

/// The system's sockets.
class Sockets {
 public:
  virtual ~Sockets() = default;
  /// A socket that is not open yet.
  virtual std::unique_ptr<Socket> Create() = 0;
};

}  // namespace ptzd
