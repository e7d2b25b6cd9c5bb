#include "platform/Multicast.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace ptzd {

namespace {

constexpr std::size_t LargestDatagram = 65536;

std::string TextOf(in_addr address) {
  char text[INET_ADDRSTRLEN]{};
  inet_ntop(AF_INET, &address, text, sizeof text);
  return text;
}

sockaddr_in EndpointOf(const std::string& address, std::uint16_t port) {
  sockaddr_in endpoint{};
  endpoint.sin_family = AF_INET;
  endpoint.sin_port = htons(port);
  inet_pton(AF_INET, address.c_str(), &endpoint.sin_addr);
  return endpoint;
}

class BSDMulticast final : public Multicast {
 public:
  BSDMulticast() = default;
  ~BSDMulticast() override {
    for (const auto& socket : Sockets_) close(socket.Handle);
  }
  BSDMulticast(const BSDMulticast&) = delete;
  BSDMulticast& operator=(const BSDMulticast&) = delete;

  std::int32_t OpenToAsk(const std::string& address) override {
    return Open(address, true, [&](int handle) {
      const auto own = EndpointOf(address, 0);
      return bind(handle, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0 &&
             setsockopt(handle, IPPROTO_IP, IP_MULTICAST_IF, &own.sin_addr, sizeof own.sin_addr) == 0;
    });
  }

  std::int32_t Join(const std::string& address, const std::string& group, std::uint16_t port) override {
    return Open(address, false, [&](int handle) {
      const int on = 1;
      // To the group alone: what is sent to the port itself is for the program whose port it is.
      const auto own = EndpointOf(group, port);
      const ip_mreq membership{own.sin_addr, EndpointOf(address, 0).sin_addr};
#ifdef IP_MULTICAST_ALL
      const int off = 0;  // only what comes by this interface
      setsockopt(handle, IPPROTO_IP, IP_MULTICAST_ALL, &off, sizeof off);
#endif
      return setsockopt(handle, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0 &&
             bind(handle, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0 &&
             setsockopt(handle, IPPROTO_IP, IP_ADD_MEMBERSHIP, &membership, sizeof membership) == 0;
    });
  }

  std::int32_t Ask(const std::string& group, std::uint16_t port, std::string_view bytes) override {
    std::int32_t error = 0;
    const auto to = EndpointOf(group, port);
    for (const auto& socket : Sockets_)
      if (socket.Asks && sendto(socket.Handle, bytes.data(), bytes.size(), MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr*>(&to), sizeof to) < 0)
        error = errno;
    return error;
  }

  std::optional<Datagram> Receive(std::chrono::milliseconds timeout) override {
    std::vector<pollfd> states;
    for (const auto& socket : Sockets_) states.push_back({socket.Handle, POLLIN, 0});
    // An interruption ends the waiting early, which its caller has to reckon with anyway.
    if (poll(states.data(), states.size(), static_cast<int>(timeout.count())) <= 0) return std::nullopt;
    // From the next one on, so that a socket that is flooded leaves the others a turn.
    for (std::size_t i = 0; i < states.size(); ++i) {
      const auto at = (Last_ + 1 + i) % states.size();
      if (states[at].revents == 0) continue;
      Last_ = at;
      return ReceiveFrom(Sockets_[at]);
    }
    return std::nullopt;
  }

 private:
  struct Socket {
    int Handle;
    bool Asks;
    std::string Interface;
  };

  template <typename Prepare>
  std::int32_t Open(const std::string& address, bool asks, const Prepare& prepare) {
    const int handle = socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (handle < 0) return errno;
    if (!prepare(handle)) {
      const int error = errno;
      close(handle);
      return error;
    }
    Sockets_.push_back({handle, asks, address});
    return 0;
  }

  std::optional<Datagram> ReceiveFrom(const Socket& socket) {
    sockaddr_in from{};
    socklen_t size = sizeof from;
    Buffer_.resize(LargestDatagram);
    const auto length =
        recvfrom(socket.Handle, Buffer_.data(), Buffer_.size(), 0, reinterpret_cast<sockaddr*>(&from), &size);
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
  std::vector<NetworkInterface> interfaces;
  ifaddrs* all = nullptr;
  if (getifaddrs(&all) != 0) return interfaces;
  for (const auto* one = all; one != nullptr; one = one->ifa_next) {
    if (one->ifa_addr == nullptr || one->ifa_addr->sa_family != AF_INET) continue;
    interfaces.push_back({one->ifa_name,
                          TextOf(reinterpret_cast<const sockaddr_in*>(one->ifa_addr)->sin_addr),
                          (one->ifa_flags & IFF_UP) != 0, (one->ifa_flags & IFF_MULTICAST) != 0,
                          (one->ifa_flags & IFF_LOOPBACK) != 0});
  }
  freeifaddrs(all);
  return interfaces;
}

std::unique_ptr<Multicast> MakeMulticast() { return std::make_unique<BSDMulticast>(); }

}  // namespace ptzd
