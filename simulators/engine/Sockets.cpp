#include "simulators/engine/Sockets.h"

#ifndef _WIN32
#include <sys/socket.h>
#endif

#include <cerrno>
#include <stdexcept>
#include <utility>

namespace ptzsim {

using boost::asio::ip::tcp;
using boost::system::error_code;

#ifdef _WIN32

void OpenSocket(tcp::acceptor& acceptor) { acceptor.open(tcp::v4()); }
void OpenSocket(tcp::socket& socket) { socket.open(tcp::v4()); }

void AcceptSocket(tcp::acceptor& acceptor, std::function<void(const error_code&, tcp::socket)> accepted) {
  acceptor.async_accept(std::move(accepted));
}

void CloseAcceptor(tcp::acceptor& acceptor) {
  error_code ignored;
  acceptor.close(ignored);
}

#else

namespace {

template <class Socket>
void Open(Socket& socket) {
  const int handle = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (handle < 0) throw std::runtime_error("no socket can be opened");
  socket.assign(tcp::v4(), handle);
}

}  // namespace

void OpenSocket(tcp::acceptor& acceptor) { Open(acceptor); }
void OpenSocket(tcp::socket& socket) { Open(socket); }

void AcceptSocket(tcp::acceptor& acceptor, std::function<void(const error_code&, tcp::socket)> accepted) {
  // Once the wait was called off there may be no acceptor any more.
  acceptor.async_wait(tcp::acceptor::wait_read, [&acceptor, executor = acceptor.get_executor(),
                                                 accepted = std::move(accepted)](error_code error) {
    tcp::socket socket(executor);
    const int handle = error ? -1 : ::accept4(acceptor.native_handle(), nullptr, nullptr, SOCK_CLOEXEC);
    if (handle >= 0)
      socket.assign(tcp::v4(), handle);
    else if (!error)
      error.assign(errno, boost::system::system_category());
    accepted(error, std::move(socket));
  });
}

void CloseAcceptor(tcp::acceptor& acceptor) {
  // A merely closed socket would go on listening in the copy.
  if (acceptor.is_open()) ::shutdown(acceptor.native_handle(), SHUT_RDWR);
  error_code ignored;
  acceptor.close(ignored);
}

#endif

}  // namespace ptzsim
