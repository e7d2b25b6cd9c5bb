#include "common/Credentials.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <mutex>
#include <tuple>
#include <utility>

namespace ptzd {

namespace {

constexpr std::string_view Mask = "***";

/// Shorter users and passwords are part of too many other words.
constexpr std::size_t ShortestAlone = 4;

/// What is looked for, and what stands there instead.
struct Secret {
  std::string Text, Shown = std::string(Mask);
  bool OnlyAsWord = false;

  /// A longer one first: a shorter one may be part of it.
  bool operator<(const Secret& other) const {
    if (Text.size() != other.Text.size()) return Text.size() > other.Text.size();
    return std::tie(Text, Shown, OnlyAsWord) < std::tie(other.Text, other.Shown, other.OnlyAsWord);
  }
};

std::vector<Secret> SecretsOf(const Login& login) {
  const auto& [user, password] = login;
  std::vector<Secret> secrets;
  const auto add = [&](std::string text, std::string_view behind, bool onlyAsWord = false) {
    secrets.push_back({std::move(text), std::string(Mask).append(behind), onlyAsWord});
  };
  const auto both = password.empty() ? user : user + ":" + password;
  if (!both.empty()) add(both + "@", "@");
  if (!user.empty()) secrets.push_back({"usr=" + user, "usr=***"});
  if (!password.empty()) secrets.push_back({"pwd=" + password, "pwd=***"});
  if (!password.empty() && both.size() >= ShortestAlone) add(both, "");
  if (password.size() >= ShortestAlone) add(password, "");
  if (user.size() >= ShortestAlone) add(user, "", true);
  return secrets;
}

/// The secrets of all logins held, and how often.
struct Registry {
  std::mutex Mutex;
  std::map<Secret, int> Secrets;
};

// Never destroyed: threads that outlive main may still log.
Registry& TheRegistry() {
  static auto& registry = *new Registry;
  return registry;
}

/// How long the escape of a character at the beginning of a text is, 0 where there is none. "%2540" is the
/// escape of an escape.
std::size_t LengthOfEscape(std::string_view text, char character) {
  for (std::size_t at = 1; text.starts_with('%') && at + 2 <= text.size(); at += 2) {
    unsigned code = 0;
    const auto* digits = text.data() + at;
    if (std::from_chars(digits, digits + 2, code, 16).ptr != digits + 2) break;
    if (code == static_cast<unsigned char>(character)) return at + 2;
    if (code != '%') break;
  }
  return 0;
}

/// How much of the beginning of a text spells a secret, 0 where it does not.
std::size_t LengthOfSpelling(std::string_view text, std::string_view secret) {
  std::size_t at = 0;
  for (std::size_t i = 0; i < secret.size(); ++i) {
    const char c = secret[i];
    const auto escape = LengthOfEscape(text.substr(at), c);
    if (c == '%' && escape != 0) {
      // "%25" may be the escape of a "%" as well as a "%", "2" and "5".
      if (i + 1 == secret.size()) return at + escape;
      const auto rest = LengthOfSpelling(text.substr(at + escape), secret.substr(i + 1));
      if (rest != 0) return at + escape + rest;
    }
    if (at < text.size() && (text[at] == c || (c == ' ' && text[at] == '+')))
      ++at;
    else if (escape != 0)
      at += escape;
    else
      return 0;
  }
  return at;
}

bool IsWordCharacter(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' ||
         static_cast<unsigned char>(c) >= 0x80;
}

/// Whether what stands between two places is no part of a longer word, of a path, a dotted name or an option,
/// and no host.
bool IsWord(std::string_view text, std::size_t begin, std::size_t end) {
  constexpr std::string_view joinsBefore = "/.-@", joinsBehind = "/.-=";
  const auto before = text.substr(0, begin), behind = text.substr(end);
  const bool escaped = begin >= 3 && text[begin - 3] == '%';
  if (!before.empty() && !escaped &&
      (IsWordCharacter(before.back()) || joinsBefore.find(before.back()) != std::string_view::npos))
    return false;
  if (behind.empty()) return true;
  const bool joined = joinsBehind.find(behind[0]) != std::string_view::npos && behind.size() > 1;
  return !IsWordCharacter(joined ? behind[1] : behind[0]);
}

/// Where a line's own beginning ends, by which its readers know it.
std::size_t EndOfBeginning(std::string_view line) {
  constexpr std::string_view beginnings[] = {
      "Requesting http://",        "Requesting ", "Sending: http://", "Sending: ",
      "Request complete. Reply: ", "Received: ",  "Request failed.",  "Request error ",
  };
  for (const auto beginning : beginnings)
    if (line.starts_with(beginning)) return beginning.size();
  return 0;
}

void MaskHeld(std::string& text) {
  auto& registry = TheRegistry();
  const std::lock_guard lock(registry.Mutex);
  if (registry.Secrets.empty()) return;
  const auto begin = EndOfBeginning(text);
  for (const auto& [secret, count] : registry.Secrets) {
    for (auto at = begin; at < text.size(); ++at) {
      const auto length = LengthOfSpelling(std::string_view(text).substr(at), secret.Text);
      if (length == 0 || (secret.OnlyAsWord && !IsWord(text, at, at + length))) continue;
      text.replace(at, length, secret.Shown);
      at += secret.Shown.size() - 1;
    }
  }
}

constexpr std::string_view Blanks = " \t\r\n";

/// Where the user and password of an address end, which is at an "@"; npos where it has none. They end before
/// the path begins, unless a password holds an unescaped "/": then what stands before it is no host and port.
std::size_t EndOfUserInfo(std::string_view address) {
  const auto authority = address.substr(0, address.find_first_of("/?#"));
  if (const auto sign = authority.rfind('@'); sign != std::string_view::npos) return sign;
  const auto colon = authority.find(':');
  if (colon == std::string_view::npos || authority.starts_with('[')) return std::string_view::npos;
  const bool isPort = authority.find_first_not_of("0123456789", colon + 1) == std::string_view::npos;
  return isPort ? std::string_view::npos : address.rfind('@');
}

/// An address is a word, behind "://" where it has a scheme; without one only "user:password@" tells it.
void MaskUserInfo(std::string& text) {
  for (std::size_t begin = 0; begin < text.size();) {
    auto end = std::min(text.find_first_of(Blanks, begin), text.size());
    const std::string_view word(text.data() + begin, end - begin);
    const auto scheme = word.find("://");
    const auto address = word.substr(scheme == std::string_view::npos ? 0 : scheme + 3);
    const auto sign = EndOfUserInfo(address);
    if (sign != std::string_view::npos && (scheme != std::string_view::npos || address.find(':') < sign)) {
      text.replace(end - address.size(), sign, Mask);
      end += Mask.size() - sign;
    }
    begin = end + 1;
  }
}

void MaskParameter(std::string& text, std::string_view name) {
  for (auto at = text.find(name); at != std::string::npos; at = text.find(name, at)) {
    const bool begins = at > 0 && (text[at - 1] == '?' || text[at - 1] == '&');
    at += name.size();
    if (!begins) continue;
    const auto end = std::min(text.find_first_of("&# \t\r\n", at), text.size());
    text.replace(at, end - at, Mask);
    at += Mask.size();
  }
}

}  // namespace

void MaskedLogins::Set(std::vector<Login> logins) {
  if (logins.empty() && Held_.empty()) return;
  auto& registry = TheRegistry();
  const std::lock_guard lock(registry.Mutex);
  for (const auto& login : logins)
    for (auto& secret : SecretsOf(login)) ++registry.Secrets[std::move(secret)];
  for (const auto& login : Held_)
    for (const auto& secret : SecretsOf(login))
      if (const auto found = registry.Secrets.find(secret); --found->second == 0)
        registry.Secrets.erase(found);
  Held_ = std::move(logins);
}

std::string MaskCredentials(std::string_view text) {
  std::string masked(text);
  MaskHeld(masked);
  MaskUserInfo(masked);
  MaskParameter(masked, "usr=");
  MaskParameter(masked, "pwd=");
  return masked;
}

bool HasLogin(std::string_view url) {
  const auto scheme = url.find("://");
  const auto rest = url.substr(scheme == std::string_view::npos ? 0 : scheme + 3);
  return rest.substr(0, rest.find_first_of("/?")).find('@') != std::string_view::npos;
}

}  // namespace ptzd
