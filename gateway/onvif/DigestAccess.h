#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

#include "gateway/core/Gate.h"
#include "gateway/onvif/Envelope.h"
#include "gateway/web/Message.h"

namespace ptzgate {

/// Finds out who an ONVIF client is, by the digests of WS-UsernameToken and of HTTP (RFC 7616, MD5 and
/// SHA-256), none of which is good for a second time. Used on the gateway's thread.
class DigestAccess {
 public:
  explicit DigestAccess(Gate& gate);

  /// Nothing of who it is: this is what it is answered.
  struct Unknown {
    Response Answer;
  };
  /// The user, or the empty text where there are none. Login by HTTP counts before that in the message.
  std::variant<std::string, Unknown> Identify(const Request& request,
                                              const std::optional<UsernameToken>& token);

 private:
  struct Verdict;
  using Clock = std::chrono::system_clock;

  Verdict CheckToken(const UsernameToken& token, const std::string& secret);
  Verdict CheckHTTP(const Request& request, const std::map<std::string, std::string>& login,
                    const std::string& secret);
  Response Challenge(Response response, bool isStale) const;
  std::string NewNonce(Clock::time_point when) const;
  /// Since when a nonce of ours is; nothing for others'.
  std::optional<Clock::time_point> BeginOf(std::string_view nonce) const;

  Gate& Gate_;
  std::array<unsigned char, 32> Key_{};  ///< of the nonces
  /// Digests of tokens that were used, as long as their time would let them be used again.
  std::set<std::string> Used_;
  std::deque<std::pair<Clock::time_point, std::string>> UsedUntil_;
  /// Of the nonces with which somebody has logged in: the counts that came.
  struct Counts {
    std::uint64_t Greatest = 0;
    std::uint64_t Before = 0;  ///< a bit for each of the 64 before it, the lowest for the next lower
  };
  std::map<std::string, Counts, std::less<>> Counts_;
};

}  // namespace ptzgate
