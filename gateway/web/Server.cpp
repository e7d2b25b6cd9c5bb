#include "gateway/web/Server.h"

#include <openssl/ssl.h>

#include <algorithm>
#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/v6_only.hpp>
#include <cerrno>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "gateway/web/ServerState.h"
#include "gateway/web/Session.h"

namespace ptzgate {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

namespace {

tcp::acceptor Adopted(asio::io_context& context, int socket) {
  sockaddr_storage address{};
  socklen_t size = sizeof address;
  int listens = 0;
  socklen_t flagSize = sizeof listens;
  if (getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0 ||
      (address.ss_family != AF_INET && address.ss_family != AF_INET6) ||
      getsockopt(socket, SOL_SOCKET, SO_ACCEPTCONN, &listens, &flagSize) != 0 || listens == 0) {
    throw std::runtime_error("socket " + std::to_string(socket) + " is not one of TCP that listens");
  }
  return tcp::acceptor(context, address.ss_family == AF_INET ? tcp::v4() : tcp::v6(), socket);
}

bool IsSame(const Endpoint& one, const Endpoint& other) {
  return one.Host == other.Host && one.Port == other.Port;
}

}  // namespace

Certificate ReadCertificate(const CertificateFiles& files) {
  auto tls = std::make_shared<asio::ssl::context>(asio::ssl::context::tls_server);
  auto* native = tls->native_handle();
  SSL_CTX_set_min_proto_version(native, TLS1_2_VERSION);
  // Of TLS 1.2 those with forward secrecy and authenticated encryption; of 1.3 all are.
  SSL_CTX_set_cipher_list(native, "ECDHE+AESGCM:ECDHE+CHACHA20");
  SSL_CTX_set_options(native,
                      SSL_OP_NO_COMPRESSION | SSL_OP_NO_RENEGOTIATION | SSL_OP_CIPHER_SERVER_PREFERENCE);
  // Most clients close without TLS's own goodbye; lengths and chunks tell whether a message is whole.
  SSL_CTX_set_options(native, SSL_OP_IGNORE_UNEXPECTED_EOF);
  tls->set_password_callback([](std::size_t, asio::ssl::context::password_purpose) { return std::string(); });
  const auto use = [](const std::string& file, const auto& load) {
    error_code error;
    // What the system has to say of a file is lost on the way through OpenSSL.
    if (!std::ifstream(file)) throw std::runtime_error(file + ": " + std::generic_category().message(errno));
    load(error);
    if (error) throw std::runtime_error(file + ": " + error.message());
  };
  use(files.Chain, [&](error_code& error) { tls->use_certificate_chain_file(files.Chain, error); });
  use(files.Key,
      [&](error_code& error) { tls->use_private_key_file(files.Key, asio::ssl::context::pem, error); });
  if (SSL_CTX_check_private_key(native) != 1) {
    throw std::runtime_error(files.Key + ": is not the key of the certificate in " + files.Chain);
  }
  return tls;
}

ServerState::ServerState(asio::io_context& context, ServerSettings settings, Server::Handler handler)
    : Context(context), Settings(std::move(settings)), Handle(std::move(handler)) {}

void ServerState::Listen(const Endpoint& endpoint) {
  const auto begin = [&](tcp::acceptor acceptor) {
    Acceptors.emplace_back(endpoint, std::make_shared<tcp::acceptor>(std::move(acceptor)));
    Accept(Acceptors.back().second);
  };
  if (endpoint.Socket >= 0) return begin(Adopted(Context, endpoint.Socket));

  const auto listen = [&](const tcp::endpoint& where) {
    tcp::acceptor acceptor(Context, where.protocol());
    acceptor.set_option(asio::socket_base::reuse_address(true));
    if (where.address().is_v6()) acceptor.set_option(asio::ip::v6_only(true));
    acceptor.bind(where);
    acceptor.listen();
    begin(std::move(acceptor));
  };
  try {
    if (endpoint.Host == "*") {
      listen({tcp::v4(), endpoint.Port});
      try {
        listen({tcp::v6(), Acceptors.back().second->local_endpoint().port()});
      } catch (const boost::system::system_error& error) {
        if (error.code() != asio::error::address_family_not_supported) throw;
      }
      return;
    }
    tcp::resolver resolver(Context);
    for (const auto& found :
         resolver.resolve(endpoint.Host, std::to_string(endpoint.Port), tcp::resolver::passive)) {
      listen(found.endpoint());
    }
  } catch (const boost::system::system_error& error) {
    throw std::runtime_error("cannot listen on " + endpoint.Host + " port " + std::to_string(endpoint.Port) +
                             ": " + error.code().message());
  }
}

void ServerState::Accept(const Acceptor& acceptor) {
  acceptor->async_accept([self = shared_from_this(), acceptor](const error_code& error, tcp::socket socket) {
    if (self->IsStopped || !acceptor->is_open()) return;
    if (!error) {
      self->Welcome(std::move(socket));
    } else if (error != asio::error::connection_aborted) {
      // No handles are left, most likely; trying again at once would only keep the processor busy.
      self->Log("cannot accept a connection: " + error.message());
      const auto pause = std::make_shared<asio::steady_timer>(self->Context, std::chrono::milliseconds(200));
      return pause->async_wait([self, acceptor, pause](const error_code&) {
        if (!self->IsStopped && acceptor->is_open()) self->Accept(acceptor);
      });
    }
    self->Accept(acceptor);
  });
}

void ServerState::Welcome(tcp::socket socket) {
  static std::atomic<std::uint64_t> last = 0;
  error_code gone;
  const auto peer = socket.remote_endpoint(gone);
  if (gone) return;
  const auto guest = GuestOf(peer.address());
  const auto verdict = Guests.Enter(guest, Settings.Limits);
  if (verdict == Admission::Verdict::Ignore) return;
  const auto number = ++last;
  const auto connection = std::make_shared<Connection>(std::move(socket), TLS, Settings.Limits, number);
  connection->WhenGone = [self = shared_from_this(), number] {
    for (const auto& listener : std::vector(self->WhenConnectionGone)) {
      self->Guarded("a handler of a connection's end failed", [&] { listener(number); });
    }
  };
  connection->WhenReleased = [self = shared_from_this(), number, guest] {
    self->Guests.Leave(guest);
    self->Connections.erase(number);
  };
  Connections.emplace(number, connection);
  connection->Start(
      std::make_shared<Session>(shared_from_this(), connection, verdict == Admission::Verdict::Welcome));
}

void ServerState::ListenOnlyAt(const std::vector<Endpoint>& endpoints) {
  std::erase_if(Acceptors, [&](const auto& acceptor) {
    const auto isHere = [&](const Endpoint& endpoint) { return IsSame(endpoint, acceptor.first); };
    if (std::ranges::any_of(endpoints, isHere)) return false;
    error_code gone;
    acceptor.second->close(gone);
    return true;
  });
}

void ServerState::ListenAt(const std::vector<Endpoint>& endpoints) {
  for (const auto& endpoint : endpoints) {
    const auto isHere = [&](const auto& acceptor) { return IsSame(endpoint, acceptor.first); };
    if (endpoint.Socket >= 0 || std::ranges::none_of(Acceptors, isHere)) Listen(endpoint);
  }
}

void ServerState::Stop() {
  IsStopped = true;
  ListenOnlyAt({});
  // Those that are told of an end may stop the server, too.
  for (const auto& [number, connection] : std::exchange(Connections, {})) connection->Close();
}

void ServerState::Log(const std::string& line) const {
  if (Settings.Log) return Settings.Log(line);
  std::cerr << line << '\n';
}

Fields SecurityHeaders(bool isSecure) {
  Fields fields{
      {"Server", "ptzgate"}, {"X-Content-Type-Options", "nosniff"}, {"Referrer-Policy", "no-referrer"}};
  if (isSecure) fields.emplace_back("Strict-Transport-Security", "max-age=31536000");
  return fields;
}

namespace {

asio::ip::address Unmapped(const asio::ip::address& address) {
  if (!address.is_v6() || !address.to_v6().is_v4_mapped()) return address;
  return asio::ip::make_address_v4(asio::ip::v4_mapped, address.to_v6());
}

}  // namespace

std::string AddressOf(const asio::ip::address& address) { return Unmapped(address).to_string(); }

bool IsLoopback(const asio::ip::address& address) { return Unmapped(address).is_loopback(); }

std::string GuestOf(const asio::ip::address& address) {
  const auto plain = Unmapped(address);
  if (plain.is_v4()) return plain.to_string();
  auto bytes = plain.to_v6().to_bytes();
  std::fill(bytes.begin() + 8, bytes.end(), static_cast<unsigned char>(0));
  return asio::ip::address_v6(bytes).to_string();
}

Server::Server(asio::io_context& context, ServerSettings settings, Handler handler)
    : State_(std::make_shared<ServerState>(context, std::move(settings), std::move(handler))) {
  try {
    for (const auto& endpoint : State_->Settings.Listen) State_->Listen(endpoint);
  } catch (...) {
    State_->Stop();
    throw;
  }
}

Server::~Server() { Stop(); }

std::vector<Endpoint> Server::Endpoints() const {
  std::vector<Endpoint> endpoints;
  for (const auto& [told, acceptor] : State_->Acceptors) {
    const auto where = acceptor->local_endpoint();
    endpoints.push_back({where.address().to_string(), where.port()});
  }
  return endpoints;
}

std::size_t Server::Connections() const { return State_->Connections.size(); }

void Server::WhenConnectionGone(std::function<void(std::uint64_t)> gone) {
  State_->WhenConnectionGone.push_back(std::move(gone));
}

void Server::ListenOnlyAt(const std::vector<Endpoint>& endpoints) { State_->ListenOnlyAt(endpoints); }

void Server::ListenAt(const std::vector<Endpoint>& endpoints) { State_->ListenAt(endpoints); }

void Server::UseCertificate(Certificate certificate) { State_->TLS = std::move(certificate); }

void Server::UseLimits(const ServerLimits& limits) { State_->Settings.Limits = limits; }

void Server::Stop() { State_->Stop(); }

}  // namespace ptzgate
