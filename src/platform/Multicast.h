#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ptzd {

/// A network interface with one of its IPv4 addresses.
struct NetworkInterface {
  std::string Name;  ///< "eth0"; on Windows the address
  std::string Address;
  bool IsUp = false, HasMulticast = false, IsLoopback = false;
};

/// All there are; none where the system does not tell.
std::vector<NetworkInterface> NetworkInterfaces();

/// A datagram of IPv4, as it came from whoever sent it.
struct Datagram {
  std::string From;  ///< in dotted decimal
  std::string Bytes;
  std::string Interface;  ///< the address of the interface that it came by
};

/// Questions to groups of hosts, and what comes in answer, on IPv4. Members answer the system's error number,
/// 0 for success, which `SocketErrorText` knows; they never raise.
class Multicast {
 public:
  virtual ~Multicast() = default;

  /// Makes a socket that asks, and hears what is sent to it, at a free port of the interface with this
  /// address.
  virtual std::int32_t OpenToAsk(const std::string& address) = 0;
  /// Makes one that hears what is said to the group on that interface; other programs may do the same.
  virtual std::int32_t Join(const std::string& address, const std::string& group, std::uint16_t port) = 0;
  /// Sends to a group, by all sockets that ask. It goes no farther than the next router. The last error.
  virtual std::int32_t Ask(const std::string& group, std::uint16_t port, std::string_view bytes) = 0;
  /// The next datagram that comes to any socket; nothing where none comes in that time.
  virtual std::optional<Datagram> Receive(std::chrono::milliseconds timeout) = 0;
};

std::unique_ptr<Multicast> MakeMulticast();

}  // namespace ptzd
