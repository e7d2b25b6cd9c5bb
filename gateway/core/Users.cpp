#include "gateway/core/Users.h"

#include <algorithm>
#include <sstream>

#include "gateway/core/Client.h"

namespace ptzgate {

std::string_view Name(Role role) {
  switch (role) {
    case Role::None:
      return "none";
    case Role::Viewer:
      return "viewer";
    case Role::Operator:
      return "operator";
    case Role::Administrator:
      return "administrator";
  }
  return {};
}

const User* Users::Find(std::string_view name) const {
  const auto user = std::ranges::find(Users_, name, &User::Name);
  return user == Users_.end() ? nullptr : &*user;
}

Role Users::RoleOf(std::string_view name, const std::string& camera) const {
  if (!AreThere()) return Role::Administrator;
  const auto* user = Find(name);
  if (user == nullptr) return Role::None;
  auto furthest = user->Everywhere;
  for (const auto& [group, role] : user->Groups) {
    const auto patterns = Groups_.find(group);
    if (patterns == Groups_.end()) continue;
    const auto holds = [&](const std::string& pattern) { return Matches(pattern, camera); };
    if (role > furthest && std::ranges::any_of(patterns->second, holds)) furthest = role;
  }
  return furthest;
}

bool Users::IsAdministrator(std::string_view name) const {
  if (!AreThere()) return true;
  const auto* user = Find(name);
  return user != nullptr && user->Everywhere == Role::Administrator;
}

std::int32_t Users::PriorityOf(std::string_view name) const {
  const auto* user = Find(name);
  return user == nullptr ? 0 : user->Priority;
}

std::uint64_t Users::StampOf(std::string_view name) const {
  const auto* user = Find(name);
  if (user == nullptr) return AreThere() ? 1 : 0;
  std::ostringstream text;
  text << user->Name << '\n' << user->PasswordHash << '\n' << user->Priority;
  text << '\n' << ptzgate::Name(user->Everywhere);
  for (const auto& [group, role] : user->Groups) {
    text << '\n' << group << '\n' << ptzgate::Name(role);
    const auto patterns = Groups_.find(group);
    if (patterns == Groups_.end()) continue;
    for (const auto& pattern : patterns->second) text << '\n' << pattern;
  }
  return SessionOf(text.str());
}

bool Matches(std::string_view pattern, std::string_view text) {
  // Where the latest "*" stands and how much of the text it takes; only that one need ever take more.
  auto star = std::string_view::npos;
  std::size_t taken = 0, at = 0, place = 0;
  while (place < text.size()) {
    if (at < pattern.size() && pattern[at] == '*') {
      star = at++;
      taken = place;
    } else if (at < pattern.size() && pattern[at] == text[place]) {
      ++at, ++place;
    } else if (star != std::string_view::npos) {
      at = star + 1;
      place = ++taken;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', at) == std::string_view::npos;
}

}  // namespace ptzgate
