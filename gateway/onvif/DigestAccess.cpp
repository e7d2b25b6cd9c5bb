#include "gateway/onvif/DigestAccess.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <stdexcept>

#include "gateway/onvif/Times.h"

namespace ptzgate {

using namespace std::chrono_literals;

namespace {

constexpr char Realm[] = "ptzgate";
/// How far a client's clock may be from this one's.
constexpr auto MostApart = 5min;
constexpr auto NonceLife = 5min;
/// Then no more tokens are taken until others are too old; none may be forgotten before.
constexpr std::size_t MostUsed = 200000;
constexpr std::size_t MostNonces = 10000;

std::string Hash(const EVP_MD* kind, std::string_view text) {
  std::string digest(EVP_MAX_MD_SIZE, '\0');
  unsigned size = 0;
  if (EVP_Digest(text.data(), text.size(), reinterpret_cast<unsigned char*>(digest.data()), &size, kind,
                 nullptr) != 1)
    throw std::runtime_error("OpenSSL cannot work out a digest");
  digest.resize(size);
  return digest;
}

std::string Hex(std::string_view bytes) {
  constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (const unsigned char byte : bytes) {
    text += digits[byte >> 4];
    text += digits[byte & 15];
  }
  return text;
}

std::string HexHash(const EVP_MD* kind, std::string_view text) { return Hex(Hash(kind, text)); }

/// Nothing for what is no Base64.
std::optional<std::string> FromBase64(std::string_view text) {
  if (text.size() % 4 != 0 || text.size() > 1024) return std::nullopt;
  std::string bytes(text.size() / 4 * 3, '\0');
  const int size =
      EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                      reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size()));
  if (size < 0) return std::nullopt;
  std::size_t padding = 0;
  while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=') ++padding;
  bytes.resize(static_cast<std::size_t>(size) - padding);
  return bytes;
}

bool AreSame(std::string_view left, std::string_view right) {
  return left.size() == right.size() && CRYPTO_memcmp(left.data(), right.data(), left.size()) == 0;
}

/// "Digest a="b", c=d" as a map; nothing for another scheme, or what is malformed.
std::optional<std::map<std::string, std::string>> DigestLogin(std::string_view header) {
  constexpr std::string_view scheme = "Digest ";
  if (!EqualIgnoringCase(header.substr(0, scheme.size()), scheme)) return std::nullopt;
  header.remove_prefix(scheme.size());
  std::map<std::string, std::string> parts;
  const auto skip = [&](std::string_view what) {
    header.remove_prefix(std::min(header.find_first_not_of(what), header.size()));
  };
  for (skip(", \t"); !header.empty(); skip(", \t")) {
    const auto equals = header.find('=');
    if (equals == std::string_view::npos) return std::nullopt;
    std::string name(header.substr(0, equals)), value;
    header.remove_prefix(equals + 1);
    if (header.starts_with('"')) {
      header.remove_prefix(1);
      while (!header.empty() && header.front() != '"') {
        if (header.front() == '\\') header.remove_prefix(1);
        if (header.empty()) return std::nullopt;
        value += header.front();
        header.remove_prefix(1);
      }
      if (header.empty()) return std::nullopt;
      header.remove_prefix(1);
    } else {
      value = header.substr(0, header.find_first_of(", \t"));
      header.remove_prefix(value.size());
    }
    std::ranges::transform(name, name.begin(),
                           [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    if (!parts.emplace(std::move(name), std::move(value)).second) return std::nullopt;
  }
  return parts;
}

}  // namespace

/// Of one try.
struct DigestAccess::Verdict {
  enum class Kinds {
    Right,
    Wrong,  ///< the password was not known
    Stale,  ///< it was, or was not looked at: this was used before, or is too old
  };
  Kinds Kind = Kinds::Wrong;
  std::string Why;
};

DigestAccess::DigestAccess(Gate& gate) : Gate_(gate) {
  if (RAND_bytes(Key_.data(), static_cast<int>(Key_.size())) != 1)
    throw std::runtime_error("OpenSSL has no random numbers");
}

std::string DigestAccess::NewNonce(Clock::time_point when) const {
  const auto time =
      std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(when.time_since_epoch()).count());
  std::array<unsigned char, EVP_MAX_MD_SIZE> seal{};
  unsigned size = 0;
  if (HMAC(EVP_sha256(), Key_.data(), static_cast<int>(Key_.size()),
           reinterpret_cast<const unsigned char*>(time.data()), time.size(), seal.data(), &size) == nullptr)
    throw std::runtime_error("OpenSSL cannot seal a nonce");
  return time + "-" + Hex({reinterpret_cast<const char*>(seal.data()), size});
}

std::optional<DigestAccess::Clock::time_point> DigestAccess::BeginOf(std::string_view nonce) const {
  std::int64_t time = 0;
  const auto [end, error] = std::from_chars(nonce.data(), nonce.data() + nonce.size(), time);
  if (error != std::errc() || time < 0 || time > std::int64_t{1} << 42) return std::nullopt;
  const Clock::time_point when{std::chrono::milliseconds(time)};
  if (!AreSame(NewNonce(when), nonce)) return std::nullopt;
  return when;
}

/// RFC 7616 has the better one first; clients that know one only, and take the first, know MD5.
Response DigestAccess::Challenge(Response response, bool isStale) const {
  response.Status = 401;
  const auto nonce = NewNonce(Clock::now());
  for (const char* algorithm : {"MD5", "SHA-256"})
    response.Headers.emplace_back("WWW-Authenticate", std::string("Digest realm=\"") + Realm +
                                                          "\", qop=\"auth\", algorithm=" + algorithm +
                                                          ", nonce=\"" + nonce +
                                                          "\", stale=" + (isStale ? "true" : "false"));
  return response;
}

DigestAccess::Verdict DigestAccess::CheckToken(const UsernameToken& token, const std::string& secret) {
  using Kinds = Verdict::Kinds;
  const auto nonce = FromBase64(token.Nonce), digest = FromBase64(token.Digest);
  if (!nonce || nonce->empty() || !digest || digest->empty())
    return {Kinds::Wrong, "a digest of the password is wanted, with a nonce and a time"};
  const auto created = ReadTime(token.Created);
  const auto now = Clock::now();
  if (!created || *created < now - MostApart || *created > now + MostApart)
    return {Kinds::Stale, "the time in the login is not this device's, give or take 5 minutes"};
  if (!AreSame(*digest, Hash(EVP_sha1(), *nonce + token.Created + secret)))
    return {Kinds::Wrong, "the user or the password is wrong"};
  while (!UsedUntil_.empty() && UsedUntil_.front().first < now) {
    Used_.erase(UsedUntil_.front().second);
    UsedUntil_.pop_front();
  }
  if (Used_.contains(*digest)) return {Kinds::Stale, "this login was used before"};
  if (Used_.size() >= MostUsed) return {Kinds::Stale, "too many logins; try again later"};
  Used_.insert(*digest);
  // However far ahead its clock may be.
  UsedUntil_.emplace_back(now + 2 * MostApart, *digest);
  return {Kinds::Right, ""};
}

DigestAccess::Verdict DigestAccess::CheckHTTP(const Request& request,
                                              const std::map<std::string, std::string>& login,
                                              const std::string& secret) {
  using Kinds = Verdict::Kinds;
  const auto part = [&](const char* name) {
    const auto found = login.find(name);
    return found == login.end() ? std::string() : found->second;
  };
  const auto algorithm = part("algorithm");
  const EVP_MD* kind = algorithm.empty() || EqualIgnoringCase(algorithm, "MD5") ? EVP_md5()
                       : EqualIgnoringCase(algorithm, "SHA-256")                ? EVP_sha256()
                                                                                : nullptr;
  const auto nonce = part("nonce"), count = part("nc");
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(count.data(), count.data() + count.size(), number, 16);
  if (kind == nullptr || part("qop") != "auth" || count.size() != 8 || error != std::errc() ||
      end != count.data() + count.size() || number == 0 || part("cnonce").empty() || part("realm") != Realm ||
      part("uri") != request.Target)
    return {Kinds::Wrong, "the Authorization is no digest as it was asked for"};
  const auto begin = BeginOf(nonce);
  if (!begin) return {Kinds::Stale, "the nonce is none of this device's"};
  const auto known = HexHash(kind, part("username") + ":" + Realm + ":" + secret);
  const auto asked = HexHash(kind, request.Method + ":" + request.Target);
  const auto expected =
      HexHash(kind, known + ":" + nonce + ":" + count + ":" + part("cnonce") + ":auth:" + asked);
  if (!AreSame(expected, part("response"))) return {Kinds::Wrong, "the user or the password is wrong"};
  if (Clock::now() > *begin + NonceLife) return {Kinds::Stale, "the nonce is too old"};

  if (!Counts_.contains(nonce) && Counts_.size() >= MostNonces)
    std::erase_if(Counts_, [&](const auto& one) {
      const auto since = BeginOf(one.first);
      return !since || Clock::now() > *since + NonceLife;
    });
  if (!Counts_.contains(nonce) && Counts_.size() >= MostNonces)
    return {Kinds::Stale, "too many logins; try again later"};
  // Requests of several connections may overtake one another, but none comes twice.
  auto& counts = Counts_[nonce];
  if (number > counts.Greatest) {
    const auto ahead = number - counts.Greatest;
    counts.Before =
        ahead > 64 ? 0 : (ahead == 64 ? 0 : counts.Before << ahead) | std::uint64_t{1} << (ahead - 1);
    counts.Greatest = number;
    return {Kinds::Right, ""};
  }
  const auto behind = counts.Greatest - number;
  if (behind == 0 || behind > 64 || (counts.Before >> (behind - 1) & 1) != 0)
    return {Kinds::Stale, "this login was used before"};
  counts.Before |= std::uint64_t{1} << (behind - 1);
  return {Kinds::Right, ""};
}

std::variant<std::string, DigestAccess::Unknown> DigestAccess::Identify(
    const Request& request, const std::optional<UsernameToken>& token) {
  if (!Gate_.Users().AreThere()) return std::string();
  const auto refused = [](const std::string& why) {
    return ResponseOf(Fault("env:Sender", {"ter:NotAuthorized"}, why));
  };
  const auto* header = request.Header("Authorization");
  const auto login = header == nullptr ? std::nullopt : DigestLogin(*header);
  if (!login && !token) return Unknown{Challenge(refused("a user and a password are wanted"), false)};

  std::string name = token ? token->User : "";
  if (login) name = login->contains("username") ? login->at("username") : "";
  if (!Gate_.Logins().MayTry(name, request.Address)) {
    auto response = refused("too many wrong passwords; try again later");
    response.Status = 429;
    response.Headers.emplace_back("Retry-After", "30");
    return Unknown{std::move(response)};
  }
  const auto* user = Gate_.Users().Find(name);
  // Nobody is to learn from the answer, or the time it takes, who there is: others have a password, too,
  // which nobody knows.
  const std::string secret = user != nullptr && user->ONVIFSecret
                                 ? *user->ONVIFSecret
                                 : Hex({reinterpret_cast<const char*>(Key_.data()), Key_.size()});
  const auto verdict = login ? CheckHTTP(request, *login, secret) : CheckToken(*token, secret);
  if (verdict.Kind == Verdict::Kinds::Right) {
    Gate_.Logins().Note(name, request.Address, true);
    return name;
  }
  if (verdict.Kind == Verdict::Kinds::Wrong) {
    Gate_.Logins().Note(name, request.Address, false);
    ++Gate_.Metrics().FailedLogins;
  }
  Gate_.Journal().Audit({.User = name, .From = request.From, .Face = "onvif"}, "", "log in", "refused",
                        verdict.Why);
  auto response = refused(verdict.Why);
  // By what it is answered a client knows which of its logins was refused.
  if (login) response = Challenge(std::move(response), verdict.Kind == Verdict::Kinds::Stale);
  return Unknown{std::move(response)};
}

}  // namespace ptzgate
