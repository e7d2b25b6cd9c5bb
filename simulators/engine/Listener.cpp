#include "simulators/engine/Listener.h"

#include <sys/socket.h>
#include <stdexcept>
#include <string>
#include <utility>

namespace ptzsim {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

// Asio's own sockets are inherited by programs that a test starts, which then hold ports and connections that
// are closed here; so they are made here and told otherwise from the start.
template <class Socket>
void OpenSocket(Socket& socket) {
  const int handle = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (handle < 0) throw std::runtime_error("no socket can be opened");
  socket.assign(tcp::v4(), handle);
}

bool AcceptSocket(tcp::acceptor& acceptor, tcp::socket& socket) {
  const int handle = ::accept4(acceptor.native_handle(), nullptr, nullptr, SOCK_CLOEXEC);
  if (handle >= 0) socket.assign(tcp::v4(), handle);
  return handle >= 0;
}

void Bind(tcp::acceptor& acceptor, std::uint16_t port, error_code& error) {
  OpenSocket(acceptor);
  acceptor.native_non_blocking(true);
  acceptor.set_option(tcp::acceptor::reuse_address(true));
  acceptor.bind({asio::ip::address_v4::loopback(), port}, error);
}

}  // namespace

Listener::Listener(Loop& loop, std::uint16_t port, FaultSwitches& faults,
                   std::function<void(Socket)> accepted, std::function<void()> closeAll)
    : Loop_(loop),
      Port_(port),
      Faults_(faults),
      Accepted_(std::move(accepted)),
      CloseAll_(std::move(closeAll)) {
  const auto apply = [this] { Loop_.Run([this] { Apply(); }); };
  Loop_.Run([this] { Listen(Mode::Accepting); });
  Watcher_ = Faults_.Watch(apply);
  apply();
}

Listener::~Listener() {
  Faults_.Forget(Watcher_);
  Loop_.Run([this] {
    error_code ignored;
    Mode_ = Mode::Closed;
    Acceptor_.close(ignored);
  });
}

void Listener::Apply() {
  const Mode wanted = Faults_.IsSet(FaultKind::Refuse)            ? Mode::Refusing
                      : Faults_.IsSet(FaultKind::FullAcceptQueue) ? Mode::FullQueue
                                                                  : Mode::Accepting;
  if (wanted == Mode_) return;
  CloseAll_();
  Listen(wanted);
}

void Listener::Listen(Mode mode) {
  error_code ignored;
  // Shut down first: a child process being forked just now would keep a merely closed socket listening.
  if (Acceptor_.is_open()) ::shutdown(Acceptor_.native_handle(), SHUT_RDWR);
  Acceptor_.close(ignored);
  Filler_.close(ignored);
  Mode_ = Mode::Closed;

  error_code error;
  if (!Reservation_.is_open()) {
    Bind(Reservation_, Port_, error);
    if (!error) Port_ = Reservation_.local_endpoint().port();
  }
  if (!error && mode != Mode::Refusing) Bind(Acceptor_, Port_, error);
  // A backlog of 0 still holds one connection, which will be ours; the next one finds the queue full.
  const int backlog = mode == Mode::Accepting ? tcp::acceptor::max_listen_connections : 0;
  if (!error && mode != Mode::Refusing) Acceptor_.listen(backlog, error);
  if (error)
    throw std::runtime_error("port " + std::to_string(Port_) + " cannot be served: " + error.message());
  Mode_ = mode;
  if (mode == Mode::Accepting) Accept();
  if (mode == Mode::FullQueue) {
    OpenSocket(Filler_);
    Filler_.connect(Acceptor_.local_endpoint());
  }
}

void Listener::Accept() {
  Acceptor_.async_wait(tcp::acceptor::wait_read, [this](const error_code& error) {
    if (error || Mode_ != Mode::Accepting) return;
    Socket socket(Loop_.Context());
    if (AcceptSocket(Acceptor_, socket)) Accepted_(std::move(socket));
    Accept();
  });
}

}  // namespace ptzsim
