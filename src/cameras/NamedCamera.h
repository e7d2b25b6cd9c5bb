#pragma once

#include <functional>
#include <optional>
#include <string>

#include <ptzd/CameraControl.h>
#include "cameras/SerialLines.h"
#include "common/Credentials.h"

namespace ptzd {

/// Where a camera's password comes from.
struct PasswordSource {
  enum class Kind {
    Unsaid,       ///< the environment's PTZD_PASSWORD, or somebody is asked
    Asked,        ///< somebody is asked
    Environment,  ///< `Where` is a variable
    File,         ///< `Where` is a path
    Keyring,
    Here,  ///< `Where` is the password itself
  };
  Kind From = Kind::Unsaid;
  std::string Where;

  /// "environment GATE_PASSWORD", never a password
  std::string Text() const;
  bool operator==(const PasswordSource&) const = default;
};

/// A camera as a file has it.
struct NamedCamera {
  std::string Name;
  std::string File;         ///< that it stands in
  CameraSettings Settings;  ///< of which the options have no address yet and, for a line, no port
  std::string Address;      ///< without a login; empty for a camera on a line
  std::string Line;         ///< empty for a camera on the network
  std::string User;         ///< empty: nobody logs in
  PasswordSource Password;
};

/// Whether two are the same camera in every setting, whichever file they stand in. Of a password that is
/// kept elsewhere, where that is counts, not what it is by now.
bool AreAlike(const NamedCamera& a, const NamedCamera& b);

/// Asks somebody for a password, who sees the question; nothing where nobody can be asked.
using AskPassword = std::function<std::optional<std::string>(const std::string& question)>;

/// The user and password of a camera; `whose` is its name, for texts and the keyring. May block on whoever is
/// asked, and on the keyring. Raises `InputError`, which tells why there is none.
Login LoginOf(const std::string& whose, const std::string& user, const PasswordSource& source,
              const AskPassword& ask);

/// The first line of a file that only its owner may read. Raises `InputError`, which tells why not.
std::string SecretFrom(const std::string& file);

/// "user:password@host" with all that has a meaning there encoded. Raises `InputError` for characters that
/// no camera can be sent.
std::string AddressFor(const std::string& address, const Login& login);

/// How to reach the camera. The same errors as those of `LoginOf`.
CameraSettings SettingsOf(const NamedCamera& camera, const AskPassword& ask, SerialLines& lines);
/// The same for one that shares no line with others.
CameraSettings SettingsOf(const NamedCamera& camera, const AskPassword& ask);

}  // namespace ptzd
