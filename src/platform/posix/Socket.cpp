#include "platform/Socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <system_error>

namespace ptzd {

namespace {

using TimePoint = std::chrono::steady_clock::time_point;

TimePoint DeadlineIn(std::int32_t milliseconds) {
  return std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
}

/// True once the socket can be written to, False at the deadline.
bool WaitForOutput(int socket, TimePoint deadline) {
  for (;;) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    pollfd state{socket, POLLOUT, 0};
    const int result = poll(&state, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
    if (result >= 0 || errno != EINTR) return result > 0;
  }
}

class TCPSocket final : public Socket {
 public:
  TCPSocket() = default;
  ~TCPSocket() override { Close(); }
  TCPSocket(const TCPSocket&) = delete;
  TCPSocket& operator=(const TCPSocket&) = delete;

  std::int32_t Open() override {
    Close();
    Socket_ = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP);
    if (Socket_ < 0) return errno;
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_addr.s_addr = htonl(INADDR_ANY);
    return bind(Socket_, reinterpret_cast<const sockaddr*>(&any), sizeof any) == 0 ? 0 : errno;
  }

  std::int32_t Connect(const std::string& address, std::uint16_t port, std::int32_t timeout) override {
    if (Socket_ < 0) return ENOTCONN;
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(port);
    peer.sin_addr.s_addr = inet_addr(address.c_str());
    // The system would take 0.0.0.0 for this machine.
    if (peer.sin_addr.s_addr == INADDR_NONE || peer.sin_addr.s_addr == htonl(INADDR_ANY))
      return EADDRNOTAVAIL;

    // Every message leaves at once: a stop must not wait for the acknowledgement of what it stops.
    const int on = 1;
    setsockopt(Socket_, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (connect(Socket_, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0) return 0;
    if (errno != EINPROGRESS && errno != EINTR) return errno;
    if (!WaitForOutput(Socket_, DeadlineIn(timeout))) return ETIMEDOUT;
    int error = 0;
    socklen_t size = sizeof error;
    return getsockopt(Socket_, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
  }

  std::int32_t Send(std::span<const std::uint8_t> message, std::int32_t timeout) override {
    if (Socket_ < 0) return ENOTCONN;
    if (!DropInput()) {
      Close();
      return EPIPE;
    }
    const auto deadline = DeadlineIn(timeout);
    while (!message.empty()) {
      const auto sent = send(Socket_, message.data(), message.size(), MSG_NOSIGNAL);
      if (sent >= 0) {
        message = message.subspan(static_cast<std::size_t>(sent));
        continue;
      }
      int error = errno;
      if (error == EINTR) continue;
      if (error == EAGAIN) {
        if (WaitForOutput(Socket_, deadline)) continue;
        error = ETIMEDOUT;
      }
      Close();
      return error;
    }
    return 0;
  }

 private:
  /// Unread input would in the end block the other side, and turn our close into a reset that may overtake
  /// the last message. False where the other side has closed: the system would still take a message, which
  /// nobody reads.
  bool DropInput() const {
    std::array<std::uint8_t, 1024> piece;
    for (int pieces = 0; pieces < 64; ++pieces) {
      const auto size = recv(Socket_, piece.data(), piece.size(), 0);
      if (size <= 0) return size != 0;
    }
    return true;
  }

  void Close() {
    if (Socket_ < 0) return;
    DropInput();
    ::close(Socket_);
    Socket_ = -1;
  }

  int Socket_ = -1;
};

class BSDSockets final : public Sockets {
 public:
  std::unique_ptr<Socket> Create() override { return std::make_unique<TCPSocket>(); }
};

}  // namespace

std::string SocketErrorText(std::int32_t error) { return std::system_category().message(error); }

Sockets& SystemSockets() {
  static BSDSockets sockets;
  return sockets;
}

}  // namespace ptzd
