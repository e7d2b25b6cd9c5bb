#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace ptzgate {

/// Who wishes for something, and by which way it came.
struct Client {
  std::string User;  ///< empty where the gateway has no users
  std::string From;  ///< "192.168.0.5:51234", or what the face has in place of it
  std::string Face;  ///< "api", "console", "onvif", "mqtt", "remote"
  /// Its own for whoever can hold a camera: two windows of one user are two.
  std::uint64_t Session = 0;
  std::int32_t Priority = 0;  ///< the greater takes a camera from the lesser
  /// `Users::StampOf` of when he was known, and the session he had logged in to; 0 for none. For faces that
  /// go on telling him things.
  std::uint64_t Stamp = 0, Login = 0;

  /// "anna at 192.168.0.5:51234", for people.
  std::string Text() const;
};

/// A number for a client's session that nobody else in this process has.
std::uint64_t NextSession();
/// The same number for the same key: for faces that know a client again by what it says of itself, not by its
/// connection.
std::uint64_t SessionOf(std::string_view key);

}  // namespace ptzgate
