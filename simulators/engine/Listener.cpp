#include "simulators/engine/Listener.h"

#include <stdexcept>
#include <string>
#include <utility>

#include "simulators/engine/Sockets.h"

namespace ptzsim {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

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
  CloseAcceptor(Acceptor_);
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
  AcceptSocket(Acceptor_, [this](const error_code& error, Socket socket) {
    if (error == asio::error::operation_aborted || Mode_ != Mode::Accepting) return;
    if (!error) Accepted_(std::move(socket));
    Accept();
  });
}

}  // namespace ptzsim
