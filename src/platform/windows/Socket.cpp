#include "platform/Socket.h"

#include <winsock2.h>

#include <algorithm>
#include <array>
#include <chrono>

#include "platform/windows/AnsiText.h"

namespace ptzd {

namespace {

using TimePoint = std::chrono::steady_clock::time_point;

TimePoint DeadlineIn(std::int32_t milliseconds) {
  return std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
}

/// True once the socket can be written to or its connecting has failed, False at the deadline.
bool WaitForOutput(SOCKET socket, TimePoint deadline) {
  const auto left =
      std::chrono::ceil<std::chrono::microseconds>(deadline - std::chrono::steady_clock::now()).count();
  const auto microseconds = static_cast<long>(std::clamp<std::int64_t>(left, 0, 0x7FFFFFFF));
  timeval wait{microseconds / 1000000, microseconds % 1000000};
  fd_set writable, failed;
  FD_ZERO(&writable);
  FD_ZERO(&failed);
  FD_SET(socket, &writable);
  FD_SET(socket, &failed);
  return select(0, nullptr, &writable, &failed, &wait) > 0;
}

class TCPSocket final : public Socket {
 public:
  TCPSocket() = default;
  ~TCPSocket() override { Close(); }
  TCPSocket(const TCPSocket&) = delete;
  TCPSocket& operator=(const TCPSocket&) = delete;

  std::int32_t Open() override {
    Close();
    Socket_ = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    if (Socket_ == INVALID_SOCKET) return WSAGetLastError();
    u_long on = 1;
    if (ioctlsocket(Socket_, static_cast<long>(FIONBIO), &on) != 0) return WSAGetLastError();
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_addr.s_addr = htonl(INADDR_ANY);
    return bind(Socket_, reinterpret_cast<const sockaddr*>(&any), sizeof any) == 0 ? 0 : WSAGetLastError();
  }

  std::int32_t Connect(const std::string& address, std::uint16_t port, std::int32_t timeout) override {
    if (Socket_ == INVALID_SOCKET) return WSAENOTCONN;
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(port);
    peer.sin_addr.s_addr = inet_addr(address.c_str());
    if (peer.sin_addr.s_addr == INADDR_NONE || peer.sin_addr.s_addr == htonl(INADDR_ANY))
      return WSAEADDRNOTAVAIL;

    // Every message leaves at once: a stop must not wait for the acknowledgement of what it stops.
    const BOOL on = TRUE;
    setsockopt(Socket_, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof on);
    if (connect(Socket_, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0) return 0;
    if (WSAGetLastError() != WSAEWOULDBLOCK) return WSAGetLastError();
    if (!WaitForOutput(Socket_, DeadlineIn(timeout))) return WSAETIMEDOUT;
    int error = 0, size = sizeof error;
    return getsockopt(Socket_, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &size) == 0
               ? error
               : WSAGetLastError();
  }

  std::int32_t Send(std::span<const std::uint8_t> message, std::int32_t timeout) override {
    if (Socket_ == INVALID_SOCKET) return WSAENOTCONN;
    if (!DropInput()) {
      Close();
      return WSAECONNRESET;
    }
    const auto deadline = DeadlineIn(timeout);
    while (!message.empty()) {
      const int sent =
          send(Socket_, reinterpret_cast<const char*>(message.data()), static_cast<int>(message.size()), 0);
      if (sent >= 0) {
        message = message.subspan(static_cast<std::size_t>(sent));
        continue;
      }
      int error = WSAGetLastError();
      if (error == WSAEWOULDBLOCK) {
        if (WaitForOutput(Socket_, deadline)) continue;
        error = WSAETIMEDOUT;
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
    std::array<char, 1024> piece;
    for (int pieces = 0; pieces < 64; ++pieces) {
      const int size = recv(Socket_, piece.data(), static_cast<int>(piece.size()), 0);
      if (size <= 0) return size != 0;
    }
    return true;
  }

  void Close() {
    if (Socket_ == INVALID_SOCKET) return;
    DropInput();
    closesocket(Socket_);
    Socket_ = INVALID_SOCKET;
  }

  SOCKET Socket_ = INVALID_SOCKET;
};

class WindowsSockets final : public Sockets {
 public:
  // Where the start fails, opening a socket answers the error number.
  WindowsSockets() { WSAStartup(MAKEWORD(2, 2), &Data_); }

  std::unique_ptr<Socket> Create() override { return std::make_unique<TCPSocket>(); }

 private:
  WSADATA Data_{};
};

}  // namespace

std::string SocketErrorText(std::int32_t error) {
  std::array<char, 512> text{};
  const auto length = FormatMessageA(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                     static_cast<DWORD>(error), 0, text.data(), text.size(), nullptr);
  const std::string_view line(text.data(), length);
  if (line.empty()) return "System error " + std::to_string(error);
  return TextFromAnsi(line.substr(0, line.find_last_not_of("\r\n") + 1));
}

Sockets& SystemSockets() {
  // Never destroyed: drivers may outlive the library's statics.
  static auto& sockets = *new WindowsSockets;
  return sockets;
}

}  // namespace ptzd
