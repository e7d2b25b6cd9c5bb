#include "simulators/engine/Authentication.h"

#include <boost/beast/core/detail/base64.hpp>
#include <boost/uuid/detail/md5.hpp>
#include <charconv>
#include <cstdint>
#include <random>

namespace ptzsim {
namespace {

constexpr char Realm[] = "Camera";

// Boost's header-only MD5 and base64 keep the engine free of a crypto library, for two lines of use.
std::string MD5(const std::string& text) {
  boost::uuids::detail::md5 hash;
  boost::uuids::detail::md5::digest_type digest;
  hash.process_bytes(text.data(), text.size());
  hash.get_digest(digest);
  std::string hex;
  // Words whose digits read from the most significant on; bytes in newer releases of Boost.
  for (const auto part : digest) {
    for (int shift = 8 * static_cast<int>(sizeof part) - 4; shift >= 0; shift -= 4) {
      hex += "0123456789abcdef"[(part >> shift) & 15];
    }
  }
  return hex;
}

std::string Base64(const std::string& text) {
  std::string encoded(boost::beast::detail::base64::encoded_size(text.size()), '\0');
  encoded.resize(boost::beast::detail::base64::encode(encoded.data(), text.data(), text.size()));
  return encoded;
}

/// `name=value, name="value"` after the scheme's name.
std::map<std::string, std::string> Fields(const std::string& header) {
  std::map<std::string, std::string> fields;
  std::size_t at = header.find(' ');
  while (at != std::string::npos && (at = header.find_first_not_of(" ,\t", at)) != std::string::npos) {
    const auto equals = header.find('=', at);
    if (equals == std::string::npos) break;
    const bool quoted = header[equals + 1] == '"';
    const auto begin = equals + (quoted ? 2 : 1);
    const auto end = quoted ? header.find('"', begin) : header.find_first_of(", ", begin);
    fields[header.substr(at, equals - at)] =
        header.substr(begin, end == std::string::npos ? end : end - begin);
    at = end == std::string::npos ? end : end + 1;
  }
  return fields;
}

}  // namespace

std::optional<Authentication::Refusal> Authentication::Check(const Request& request, const FaultSet& faults) {
  if (const Fault* basic = faults.Find(FaultKind::Basic)) return CheckBasic(request, basic->Text);
  if (const Fault* digest = faults.Find(FaultKind::Digest)) return CheckDigest(request, digest->Text, false);
  if (const Fault* digest = faults.Find(FaultKind::DigestStale))
    return CheckDigest(request, digest->Text, true);
  return std::nullopt;
}

std::optional<Authentication::Refusal> Authentication::CheckBasic(const Request& request,
                                                                  const std::string& credentials) {
  if (request.Header("Authorization") == "Basic " + Base64(credentials)) return std::nullopt;
  return Refusal{"Basic realm=\"" + std::string(Realm) + "\"", {}};
}

std::optional<Authentication::Refusal> Authentication::CheckDigest(const Request& request,
                                                                   const std::string& credentials,
                                                                   bool staleOnce) {
  const std::string header = request.Header("Authorization");
  if (header.substr(0, 7) != "Digest ") return NewDigest(false);
  auto field = Fields(header);
  if (field["realm"] != Realm)
    return NewDigest(false, "Digest for another realm: \"" + field["realm"] + "\"");
  if (field["uri"] != request.Target)
    return NewDigest(false, "Digest for another target: \"" + field["uri"] + "\"");
  if (field["qop"] != "auth") return NewDigest(false, "Digest with qop \"" + field["qop"] + "\"");
  if (field["cnonce"].empty()) return NewDigest(false, "Digest without cnonce");

  const auto colon = credentials.find(':');
  const std::string user = credentials.substr(0, colon);
  const std::string password = colon == std::string::npos ? "" : credentials.substr(colon + 1);
  const std::string expected =
      MD5(MD5(user + ":" + Realm + ":" + password) + ":" + field["nonce"] + ":" + field["nc"] + ":" +
          field["cnonce"] + ":auth:" + MD5(request.Method + ":" + request.Target));
  if (field["username"] != user || field["response"] != expected) return NewDigest(false);

  const auto nonce = Nonces_.find(field["nonce"]);
  if (nonce == Nonces_.end()) return NewDigest(staleOnce);  // from before a restart; few cameras say so
  unsigned long count = 0;
  const std::string& digits = field["nc"];
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), count, 16);
  if (error != std::errc() || end != digits.data() + digits.size() || digits.size() != 8 ||
      count <= nonce->second) {
    return NewDigest(false, "Digest with nonce count \"" + digits + "\"");
  }
  nonce->second = count;
  if (staleOnce && !StaleTold_) {
    StaleTold_ = true;
    Nonces_.clear();
    return NewDigest(true);
  }
  return std::nullopt;
}

Authentication::Refusal Authentication::NewDigest(bool stale, std::string violation) {
  std::random_device random;
  const std::string nonce = MD5(std::to_string(random()) + std::to_string(random()));
  Nonces_[nonce] = 0;
  return {"Digest realm=\"" + std::string(Realm) + "\", nonce=\"" + nonce +
              "\", algorithm=MD5, qop=\"auth\"" + (stale ? ", stale=true" : ""),
          std::move(violation)};
}

}  // namespace ptzsim
