#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "gateway/core/Gate.h"
#include "gateway/web/Call.h"

namespace ptzgate {

/// Finds out who calls by HTTP: by the cookie of a session, by Basic, or anybody where the gateway has no
/// users. Used on the gateway's thread.
class HTTPAccess {
 public:
  explicit HTTPAccess(Gate& gate) : Gate_(gate) {}

  /// `known` is called with whoever it is, perhaps before this returns. Everybody else is answered here: 401,
  /// 403 for a page of another site that uses the browser of somebody who is logged in, 429 for too many
  /// tries.
  void Identify(const std::shared_ptr<Call>& call, const std::string& face,
                std::function<void(const Client&)> known);

  /// Begins a session, whose cookie is answered with `response`; 401 and 429 otherwise. Nobody needs to be
  /// known for it.
  void LogIn(const std::shared_ptr<Call>& call, const std::string& user, const std::string& password,
             Response response);
  /// Ends the caller's session and takes its cookie back with `response`.
  void LogOut(const std::shared_ptr<Call>& call, Response response);

  /// Whether he who was known once would still be: nobody has logged him out, and to the users he is who he
  /// was.
  bool StillKnows(const Client& client) const;
  /// Adds what is called whenever that may be otherwise.
  void WhenKnownChanges(std::function<void()> changed) { Changed_.push_back(std::move(changed)); }
  /// After the users changed.
  void Reload();

  /// Whether the page that sent the request, if any, is this gateway's own. Where there are no users, also
  /// whether it was asked for as a machine's own address, since names can be made to mean that.
  bool IsOwnPage(const Request& request) const;

 private:
  struct Session {
    std::string User;
    std::string PasswordHash;  ///< that it began with
    std::uint64_t Number = 0;
    std::chrono::steady_clock::time_point LastUsed;
  };

  bool IsOver(const Session& session) const;
  /// The session of a request's cookie; null for none, and for one that is over.
  Session* SessionOf(const Request& request);
  Client ClientOf(const Request& request, const std::string& face, const std::string& user,
                  std::uint64_t session) const;

  Gate& Gate_;
  std::map<std::string, Session> Sessions_;  ///< by the cookie's value
  std::vector<std::function<void()>> Changed_;
  std::shared_ptr<int> Life_ = std::make_shared<int>();
};

}  // namespace ptzgate
