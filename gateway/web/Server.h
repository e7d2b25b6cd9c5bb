#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/web/Call.h"

namespace boost::asio {
class io_context;
namespace ssl {
class context;
}
}  // namespace boost::asio

namespace ptzgate {

struct ServerState;

/// Where a server listens.
struct Endpoint {
  std::string Host =
      "127.0.0.1";         ///< a name, an IPv4 or IPv6 address, or "*" for every address of both kinds
  std::uint16_t Port = 0;  ///< 0: one chosen by the system
  int Socket = -1;         ///< when not -1: one that listens already, in place of the above; now the server's
};

/// PEM files.
struct CertificateFiles {
  std::string Chain;  ///< the server's certificate and those up to the root
  std::string Key;    ///< its private key, not encrypted
};

/// A certificate with its key, read and fit for each other; null: plain HTTP.
using Certificate = std::shared_ptr<boost::asio::ssl::context>;
/// Throws std::runtime_error, which names the file, when they are not in order.
Certificate ReadCertificate(const CertificateFiles& files);

/// What clients may ask of a server. An address is one of IPv4 or a /64 of IPv6. None may be 0 but where
/// told.
struct ServerLimits {
  std::size_t HeaderBytes = 16 * 1024;   ///< request line and headers; beyond it 414 or 431
  std::size_t BodyBytes = 1024 * 1024;   ///< beyond it 413
  std::size_t MessageBytes = 64 * 1024;  ///< of one WebSocket message; beyond it close code 1009
  std::size_t Backlog =
      1024 * 1024;  ///< waiting for the reader of a stream or WebSocket, beyond the longest message
  std::size_t Connections = 1000;           ///< in total; beyond it 503
  std::size_t ConnectionsPerAddress = 100;  ///< beyond it 503
  double RequestsPerSecond = 100;  ///< by address, on average; beyond it 429. 0: as many as they like
  double RequestBurst = 200;       ///< as many at once
  double MessagesPerSecond = 100;  ///< by WebSocket; beyond it close code 1008. 0: as many as they like
  double MessageBurst = 200;       ///< as many at once
  std::chrono::milliseconds HeaderTimeout{
      10000};                                    ///< TLS handshake; then until a request's headers are there
  std::chrono::milliseconds BodyTimeout{30000};  ///< until its body is there
  std::chrono::milliseconds IdleTimeout{60000};  ///< between requests of a connection
  std::chrono::milliseconds WriteTimeout{
      10000};  ///< a peer that takes or acknowledges nothing so long is gone
  std::chrono::milliseconds LingerTimeout{2000};  ///< for the peer to close, after the last answer
  std::chrono::milliseconds WebSocketIdle{5000};  ///< without a sign of life, though pinged after half of it
};

struct ServerSettings {
  std::vector<Endpoint> Listen{{}};
  ServerLimits Limits{};
  /// Requests that are not counted and never refused with 429; for what must not wait, such as a stop.
  std::function<bool(const Request&)> IsUrgent{};
  /// What went wrong on the server's side, one line each. Empty: to standard error.
  std::function<void(const std::string&)> Log{};
};

/// An HTTP/1.1 server, with WebSockets, that knows nothing of what it serves. It works on the thread that
/// runs the context (the gate's thread), which must outlive it; all members and all that it calls are for
/// that thread.
class Server {
 public:
  /// Called with each request. What it throws is answered 500, and the log says so.
  using Handler = std::function<void(std::shared_ptr<Call>)>;

  /// Listens at once. Throws std::runtime_error, saying of which address, when it cannot.
  Server(boost::asio::io_context& context, ServerSettings settings, Handler handler);
  /// As `Stop`.
  ~Server();
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  /// Where it listens: addresses, not names, and ports as chosen.
  std::vector<Endpoint> Endpoints() const;

  /// How many there are now.
  std::size_t Connections() const;

  /// Adds what is told the number of each connection that has ended, by whichever side, upgraded ones too.
  void WhenConnectionGone(std::function<void(std::uint64_t)> gone);

  /// No longer listens but at these; connections stay. Endpoints are the same by host and port, as they were
  /// told.
  void ListenOnlyAt(const std::vector<Endpoint>& endpoints);
  /// Listens there, too, where it does not yet. Throws std::runtime_error at the first where it cannot.
  void ListenAt(const std::vector<Endpoint>& endpoints);
  /// For connections to come: with one they speak HTTPS only, TLS 1.2 and 1.3.
  void UseCertificate(Certificate certificate);
  /// From now on; for connections to come and, but for time-outs that run already, those that are.
  void UseLimits(const ServerLimits& limits);

  /// Stops listening and cuts all connections; calls what waits to be told of that before it returns.
  void Stop();

 private:
  std::shared_ptr<ServerState> State_;
};

}  // namespace ptzgate
