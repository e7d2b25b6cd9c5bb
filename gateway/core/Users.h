#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ptzgate {

/// What somebody may do with a camera. Each includes those before it.
enum class Role {
  None,           ///< does not see it
  Viewer,         ///< sees it, its state and its picture
  Operator,       ///< moves it, goes to presets, runs tours
  Administrator,  ///< saves presets, connects and disconnects, sets options
};
/// "none", "viewer", "operator", "administrator"
std::string_view Name(Role role);

struct User {
  std::string Name;
  std::string PasswordHash;                ///< Argon2id as libsodium writes it; empty: no login by password
  std::optional<std::string> ONVIFSecret;  ///< in the clear, which the digests of ONVIF need
  std::int32_t Priority = 0;
  Role Everywhere = Role::None;
  std::map<std::string, Role> Groups;  ///< by the name of a group
};

/// Who may do what. Without users there are no logins, and whoever reaches the gateway may do everything.
class Users {
 public:
  Users() = default;
  /// `groups`: names of cameras, in which "*" stands for any text.
  Users(std::vector<User> users, std::map<std::string, std::vector<std::string>> groups)
      : Users_(std::move(users)), Groups_(std::move(groups)) {}

  bool AreThere() const { return !Users_.empty(); }
  const std::vector<User>& All() const { return Users_; }
  /// Null where there is none of that name, which counts letter by letter.
  const User* Find(std::string_view name) const;
  /// The furthest of the roles that a user has on a camera; `None` for nobody's name.
  Role RoleOf(std::string_view user, const std::string& camera) const;
  /// Whether a user is an administrator of everything.
  bool IsAdministrator(std::string_view user) const;
  std::int32_t PriorityOf(std::string_view user) const;
  /// A number that is another one once a user's password, roles or priority are others, or he is gone.
  std::uint64_t StampOf(std::string_view user) const;

 private:
  std::vector<User> Users_;
  std::map<std::string, std::vector<std::string>> Groups_;
};

/// Whether a text is what a pattern says, in which "*" stands for any text.
bool Matches(std::string_view pattern, std::string_view text);

}  // namespace ptzgate
