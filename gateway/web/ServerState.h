#pragma once

#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "gateway/web/Admission.h"
#include "gateway/web/Connection.h"
#include "gateway/web/Server.h"

namespace ptzgate {

/// Headers that every answer has.
Fields SecurityHeaders(bool isSecure);
/// "192.0.2.5", also where it came mapped into IPv6.
std::string AddressOf(const boost::asio::ip::address& address);
bool IsLoopback(const boost::asio::ip::address& address);
/// By which it is counted.
std::string GuestOf(const boost::asio::ip::address& address);

/// What a server's connections share.
struct ServerState : std::enable_shared_from_this<ServerState> {
  ServerState(boost::asio::io_context& context, ServerSettings settings, Server::Handler handler);

  void Listen(const Endpoint& endpoint);
  void ListenOnlyAt(const std::vector<Endpoint>& endpoints);
  void ListenAt(const std::vector<Endpoint>& endpoints);
  void Stop();

  void Log(const std::string& line) const;
  /// Runs what a face has given; what it throws is logged. False then.
  template <typename Work>
  bool Guarded(const char* what, Work work) const {
    try {
      work();
      return true;
    } catch (const std::exception& error) {
      Log(std::string(what) + ": " + error.what());
      return false;
    }
  }

  boost::asio::io_context& Context;
  ServerSettings Settings;
  Server::Handler Handle;
  Admission Guests;
  std::vector<std::function<void(std::uint64_t)>> WhenConnectionGone;
  Certificate TLS;
  using Acceptor = std::shared_ptr<boost::asio::ip::tcp::acceptor>;
  /// Each with where it was told to listen, of which there may be several, for a name or "*".
  std::vector<std::pair<Endpoint, Acceptor>> Acceptors;
  std::map<std::uint64_t, std::shared_ptr<Connection>> Connections;
  bool IsStopped = false;

 private:
  void Accept(const Acceptor& acceptor);
  void Welcome(boost::asio::ip::tcp::socket socket);
};

}  // namespace ptzgate
