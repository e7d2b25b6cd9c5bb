#include "platform/Multicast.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <array>

#include "platform/Socket.h"

namespace ptzd {

namespace {

constexpr std::size_t LargestDatagram = 65536;
constexpr std::size_t MostInterfaces = 64;

std::string TextOf(in_addr address) { return inet_ntoa(address); }

sockaddr_in EndpointOf(const std::string& address, std::uint16_t port) {
  sockaddr_in endpoint{};
  endpoint.sin_family = AF_INET;
  endpoint.sin_port = htons(port);
  endpoint.sin_addr.s_addr = inet_addr(address.c_str());
  return endpoint;
}

template <typename Value>
bool Set(SOCKET socket, int level, int option, const Value& value) {
  return setsockopt(socket, level, option, reinterpret_cast<const char*>(&value), sizeof value) == 0;
}

class WindowsMulticast final : public Multicast {
 public:
  WindowsMulticast() = default;
  ~WindowsMulticast() override {
    for (const auto& socket : Sockets_) closesocket(socket.Handle);
  }
  WindowsMulticast(const WindowsMulticast&) = delete;
  WindowsMulticast& operator=(const WindowsMulticast&) = delete;

  std::int32_t OpenToAsk(const std::string& address) override {
    return Open(address, true, [&](SOCKET handle) {
      const auto own = EndpointOf(address, 0);
      return bind(handle, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0 &&
             Set(handle, IPPROTO_IP, IP_MULTICAST_IF, own.sin_addr);
    });
  }

  std::int32_t Join(const std::string& address, const std::string& group, std::uint16_t port) override {
    return Open(address, false, [&](SOCKET handle) {
      const auto own = EndpointOf(address, port);  // a group is no address that can be bound here
      const ip_mreq membership{EndpointOf(group, 0).sin_addr, own.sin_addr};
      return Set(handle, SOL_SOCKET, SO_REUSEADDR, BOOL{TRUE}) &&
             bind(handle, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0 &&
             Set(handle, IPPROTO_IP, IP_ADD_MEMBERSHIP, membership);
    });
  }

  std::int32_t Ask(const std::string& group, std::uint16_t port, std::string_view bytes) override {
    std::int32_t error = 0;
    const auto to = EndpointOf(group, port);
    for (const auto& socket : Sockets_)
      if (socket.Asks && sendto(socket.Handle, bytes.data(), static_cast<int>(bytes.size()), 0,
                                reinterpret_cast<const sockaddr*>(&to), sizeof to) < 0)
        error = WSAGetLastError();
    return error;
  }

  std::optional<Datagram> Receive(std::chrono::milliseconds timeout) override {
    fd_set readable;
    FD_ZERO(&readable);
    for (const auto& socket : Sockets_) FD_SET(socket.Handle, &readable);
    const auto count = static_cast<long>(timeout.count());
    timeval wait{count / 1000, count % 1000 * 1000};
    if (select(0, &readable, nullptr, nullptr, &wait) <= 0) return std::nullopt;
    // From the next one on, so that a socket that is flooded leaves the others a turn.
    for (std::size_t i = 0; i < Sockets_.size(); ++i) {
      const auto at = (Last_ + 1 + i) % Sockets_.size();
      if (!FD_ISSET(Sockets_[at].Handle, &readable)) continue;
      Last_ = at;
      return ReceiveFrom(Sockets_[at]);
    }
    return std::nullopt;
  }

 private:
  struct Socket {
    SOCKET Handle;
    bool Asks;
    std::string Interface;
  };

  template <typename Prepare>
  std::int32_t Open(const std::string& address, bool asks, const Prepare& prepare) {
    if (Sockets_.size() == FD_SETSIZE) return WSAEMFILE;
    const auto handle = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    if (handle == INVALID_SOCKET) return WSAGetLastError();
    u_long on = 1;
    if (ioctlsocket(handle, static_cast<long>(FIONBIO), &on) != 0 || !prepare(handle)) {
      const auto error = WSAGetLastError();
      closesocket(handle);
      return error;
    }
    Sockets_.push_back({handle, asks, address});
    return 0;
  }

  std::optional<Datagram> ReceiveFrom(const Socket& socket) {
    sockaddr_in from{};
    int size = sizeof from;
    Buffer_.resize(LargestDatagram);
    const auto length = recvfrom(socket.Handle, Buffer_.data(), static_cast<int>(Buffer_.size()), 0,
                                 reinterpret_cast<sockaddr*>(&from), &size);
    if (length < 0) return std::nullopt;
    return Datagram{TextOf(from.sin_addr), Buffer_.substr(0, static_cast<std::size_t>(length)),
                    socket.Interface};
  }

  std::vector<Socket> Sockets_;
  std::size_t Last_ = 0;
  std::string Buffer_;
};

}  // namespace

std::vector<NetworkInterface> NetworkInterfaces() {
  SystemSockets();  // starts the system's socket layer
  std::vector<NetworkInterface> interfaces;
  const auto socket = WSASocketA(AF_INET, SOCK_DGRAM, IPPROTO_UDP, nullptr, 0, 0);
  if (socket == INVALID_SOCKET) return interfaces;
  std::array<INTERFACE_INFO, MostInterfaces> all{};
  DWORD size = 0;
  if (WSAIoctl(socket, SIO_GET_INTERFACE_LIST, nullptr, 0, all.data(), sizeof all, &size, nullptr, nullptr) ==
      0) {
    for (std::size_t i = 0; i < size / sizeof(INTERFACE_INFO); ++i) {
      const auto address = TextOf(all[i].iiAddress.AddressIn.sin_addr);
      const auto flags = all[i].iiFlags;
      interfaces.push_back({address, address, (flags & IFF_UP) != 0, (flags & IFF_MULTICAST) != 0,
                            (flags & IFF_LOOPBACK) != 0});
    }
  }
  closesocket(socket);
  return interfaces;
}

std::unique_ptr<Multicast> MakeMulticast() {
  SystemSockets();  // starts the system's socket layer
  return std::make_unique<WindowsMulticast>();
}

}  // namespace ptzd
