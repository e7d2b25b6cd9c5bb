#include "simulators/engine/TCPServer.h"

#include <map>
#include <optional>
#include <utility>

#include "simulators/engine/Listener.h"
#include "simulators/engine/Loop.h"
#include "simulators/engine/Session.h"

namespace ptzsim {

using boost::asio::ip::tcp;
using boost::system::error_code;

class TCPServer::Implementation {
 public:
  Implementation(MessageHandler handler, Options options, RequestLog& log, FaultSwitches& faults)
      : Handler_(std::move(handler)), Log_(log), Faults_(faults) {
    Faults_.Serve(Line::TCP);
    Listener_.emplace(
        Loop_, options.Port, Faults_, [this](tcp::socket socket) { Accepted(std::move(socket)); },
        [this] { CloseAll(false); });
    Watcher_ = Faults_.Watch([this] {
      Loop_.Run([this] {
        for (const auto& [number, session] : Sessions_) session->Pause(Faults_.IsSet(FaultKind::NeverRead));
      });
    });
  }

  ~Implementation() {
    Faults_.Forget(Watcher_);
    Listener_.reset();
    Loop_.Run([this] { CloseAll(false); });
    Loop_.Stop();
  }

  std::uint16_t Port() const { return Listener_->Port(); }
  void CloseConnections(bool reset) {
    Loop_.Run([&] { CloseAll(reset); });
  }

 private:
  using Session = ptzsim::Session<tcp::socket>;

  void Accepted(tcp::socket socket) {
    error_code ignored;
    socket.set_option(tcp::no_delay(true), ignored);
    const int number = Log_.OpenConnection();
    const auto session = std::make_shared<Session>(
        std::move(socket), number, Handler_, Log_, Faults_,
        Session::Settings{.Ended = [this, number](Ending end) { Close(number, end == Ending::Reset); }});
    Sessions_[number] = session;
    Faults_.Take(FaultKind::CloseOnAccept) ? Close(number, false)
                                           : session->Start(Faults_.IsSet(FaultKind::NeverRead));
  }

  void Close(int number, bool reset) {
    const auto session = Sessions_.extract(number).mapped();
    tcp::socket& socket = session->Line();
    error_code ignored;
    if (reset) socket.set_option(boost::asio::socket_base::linger(true, 0), ignored);
    Log_.CloseConnection();  // first, so that a client that sees the end finds it counted
    if (!reset) socket.shutdown(tcp::socket::shutdown_both, ignored);
    session->Close();
  }

  void CloseAll(bool reset) {
    while (!Sessions_.empty()) Close(Sessions_.begin()->first, reset);
  }

  MessageHandler Handler_;
  RequestLog& Log_;
  FaultSwitches& Faults_;
  int Watcher_ = 0;
  std::map<int, std::shared_ptr<Session>> Sessions_;
  // The loop ends before all that its handlers reach, and the listener before the loop.
  Loop Loop_;
  std::optional<Listener> Listener_;
};

TCPServer::TCPServer(MessageHandler handler, Options options, RequestLog& log, FaultSwitches& faults)
    : Implementation_(std::make_unique<Implementation>(std::move(handler), options, log, faults)) {}
TCPServer::~TCPServer() = default;

std::uint16_t TCPServer::Port() const { return Implementation_->Port(); }
std::string TCPServer::Address() const { return "127.0.0.1:" + std::to_string(Port()); }
void TCPServer::CloseConnections(bool reset) { Implementation_->CloseConnections(reset); }

}  // namespace ptzsim
