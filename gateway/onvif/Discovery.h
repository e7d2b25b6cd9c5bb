#pragma once

#include <boost/asio/ip/udp.hpp>

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/core/Gate.h"
#include "gateway/onvif/Element.h"

namespace ptzgate {

/// What somebody who looks for cameras on the network wants to know.
struct Probe {
  std::string MessageID;
  std::vector<std::string> Types;   ///< local names; empty: all
  std::vector<std::string> Scopes;  ///< those found have all of these; empty: all
  bool WantsWholeScopes = false;    ///< or else also those that begin as these
};
/// Nothing for what is no probe. Touches nothing but the text.
std::optional<Probe> ReadProbe(std::string_view text);

/// Tells those who look for cameras on the network (WS-Discovery, by multicast) of this site's, and when they
/// come and go. Used on the gateway's thread.
class Discovery {
 public:
  /// Where clients reach a device; an address of no host in particular is told as the one by which the
  /// question came.
  struct Reach {
    std::string Host;
    std::uint16_t Port = 0;
    bool IsSecure = false;
    std::string Path;
  };
  using WhereIs = std::function<Reach(const std::string& camera)>;

  /// Raises `std::runtime_error` where the system does not let it hear.
  Discovery(Gate& gate, WhereIs whereIs);
  /// Says goodbye.
  ~Discovery();
  Discovery(const Discovery&) = delete;
  Discovery& operator=(const Discovery&) = delete;

 private:
  using UDP = boost::asio::ip::udp;

  void Join();
  void Receive();
  void Answer(const Probe& probe, const UDP::endpoint& to);
  /// A camera with where it is, as somebody at an address of this machine's reaches it.
  Element Match(std::string name, const GateCamera& camera, const boost::asio::ip::address& local) const;
  /// To everybody, on each interface: that a camera is there, or is no more.
  void Tell(const GateCamera& camera, bool isThere);
  void Send(const std::string& text, const UDP::endpoint& to);
  /// "BEGIN.COUNT", of when this began and what it has sent since.
  std::string NextNumber();
  std::string NewMessage() const;

  Gate& Gate_;
  const WhereIs WhereIs_;
  UDP::socket Socket_;
  std::vector<boost::asio::ip::address_v4> Interfaces_;
  std::array<char, 16384> Buffer_{};
  UDP::endpoint From_;
  const std::uint64_t Begun_;
  std::uint64_t Sent_ = 0;
  std::chrono::steady_clock::time_point Second_;
  int Probes_ = 0, Answers_ = 0;  ///< of this second
  std::shared_ptr<void> Watch_;
};

}  // namespace ptzgate
