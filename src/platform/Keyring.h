#pragma once

#include <optional>
#include <string>

namespace ptzd {

// The keyring of the user's session, where the system has one. All may block until somebody has unlocked it;
// all raise `std::runtime_error`, which tells why, where there is none or it refuses.

/// Nothing where it holds no password of this camera and user.
std::optional<std::string> ReadFromKeyring(const std::string& camera, const std::string& user);
/// Takes the place of one that it holds.
void StoreInKeyring(const std::string& camera, const std::string& user, const std::string& password);
/// Nothing happens where it holds none.
void RemoveFromKeyring(const std::string& camera, const std::string& user);

}  // namespace ptzd
