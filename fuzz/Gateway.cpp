// The entrances of the gateway, from the bytes that come in to what a camera is wished and what is answered.
//
// The parts of `web` are sent as they are, one after the other on a connection. Those of the others are
// requests: a line with the method and the path, headers, an empty line, and a body. "soap" needs less: its
// first line is a camera's name, and what follows is the message, or, behind a "!", what stands in the body
// of one. In all of them a first part that begins with "!" tells what becomes of wishes
// (`ControlLog::Begin`).

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>

#include "FakeBroker.h"
#include "FakeControl.h"
#include "Site.h"
#include "Target.h"
#include "cameras/InputWords.h"
#include "common/Printable.h"
#include "gateway/mqtt/MQTT.h"
#include "gateway/onvif/Discovery.h"
#include "gateway/onvif/Envelope.h"

namespace ptzd::fuzz {

using nlohmann::json;
using namespace ptzgate;

namespace {

constexpr std::size_t MostParts = 12;

/// The parts of an input, without what tells of outcomes.
std::vector<std::string_view> Begin(std::string_view input) {
  auto parts = PartsOf(input);
  const bool tells = parts.front().starts_with('!');
  ControlLog::Begin(tells ? std::string(parts.front().substr(1)) : "");
  if (tells) parts.erase(parts.begin());
  if (parts.size() > MostParts) parts.resize(MostParts);
  return parts;
}

struct Answer {
  int Status = 0;  ///< 0: none came
  std::string Head, Body;

  explicit Answer(std::string_view text) {
    if (text.empty()) return;
    const auto end = text.find("\r\n\r\n");
    Demand(text.starts_with("HTTP/1.1 ") && end != text.npos, "an answer is one of HTTP");
    Head = text.substr(0, end + 2);
    Body = text.substr(end + 4);
    Status = std::atoi(Head.substr(9, 3).c_str());
    Demand(Status >= 100 && Status < 600, "a status is one");
  }
  bool Has(std::string_view header) const { return Head.find(header) != std::string::npos; }
};

/// A request of its text as it goes over the wire.
std::string RequestOf(std::string_view text) {
  const auto headEnd = std::min(text.find("\n\n"), text.size());
  const auto body = text.substr(std::min(headEnd + 2, text.size()));
  const auto lines = LinesOf(text.substr(0, headEnd));
  std::string request(lines.empty() ? "" : lines.front());
  request += " HTTP/1.1\r\nHost: 127.0.0.1\r\n";
  for (std::size_t i = 1; i < lines.size(); ++i) request.append(lines[i]).append("\r\n");
  request += "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n";
  return request.append(body);
}

/// What no answer may have in it, unless it was asked with it.
void DemandNoSecrets(std::string_view input, std::string_view output) {
  for (const std::string_view secret : {"c4mera", "pa55w0rd", "0nv1f"})
    Demand(output.find(secret) == output.npos || input.find(secret) != input.npos, "no password is told");
}

void DemandOrder(const Answer& answer) {
  Demand(answer.Status != 500, "nothing happens that should not");
  // To HEAD the head alone is answered.
  if (!answer.Body.empty() && (answer.Has("Content-Type: application/json\r\n") || answer.Has("+json\r\n")))
    Demand(!json::parse(answer.Body, nullptr, false).is_discarded(), "an answer in JSON is JSON");
}

/// Sends a request and looks at its answer, and at what the cameras were wished for it.
Answer Ask(Site& site, std::string_view input, const std::string& request, bool isLogin) {
  const auto moves = ControlLog::Moves.load();
  const auto text = site.Send(request, isLogin);
  DemandNoSecrets(input, text);
  const Answer answer(text);
  const bool isRefused = answer.Status >= 400 && answer.Status < 500;
  Demand(!isRefused || ControlLog::HasFailed || ControlLog::Moves == moves, "what is refused moves nothing");
  return answer;
}

bool AreSame(const Element& left, const Element& right) {
  return left.Name == right.Name && left.Text == right.Text && left.Attributes == right.Attributes &&
         std::ranges::equal(left.Children, right.Children, AreSame);
}

/// What is written otherwise than it was read: attributes of one name here and other namespaces, and control
/// characters.
bool IsChanged(const Element& element) {
  std::set<std::string> names;
  for (const auto& [name, value] : element.Attributes)
    if (!names.insert(name).second || name.starts_with("xmlns") || Printable(value) != value) return true;
  return Printable(element.Text) != element.Text || std::ranges::any_of(element.Children, IsChanged);
}

void ReadAgain(std::string_view text) {
  try {
    const auto read = ReadXML(text);
    if (!IsChanged(read))
      Demand(AreSame(ReadXML(XMLText(read)), read), "what was read can be written and read");
  } catch (const NoXML&) {
    return;
  }
}

constexpr char MessageBegin[] =
    R"(<env:Envelope xmlns:env="http://www.w3.org/2003/05/soap-envelope" xmlns:tds="http://www.onvif.org/ver10/device/wsdl" xmlns:trt="http://www.onvif.org/ver10/media/wsdl" xmlns:tptz="http://www.onvif.org/ver20/ptz/wsdl" xmlns:tt="http://www.onvif.org/ver10/schema"><env:Body>)";
constexpr char MessageEnd[] = "</env:Body></env:Envelope>";

std::string Base64(std::string_view bytes) {
  std::string text(4 * (bytes.size() / 3 + 1) + 1, '\0');
  const int size =
      EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                      reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(size));
  return text;
}

std::string Digest(const EVP_MD* kind, std::string_view text) {
  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned size = 0;
  EVP_Digest(text.data(), text.size(), digest.data(), &size, kind, nullptr);
  return {digest.begin(), digest.begin() + size};
}

std::string MD5(const std::string& text) {
  std::string hex;
  for (const unsigned char byte : Digest(EVP_md5(), text)) {
    constexpr char digits[] = "0123456789abcdef";
    hex += digits[byte >> 4];
    hex += digits[byte & 15];
  }
  return hex;
}

std::string Between(std::string_view text, std::string_view begin, char end) {
  const auto at = text.find(begin);
  if (at == text.npos) return "";
  text.remove_prefix(at + begin.size());
  return std::string(text.substr(0, text.find(end)));
}

void Replace(std::string& text, std::string_view word, const std::string& by) {
  for (auto at = text.find(word); at != text.npos; at = text.find(word, at + by.size()))
    text.replace(at, word.size(), by);
}

}  // namespace

void Web(std::string_view input) {
  const auto parts = Begin(input);
  static const auto settings = Site::SettingsOf("");
  {
    Site site(settings);
    for (const auto part : parts) {
      const auto text = site.Send(part);
      DemandNoSecrets(input, text);
      if (text.starts_with("HTTP/"))
        Demand(!text.starts_with("HTTP/1.1 500"), "nothing happens that should not");
    }
    site.Leave();
    // The remote system's own interface lets those drive on who keep no connection.
    Demand(ControlLog::Drives == 0 || input.find("/ptz/") != input.npos, "who goes drives no more");
  }
  Demand(ControlLog::Drives == 0, "nobody drives where there is no gateway");
}

void Api(std::string_view input) {
  const auto parts = Begin(input);
  static const auto settings = Site::SettingsOf("");
  Site site(settings);
  for (const auto part : parts) {
    DemandOrder(Ask(site, input, RequestOf(part), false));
    site.Leave();
    Demand(ControlLog::Drives == 0 || input.find("/ptz/") != input.npos, "who goes drives no more");
  }
}

void Soap(std::string_view input) {
  const auto parts = Begin(input);
  static const auto settings = Site::SettingsOf(
      "[picture.door]\nsnapshot = \"http://192.0.2.1/a.jpg\"\nstream = \"rtsp://192.0.2.1/a\"\n");
  Site site(settings);
  for (const auto part : parts) {
    const auto end = std::min(part.find('\n'), part.size());
    std::string message(part.substr(std::min(end + 1, part.size())));
    if (message.starts_with('!')) message = MessageBegin + message.substr(1) + MessageEnd;
    ReadAgain(message);
    if (const auto probe = ReadProbe(message))
      for (const auto& words : {probe->Types, probe->Scopes})
        for (const auto& word : words)
          Demand(word.find_first_of(" \t\r\n") == word.npos, "a word of a probe is one");
    const auto answer = Ask(
        site, input,
        RequestOf("POST /onvif/" + std::string(part.substr(0, end)) + "/ptz_service\n\n" + message), false);
    if (!answer.Has("Content-Type: application/soap+xml")) {
      DemandOrder(answer);
      continue;
    }
    try {
      const auto root = ReadXML(answer.Body);
      const auto* body = root.Child("Body");
      Demand(root.Name == "env:Envelope" && body != nullptr && body->Children.size() == 1,
             "an answer is a message");
      Demand((answer.Status == 200) != (body->Children[0].Name == "env:Fault"), "what is refused is a fault");
    } catch (const NoXML&) {
      Demand(false, "an answer is XML");
    }
    ReadAgain(answer.Body);
  }
}

/// Words that begin with "$" stand for what whoever knows the password of anna would send.
void Access(std::string_view input) {
  const auto parts = Begin(input);
  static const auto settings = Site::SettingsOf(R"([user.anna]
role = "administrator"
password_hash = "$argon2id$v=19$m=8,t=1,p=1$c29tZXNhbHQ$pa55w0rdpa55w0rdpa55wA"
onvif_password = "0nv1f"
[user.vera]
role = "viewer"
password_hash = "$argon2id$v=19$m=8,t=1,p=1$c29tZXNhbHQ$pa55w0rdpa55w0rdpa55wA"
)");
  Site site(settings);
  const auto challenge = Ask(site, input,
                             RequestOf(std::string("POST /onvif/door/ptz_service\n\n") + MessageBegin +
                                       "<tptz:GetNodes/>" + MessageEnd),
                             false);
  Demand(challenge.Status == 401, "nobody is let in without a password");
  const auto nonce = Between(challenge.Head, "nonce=\"", '"');
  const auto now = std::time(nullptr);
  std::tm utc{};
  gmtime_r(&now, &utc);
  std::array<char, 40> created{};
  std::strftime(created.data(), created.size(), "%Y-%m-%dT%H:%M:%SZ", &utc);
  const auto digest = Base64(Digest(EVP_sha1(), "nonce" + std::string(created.data()) + "0nv1f"));
  const auto basic = Base64("anna:pa55w0rdpa55w0rdpa55wA");
  std::string cookie = "none";

  for (const auto part : parts) {
    std::string text(part);
    const auto line = text.substr(0, text.find('\n'));
    const auto method = line.substr(0, line.find(' '));
    const auto target = line.substr(std::min(line.find(' ') + 1, line.size()));
    Replace(text, "$nonce", nonce);
    Replace(text, "$response",
            MD5(MD5("anna:ptzgate:0nv1f") + ":" + nonce + ":00000001:c:auth:" + MD5(method + ":" + target)));
    Replace(text, "$created", created.data());
    Replace(text, "$digest", digest);
    Replace(text, "$basic", basic);
    Replace(text, "$cookie", cookie);
    Replace(text, "$begin", MessageBegin);
    Replace(text, "$end", MessageEnd);
    std::string plain = text;
    std::erase(plain, ' ');
    const bool isKnown =
        std::ranges::any_of(std::array<std::string_view, 4>{basic, digest, cookie, "$"},
                            [&](std::string_view word) { return plain.find(word) != plain.npos; }) ||
        part.find("$response") != part.npos;
    const auto moves = ControlLog::Moves.load();
    const auto answer = Ask(site, input, RequestOf(text), true);
    Demand(isKnown || ControlLog::Moves == moves, "nobody moves a camera without a password");
    if (!answer.Has("application/soap+xml")) DemandOrder(answer);
    if (auto set = Between(answer.Head, "Set-Cookie: ptzgate=", ';'); !set.empty()) cookie = std::move(set);
    site.Leave();
  }
}

/// Each part is a topic, behind which "!" may stand for a retained message, and behind its line the message.
/// What is told to Home Assistant is much, and only where an input asks for it.
void Mqtt(std::string_view input) {
  const auto parts = Begin(input);
  const std::string broker = "[mqtt]\nbroker = \"localhost\"\n";
  static const auto whole = Site::SettingsOf(broker),
                    brief = Site::SettingsOf(broker + "home_assistant = false\n");
  const auto& settings = input.find("homeassistant") == input.npos ? brief : whole;
  Site site(settings);
  BrokerLog::Published.clear();
  {
    MQTT face(site.Gate());
    const auto tell = [&](const Broker::Message& message) {
      if (BrokerLog::Now == nullptr) return;
      BrokerLog::Now->Came(message);
      site.Poll();
      // A broker tells everybody who subscribed, the one who published, too.
      for (int most = 1000; !BrokerLog::Published.empty() && most > 0; --most) {
        const auto published = BrokerLog::Published.front();
        BrokerLog::Published.pop_front();
        const auto& topic = published.Topic;
        Demand(!topic.empty() && topic.find_first_of(std::string_view("+#\0", 3)) == topic.npos,
               "a topic is one");
        DemandNoSecrets(input, published.Payload);
        if (topic.ends_with("/result")) {
          const auto result = json::parse(published.Payload, nullptr, false);
          Demand(result.is_object() && result.contains("do") && result.contains("done"), "a result is one");
        }
        if (BrokerLog::Now == nullptr || !BrokerLog::Subscribed.contains(topic)) continue;
        BrokerLog::Now->Came({topic, published.Payload, false, false});
        site.Poll();
      }
    };
    Demand(BrokerLog::Now != nullptr, "a broker is wanted");
    BrokerLog::Now->Connected();
    tell({"homeassistant/status", "online", false, false});
    for (const auto part : parts) {
      const auto end = std::min(part.find('\n'), part.size());
      std::string topic(part.substr(0, end));
      const bool isRetained = topic.ends_with('!');
      if (isRetained) topic.pop_back();
      const auto moves = ControlLog::Moves.load();
      const auto drives = ControlLog::Drives.load();
      tell({std::move(topic), std::string(part.substr(std::min(end + 1, part.size()))), isRetained, false});
      Demand(!isRetained || (ControlLog::Moves == moves && ControlLog::Drives <= drives),
             "nothing retained moves");
    }
    if (BrokerLog::Now != nullptr) {
      const auto gone = std::exchange(BrokerLog::Now->Gone, {});
      gone("it went");
      site.Poll();
    }
    Demand(ControlLog::Drives == 0, "without a broker nothing is driven by it");
  }
}

void GateFile(std::string_view input) {
  try {
    const auto settings = ReadGate(std::string(input), "gate.toml");
    Demand(settings.Lease.count() > 0 && settings.Lease <= settings.LongestLease, "leases are in order");
    const ptzgate::Users users(settings.Users, settings.Groups);
    for (const auto& user : users.All()) {
      Demand(!user.Name.empty() && users.Find(user.Name) != nullptr, "a user has a name");
      for (const auto& [group, names] : settings.Groups)
        for (const auto& name : names)
          Demand(users.RoleOf(user.Name, name) >= user.Everywhere, "a group takes nothing away");
    }
    static const std::vector<NamedCamera> cameras{{.Name = "gate"}, {.Name = "yard-1"}, {.Name = "a"}};
    CheckGate(settings, cameras);
  } catch (const InputError&) {
  }
}

}  // namespace ptzd::fuzz
