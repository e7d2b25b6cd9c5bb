#include "gateway/access/HTTPAccess.h"

#include <boost/asio/ip/address.hpp>

#include <sodium.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>
#include <vector>

namespace ptzgate {

namespace {

using std::chrono::steady_clock;

constexpr char CookieName[] = "ptzgate";
/// A session that is not used is over after this.
constexpr std::chrono::hours SessionLife(12);
constexpr std::size_t MostSessions = 1000;

/// Browsers ask for a password themselves when they are told so; a page of ours that asks has this header.
constexpr char ConsoleHeader[] = "X-PTZ-Console";

std::optional<std::pair<std::string, std::string>> BasicLogin(const std::string& header) {
  constexpr std::string_view scheme = "Basic ";
  if (header.size() < scheme.size() || !EqualIgnoringCase(header.substr(0, scheme.size()), scheme))
    return std::nullopt;
  const auto code = std::string_view(header).substr(scheme.size());
  std::string text(code.size(), '\0');
  std::size_t length = 0;
  if (sodium_base642bin(reinterpret_cast<unsigned char*>(text.data()), text.size(), code.data(), code.size(),
                        " ", &length, nullptr, sodium_base64_VARIANT_ORIGINAL) != 0)
    return std::nullopt;
  text.resize(length);
  const auto colon = text.find(':');
  if (colon == std::string::npos) return std::nullopt;
  return std::pair(text.substr(0, colon), text.substr(colon + 1));
}

std::optional<std::string> Cookie(const Request& request, std::string_view name) {
  const auto* header = request.Header("Cookie");
  if (header == nullptr) return std::nullopt;
  std::string_view rest = *header;
  while (!rest.empty()) {
    const auto end = rest.find(';');
    auto part = rest.substr(0, end);
    rest = end == std::string_view::npos ? "" : rest.substr(end + 1);
    part.remove_prefix(std::min(part.find_first_not_of(' '), part.size()));
    if (part.starts_with(name) && part.size() > name.size() && part[name.size()] == '=')
      return std::string(part.substr(name.size() + 1));
  }
  return std::nullopt;
}

std::string NewToken() {
  std::array<unsigned char, 32> bytes;
  randombytes_buf(bytes.data(), bytes.size());
  std::string text(2 * bytes.size() + 1, '\0');
  sodium_bin2hex(text.data(), text.size(), bytes.data(), bytes.size());
  text.pop_back();
  return text;
}

std::string CookieText(const Request& request, const std::string& value) {
  return std::string(CookieName) + "=" + value + "; Path=/; HttpOnly; SameSite=Strict" +
         (request.IsSecure ? "; Secure" : "") + (value.empty() ? "; Max-Age=0" : "");
}

void AnswerUnknown(const std::shared_ptr<Call>& call, std::string_view why) {
  auto response = Problem(401, why);
  if (call->Asked().Header(ConsoleHeader) == nullptr && !call->WantsWebSocket())
    response.Headers.emplace_back("WWW-Authenticate", "Basic realm=\"ptzgate\", charset=\"UTF-8\"");
  call->Answer(std::move(response));
}

void AnswerSlowed(const std::shared_ptr<Call>& call) {
  auto response = Problem(429, "too many wrong passwords; try again later");
  response.Headers.emplace_back("Retry-After", "30");
  call->Answer(std::move(response));
}

/// Whether "127.0.0.1:8480" or the like means this machine to everybody: an address, or the one name that
/// nobody can give another meaning. "127.0.0.1.example" is somebody's name.
bool MeansThisMachine(std::string_view host) {
  if (const auto colon = host.rfind(':'); colon != std::string_view::npos && host.back() != ']')
    host = host.substr(0, colon);
  if (EqualIgnoringCase(host, "localhost")) return true;
  if (host.starts_with('[') && host.ends_with(']')) host = host.substr(1, host.size() - 2);
  boost::system::error_code none;
  const auto address = boost::asio::ip::make_address(std::string(host), none);
  return !none && address.is_loopback();
}

}  // namespace

bool HTTPAccess::IsOwnPage(const Request& request) const {
  if (!Gate_.Users().AreThere() && !MeansThisMachine(request.Host)) return false;
  const auto* origin = request.Header("Origin");
  if (origin == nullptr) {
    // Of a picture or a link that another site's page has, browsers tell no origin, but this.
    const auto* site = request.Header("Sec-Fetch-Site");
    return site == nullptr || *site == "same-origin" || *site == "none";
  }
  return EqualIgnoringCase(*origin, (request.IsSecure ? "https://" : "http://") + request.Host) ||
         // Behind a proxy that speaks TLS for it.
         EqualIgnoringCase(*origin, "https://" + request.Host);
}

Client HTTPAccess::ClientOf(const Request& request, const std::string& face, const std::string& user,
                            std::uint64_t session) const {
  return {.User = user,
          .From = request.From,
          .Face = face,
          .Session = session,
          .Priority = Gate_.Users().PriorityOf(user),
          .Stamp = Gate_.Users().StampOf(user)};
}

bool HTTPAccess::IsOver(const Session& session) const {
  const auto* user = Gate_.Users().Find(session.User);
  return user == nullptr || user->PasswordHash != session.PasswordHash ||
         steady_clock::now() - session.LastUsed > SessionLife;
}

bool HTTPAccess::StillKnows(const Client& client) const {
  const auto isHis = [&](const auto& session) { return session.second.Number == client.Login; };
  return client.Stamp == Gate_.Users().StampOf(client.User) &&
         (client.Login == 0 || std::ranges::any_of(Sessions_, isHis));
}

void HTTPAccess::Reload() {
  std::erase_if(Sessions_, [this](const auto& session) { return IsOver(session.second); });
  for (const auto& changed : Changed_) changed();
}

HTTPAccess::Session* HTTPAccess::SessionOf(const Request& request) {
  const auto token = Cookie(request, CookieName);
  if (!token) return nullptr;
  const auto session = Sessions_.find(*token);
  if (session == Sessions_.end()) return nullptr;
  if (IsOver(session->second)) {
    Sessions_.erase(session);
    return nullptr;
  }
  session->second.LastUsed = steady_clock::now();
  return &session->second;
}

void HTTPAccess::Identify(const std::shared_ptr<Call>& call, const std::string& face,
                          std::function<void(const Client&)> known) {
  const auto& request = call->Asked();
  if (!IsOwnPage(request))
    return call->Answer(Problem(403, "a page of another site may not use this gateway"));
  if (!Gate_.Users().AreThere())
    return known(ClientOf(request, face, "", ptzgate::SessionOf("open " + request.Address)));
  if (const auto* session = SessionOf(request)) {
    auto client = ClientOf(request, face, session->User, session->Number);
    client.Login = session->Number;
    return known(client);
  }
  const auto* header = request.Header("Authorization");
  if (header == nullptr) return AnswerUnknown(call, "a user and a password are wanted");
  const auto login = BasicLogin(*header);
  if (!login) return AnswerUnknown(call, "the Authorization is none of Basic");
  Gate_.Logins().Check(login->first, login->second, request.Address,
                       [this, life = std::weak_ptr(Life_), call, face, user = login->first,
                        known = std::move(known)](Logins::Verdict verdict) {
                         if (!life.lock()) return;
                         if (verdict == Logins::Verdict::Slowed) return AnswerSlowed(call);
                         if (verdict == Logins::Verdict::Wrong) {
                           ++Gate_.Metrics().FailedLogins;
                           Gate_.Journal().Audit(ClientOf(call->Asked(), face, user, 0), "", "log in",
                                                 "refused", "wrong password");
                           return AnswerUnknown(call, "the user or the password is wrong");
                         }
                         known(ClientOf(call->Asked(), face, user,
                                        ptzgate::SessionOf("basic " + user + " " + call->Asked().Address)));
                       });
}

void HTTPAccess::LogIn(const std::shared_ptr<Call>& call, const std::string& user,
                       const std::string& password, Response response) {
  const auto& request = call->Asked();
  if (!IsOwnPage(request))
    return call->Answer(Problem(403, "a page of another site may not use this gateway"));
  if (!Gate_.Users().AreThere()) return call->Answer(std::move(response));
  Gate_.Logins().Check(user, password, request.Address,
                       [this, life = std::weak_ptr(Life_), call, user,
                        response = std::move(response)](Logins::Verdict verdict) mutable {
                         if (!life.lock()) return;
                         const auto audit = [&](const char* outcome, const char* text) {
                           Gate_.Journal().Audit(ClientOf(call->Asked(), "console", user, 0), "", "log in",
                                                 outcome, text);
                         };
                         if (verdict == Logins::Verdict::Slowed) return AnswerSlowed(call);
                         if (verdict == Logins::Verdict::Wrong) {
                           ++Gate_.Metrics().FailedLogins;
                           audit("refused", "wrong password");
                           return AnswerUnknown(call, "the user or the password is wrong");
                         }
                         if (Sessions_.size() >= MostSessions)
                           Sessions_.erase(std::ranges::min_element(
                               Sessions_, {}, [](const auto& session) { return session.second.LastUsed; }));
                         const auto token = NewToken();
                         const auto& hash = Gate_.Users().Find(user)->PasswordHash;
                         Sessions_[token] = {user, hash, NextSession(), steady_clock::now()};
                         audit("done", "");
                         response.Headers.emplace_back("Set-Cookie", CookieText(call->Asked(), token));
                         call->Answer(std::move(response));
                       });
}

void HTTPAccess::LogOut(const std::shared_ptr<Call>& call, Response response) {
  if (const auto token = Cookie(call->Asked(), CookieName); token && Sessions_.erase(*token) > 0)
    for (const auto& changed : Changed_) changed();
  response.Headers.emplace_back("Set-Cookie", CookieText(call->Asked(), ""));
  call->Answer(std::move(response));
}

}  // namespace ptzgate
