#pragma once

#include <boost/asio/io_context.hpp>

#include <functional>
#include <memory>
#include <string>

#include "gateway/core/Users.h"

namespace ptzgate {

/// An Argon2id hash of a password, as `User::PasswordHash` has it. Takes about a tenth of a second and 64 MB.
/// Raises `std::runtime_error` where there is no memory for it.
std::string HashOf(const std::string& password);
/// Whether a text is such a hash.
bool IsHash(const std::string& text);

/// Checks passwords, on a thread of its own, and slows those down who guess: after a few wrong ones of an
/// address or for a user each further try waits, up to half a minute, and what comes meanwhile is refused. A
/// password that was right is known again at that address for some minutes after its last use, without its
/// hash being worked out anew, and even while others are slowed there; where a user has logged in before, he
/// is not slowed by what is tried in his name elsewhere. All that is kept of names, passwords and addresses
/// is bounded in size, and of passwords it is a hash with a key that dies with this. Used on the gateway's
/// thread.
class Logins {
 public:
  enum class Verdict {
    Right,
    Wrong,   ///< also where there is no such user, which takes as long
    Slowed,  ///< too many tries, users changed meanwhile, or no memory; nothing was found out
  };

  /// `users` is asked for those there are now; what it answers lives until the next call.
  Logins(boost::asio::io_context& context, std::function<const Users&()> users);
  ~Logins();
  Logins(const Logins&) = delete;
  Logins& operator=(const Logins&) = delete;

  /// `told` is called once on the gateway's thread, perhaps before this returns; not at all once this has
  /// died. `address` is the client's without its port.
  void Check(const std::string& user, const std::string& password, const std::string& address,
             std::function<void(Verdict)> told);
  /// For a face that checks digests itself: whether a try may be looked at, and what came of it.
  bool MayTry(const std::string& user, const std::string& address);
  void Note(const std::string& user, const std::string& address, bool isRight);
  /// After the users changed: nothing is known again.
  void Forget();

 private:
  struct State;
  std::shared_ptr<State> State_;
};

}  // namespace ptzgate
