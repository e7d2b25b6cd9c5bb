#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ptzd {

/// A user and password, in one of the ways in which a text may spell them.
struct Login {
  std::string User, Password;
  bool operator==(const Login&) const = default;
};

/// While it lives, `MaskCredentials` knows the logins that it holds, and so no log message shows them. They
/// are found in any spelling: with any character percent-encoded, once or again, and "+" for a blank.
///
/// - "user:password@", "usr=user" and "pwd=password" are masked wherever they stand and however short.
/// - Elsewhere a password, and "user:password", is masked from 4 characters on, anywhere; a user from 4
///   characters on where it is a word of its own, which it is not in "root.PTZ", "camera=1" or
///   "/cgi-bin/operator/preset.cgi". What is shorter stays: it would be found in every other message, and
///   tell nothing there.
/// - The words with which the library begins its own lines, such as "Requesting ", stay whatever the
/// password.
///
/// Any thread may make, set and destroy one while others log.
class MaskedLogins {
 public:
  MaskedLogins() = default;
  ~MaskedLogins() { Set({}); }
  MaskedLogins(const MaskedLogins&) = delete;
  MaskedLogins& operator=(const MaskedLogins&) = delete;

  /// Replaces the logins that it held.
  void Set(std::vector<Login> logins);

 private:
  std::vector<Login> Held_;
};

/// The text with credentials replaced by "***": the logins that any `MaskedLogins` holds and, of others, what
/// stands before the "@" of an address and the values of the query parameters "usr" and "pwd".
std::string MaskCredentials(std::string_view text);

/// Whether a user or password, masked or not, stands before the host of a URL.
bool HasLogin(std::string_view url);

}  // namespace ptzd
