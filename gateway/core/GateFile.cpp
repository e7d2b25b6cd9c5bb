#include "gateway/core/GateFile.h"

#include <boost/asio/ip/address.hpp>

#include <curl/curl.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <memory>
#include <new>
#include <system_error>
#include <utility>

// Exceptions are how it tells of errors; nothing here writes TOML with it.
#define TOML_ENABLE_FORMATTERS 0
#include "cameras/CameraFile.h"
#include "cameras/InputWords.h"
#include "cameras/TOMLReader.h"
#include "common/Nearest.h"
#include "common/Numbers.h"
#include "common/Printable.h"
#include "gateway/core/Logins.h"
#include "platform/ConfigurationFolders.h"
#include "platform/PrivateFile.h"

namespace ptzgate {

using namespace ptzd;

namespace {

/// The part of a URL; nothing where it has none.
std::optional<std::string> PartOf(CURLU* url, CURLUPart part) {
  char* text = nullptr;
  if (curl_url_get(url, part, &text, 0) != CURLUE_OK) return std::nullopt;
  const std::unique_ptr<char, void (*)(void*)> held(text, curl_free);
  return text;
}

/// Raises `InputError` for what is no URL of one of the schemes, or has a login in it.
std::string CheckedURL(const std::string& text, const std::vector<std::string>& schemes) {
  const std::unique_ptr<CURLU, void (*)(CURLU*)> url(curl_url(), curl_url_cleanup);
  if (!url) throw std::bad_alloc();
  const bool hasBlanks = text.find(' ') != std::string::npos;
  const bool isURL = !hasBlanks && curl_url_set(url.get(), CURLUPART_URL, text.c_str(),
                                                CURLU_NON_SUPPORT_SCHEME) == CURLUE_OK;
  const auto scheme = isURL ? PartOf(url.get(), CURLUPART_SCHEME) : std::nullopt;
  if (!scheme || std::ranges::find(schemes, *scheme) == schemes.end() || !PartOf(url.get(), CURLUPART_HOST))
    throw InputError("expected " + schemes[0] + "://HOST/..." +
                     (schemes.size() > 1 ? " or " + schemes[1] + "://HOST/..." : ""));
  // Neither is told, since the password may be in it.
  if (PartOf(url.get(), CURLUPART_USER) || PartOf(url.get(), CURLUPART_PASSWORD))
    throw InputError(
        "expected no login in it; a user and where the password comes from have keys of their own");
  return text;
}

struct HostAndPort {
  std::string Host;  ///< without brackets
  std::optional<std::int32_t> Port;
};

/// Raises `InputError` for what is neither HOST nor HOST:PORT.
HostAndPort DividedAddress(const std::string& text, std::int32_t leastPort) {
  const auto failed = [&](const char* why) -> InputError {
    return InputError("\"" + Printable(text) + "\" " + why);
  };
  if (text.find_first_of(" /@?#") != std::string::npos) throw failed("is neither a host nor HOST:PORT");
  HostAndPort divided;
  std::string rest;
  if (text.starts_with('[')) {
    const auto end = text.find(']');
    if (end == std::string::npos) throw failed("lacks the \"]\" of an IPv6 address");
    divided.Host = text.substr(1, end - 1);
    rest = text.substr(end + 1);
  } else {
    divided.Host = text.substr(0, text.find(':'));
    rest = text.substr(divided.Host.size());
    if (std::ranges::count(rest, ':') > 1) throw failed("lacks the brackets of an IPv6 address");
  }
  if (divided.Host.empty()) throw failed("lacks a host");
  if (rest.empty()) return divided;
  const auto digits = rest.substr(1);
  constexpr std::size_t most = 5;
  if (rest[0] != ':' || digits.empty() || digits.size() > most ||
      digits.find_first_not_of("0123456789") != std::string::npos)
    throw failed("has no port behind the colon");
  divided.Port = std::stoi(digits);
  if (*divided.Port < leastPort || *divided.Port > std::numeric_limits<std::uint16_t>::max())
    throw failed("has no port from 1 to 65535");
  return divided;
}

ListenAddress ListenAddressOf(const std::string& text) {
  const auto [host, port] = DividedAddress(text, 0);
  if (!port) throw InputError("\"" + Printable(text) + "\" lacks a port");
  const bool isName = host == "localhost";
  boost::system::error_code error;
  const auto address = boost::asio::ip::make_address(isName ? "127.0.0.1" : host, error);
  if (error || (address.is_v6() != text.starts_with('[')))
    throw InputError("\"" + Printable(text) +
                     "\" is no address of this machine: expected its number and a port, such as "
                     "127.0.0.1:8480, 0.0.0.0:8480 for all, [::]:8480, or localhost:8480");
  return {address.to_string(), static_cast<std::uint16_t>(*port)};
}

/// Raises `InputError` for what cannot be levels of MQTT topics.
std::string CheckedLevels(const std::string& text, bool isOne) {
  constexpr std::size_t longest = 128;
  const auto hasEmpty = text.starts_with('/') || text.ends_with('/') || text.find("//") != std::string::npos;
  if (text.find_first_of("+#") != std::string::npos || text.starts_with('$') || hasEmpty ||
      (isOne && text.find('/') != std::string::npos) || text.size() > longest)
    throw InputError("\"" + Printable(text) + "\" cannot stand in topics: expected up to " +
                     std::to_string(longest) + " bytes without \"+\" and \"#\", no \"$\" first" +
                     (isOne ? ", and no \"/\"" : ", and something at both sides of each \"/\""));
  return text;
}

constexpr Word<Role> Roles[] = {
    {"viewer", Role::Viewer}, {"operator", Role::Operator}, {"administrator", Role::Administrator}};

/// Reads one file.
class Reader : private TOMLReader {
 public:
  using TOMLReader::TOMLReader;

  GateSettings Read(const toml::table& document) const;

 private:
  /// What is done with the value of a key; `what` is what it stands for.
  using Take = std::function<void(const toml::node& node, const std::string& what)>;
  using Keys = std::vector<std::pair<std::string, Take>>;

  /// Takes each value of a table, in the order of `keys`. `whose` is what the table stands for; empty for
  /// the document.
  void TakeAll(const toml::node& node, const std::string& whose, const Keys& keys) const;
  /// Takes each table of those with a name, such as [user.NAME].
  template <typename TakeOne>
  Take Named(const TakeOne& take) const {
    return [this, take](const auto& node, const auto& what) {
      for (const auto& [key, table] : Table(node, what)) {
        const std::string name(key.str());
        const auto whose = what + " " + Printable(name);
        if (name.empty() || Printable(name) != name) Fail(key.source(), whose + ": expected a name");
        Places_[whose] = PlaceOf(key.source());
        take(key, name, table, whose);
      }
    };
  }

  // What reads a value into a setting.
  Take Boolean(bool& to) const {
    return [this, &to](const auto& node, const auto& what) { to = BooleanAt(node, what); };
  }
  Take Text(std::string& to) const {
    return [this, &to](const auto& node, const auto& what) { to = TextAt(node, what); };
  }
  Take Path(std::string& to) const {
    return [this, &to](const auto& node, const auto& what) { to = PathAt(node, what); };
  }
  Take Time(std::chrono::milliseconds& to, bool mayBeNone) const;
  template <typename Number>
  Take Whole(Number& to, std::int32_t least, std::int32_t greatest) const {
    return [this, &to, least, greatest](const auto& node, const auto& what) {
      to = static_cast<Number>(InRange(node, what, WholeNumberAt(node, what), least, greatest));
    };
  }
  /// A text that `check` may refuse by an `InputError`.
  template <typename Value, typename Check>
  Take Checked(Value& to, const Check& check) const {
    return [this, &to, check](const auto& node, const auto& what) {
      to = Placed(node, what + ": ", [&] { return check(TextAt(node, what)); });
    };
  }
  Take URL(std::string& to, const std::vector<std::string>& schemes) const {
    return Checked(to, [schemes](const std::string& text) { return CheckedURL(text, schemes); });
  }

  template <typename Number>
  Number InRange(const toml::node& node, const std::string& what, Number value, std::int32_t least,
                 std::int32_t greatest) const {
    if (value < static_cast<Number>(least) || value > static_cast<Number>(greatest))
      Fail(node.source(), what + ": expected a number from " + std::to_string(least) + " to " +
                              std::to_string(greatest) + ", not " + ptzd::Text(value));
    return value;
  }
  std::vector<std::string> TextsAt(const toml::node& node, const std::string& what,
                                   const char* expected) const;

  /// Adds the keys that tell where a password comes from, each behind `before`. A gateway has nobody to ask.
  void AddPassword(Keys& keys, const std::string& before, PasswordSource& password) const;
  /// The keys of somebody who logs in.
  Keys LoginKeys(std::string& user, PasswordSource& password) const;
  void CheckLogin(const toml::node& table, const std::string& whose, const std::string& user,
                  const PasswordSource& password) const;

  void ReadWeb(const toml::node& node, const std::string& what, WebSettings& web) const;
  void ReadControl(const toml::node& node, const std::string& what, GateSettings& settings) const;
  void ReadMQTT(const toml::node& node, const std::string& what, MQTTSettings& mqtt) const;
  std::vector<std::string> PatternsAt(const toml::node& node, const std::string& what) const;
  User UserAt(const std::string& name, const toml::node& table, const std::string& whose,
              const GateSettings& settings) const;
  PictureSettings PictureAt(const toml::node& table, const std::string& whose) const;
  TourSettings TourAt(const toml::node& table, const std::string& whose) const;

  mutable std::map<std::string, std::string> Places_;
};

void Reader::TakeAll(const toml::node& node, const std::string& whose, const Keys& keys) const {
  const auto& table = Table(node, whose);
  std::vector<std::string> known;
  for (const auto& [key, take] : keys) known.push_back(key);
  for (const auto& [key, value] : table)
    if (std::ranges::find(known, key.str()) == known.end())
      FailUnknown(key, (whose.empty() ? "" : whose + ": ") + "the key", known);
  for (const auto& [key, take] : keys)
    if (const auto* value = table.get(key)) {
      const auto what = (whose.empty() ? "" : whose + ", ") + key;
      Places_[what] = PlaceOf(value->source());
      take(*value, what);
    }
}

Reader::Take Reader::Time(std::chrono::milliseconds& to, bool mayBeNone) const {
  return [this, &to, mayBeNone](const auto& node, const auto& what) {
    to = TimeAt(node, what);
    if (to.count() == 0 && !mayBeNone) Fail(node.source(), what + ": expected more than 0");
  };
}

std::vector<std::string> Reader::TextsAt(const toml::node& node, const std::string& what,
                                         const char* expected) const {
  const auto* list = node.as_array();
  if (list == nullptr) FailType(node, what, expected);
  std::vector<std::string> texts;
  for (const auto& each : *list) texts.push_back(TextAt(each, what));
  return texts;
}

void Reader::AddPassword(Keys& keys, const std::string& before, PasswordSource& password) const {
  for (const auto* key : {"password", "password_env", "password_file", "password_keyring"})
    keys.emplace_back(before + key, [this, key, &password](const auto& node, const auto& what) {
      if (password.From != PasswordSource::Kind::Unsaid)
        Fail(node.source(), what + ": expected one source of the password, and there is another already");
      password = PasswordAt(key, node, what);
    });
}

Reader::Keys Reader::LoginKeys(std::string& user, PasswordSource& password) const {
  Keys keys{{"user", Text(user)}};
  AddPassword(keys, "", password);
  return keys;
}

void Reader::CheckLogin(const toml::node& table, const std::string& whose, const std::string& user,
                        const PasswordSource& password) const {
  const bool hasPassword = password.From != PasswordSource::Kind::Unsaid;
  if (user.empty() && hasPassword) Fail(table.source(), whose + ": expected a user beside the password");
  if (!user.empty() && !hasPassword)
    Fail(table.source(), whose + ": expected where the user's password comes from, such as password_file");
}

void Reader::ReadWeb(const toml::node& node, const std::string& what, WebSettings& web) const {
  const auto listen = [&](const toml::node& list, const std::string& whose) {
    web.Listen.clear();
    constexpr char Expected[] = "a list of addresses such as [\"127.0.0.1:8480\"]";
    if (TextsAt(list, whose, Expected).empty()) Fail(list.source(), whose + ": expected " + Expected);
    for (const auto& each : *list.as_array()) {
      const auto add = Checked(web.Listen.emplace_back(), ListenAddressOf);
      add(each, whose);
      const auto& added = web.Listen.back();
      if (added.Port != 0 && std::ranges::count(web.Listen, added) > 1)
        Fail(each.source(), whose + ": " + added.Text() + " is there already");
    }
  };
  TakeAll(node, what, {{"listen", listen}, {"certificate", Path(web.Certificate)}, {"key", Path(web.Key)}});
  if (web.Certificate.empty() != web.Key.empty())
    Fail(node.source(), what + ": expected both certificate and key, or neither");
}

void Reader::ReadControl(const toml::node& node, const std::string& what, GateSettings& settings) const {
  TakeAll(node, what,
          {{"hold", Time(settings.Hold, true)},
           {"lease", Time(settings.Lease, false)},
           {"longest_lease", Time(settings.LongestLease, false)}});
  if (settings.Lease > settings.LongestLease)
    Fail(node.source(), what + ": expected a longest_lease of no less than the lease, which is " +
                            std::to_string(settings.Lease.count()) + "ms");
}

std::vector<std::string> Reader::PatternsAt(const toml::node& node, const std::string& what) const {
  auto patterns = TextsAt(node, what, "a list of cameras' names such as [\"gate\", \"yard-*\"]");
  for (const auto& each : *node.as_array()) {
    // "*" stands for some text, so it is tried with one.
    auto name = TextAt(each, what);
    std::ranges::replace(name, '*', 'x');
    Placed(each, what + ": ", [&] { CheckCameraName(name); });
  }
  return patterns;
}

User Reader::UserAt(const std::string& name, const toml::node& table, const std::string& whose,
                    const GateSettings& settings) const {
  User user{.Name = name};
  PasswordSource secret;
  const auto roleOf = [](const std::string& word) { return MeaningOf(Roles, "the role", word); };
  const auto hash = [](const std::string& text) {
    if (!IsHash(text))
      throw InputError("expected an Argon2id hash of the password, as \"ptzgate password\" makes it");
    return text;
  };
  const auto roles = [&](const toml::node& node, const std::string& what) {
    std::vector<std::string> known;
    for (const auto& [group, patterns] : settings.Groups) known.push_back(group);
    for (const auto& [key, role] : Table(node, what)) {
      const std::string group(key.str());
      if (!settings.Groups.contains(group)) FailUnknown(key, what + ": the group", known);
      Checked(user.Groups[group], roleOf)(role, what + " " + group);
    }
  };
  constexpr std::int32_t farthest = 1000;
  Keys keys{{"password_hash", Checked(user.PasswordHash, hash)},
            {"role", Checked(user.Everywhere, roleOf)},
            {"roles", roles},
            {"priority", Whole(user.Priority, -farthest, farthest)}};
  AddPassword(keys, "onvif_", secret);
  TakeAll(table, whose, keys);
  if (secret.From != PasswordSource::Kind::Unsaid)
    user.ONVIFSecret =
        Placed(table, whose + ": ", [&] { return LoginOf(whose, name, secret, AskPassword()).Password; });
  return user;
}

PictureSettings Reader::PictureAt(const toml::node& table, const std::string& whose) const {
  PictureSettings picture;
  constexpr std::int32_t least = 16, greatest = 16384;
  const std::vector<std::string> web{"http", "https"};
  auto keys = LoginKeys(picture.User, picture.Password);
  keys.insert(keys.end(), {{"snapshot", URL(picture.Snapshot, web)},
                           {"mjpeg", URL(picture.MJPEG, web)},
                           {"stream", URL(picture.Stream, {"rtsp"})},
                           {"width", Whole(picture.Width, least, greatest)},
                           {"height", Whole(picture.Height, least, greatest)}});
  TakeAll(table, whose, keys);
  CheckLogin(table, whose, picture.User, picture.Password);
  if (picture.Snapshot.empty() && picture.MJPEG.empty() && picture.Stream.empty())
    Fail(table.source(), whose + ": expected a snapshot, mjpeg or stream");
  return picture;
}

TourSettings Reader::TourAt(const toml::node& table, const std::string& whose) const {
  TourSettings tour;
  const auto file = [&](const toml::node& node, const std::string& what) {
    tour.File = PathAt(node, what);
    tour.Stops = Placed(node, what + ": ", [&] { return ReadTour(tour.File); });
  };
  TakeAll(table, whose, {{"camera", Text(tour.Camera)}, {"file", file}});
  if (tour.Camera.empty() || tour.File.empty())
    Fail(table.source(), whose + ": expected both a camera and a file");
  return tour;
}

void Reader::ReadMQTT(const toml::node& node, const std::string& what, MQTTSettings& mqtt) const {
  HostAndPort broker;
  const auto levels = [](bool isOne) {
    return [isOne](const std::string& text) { return CheckedLevels(text, isOne); };
  };
  const auto homeAssistant = [&](const toml::node& value, const std::string& whose) {
    if (!value.is_boolean()) return Checked(mqtt.HomeAssistant, levels(false))(value, whose);
    if (!BooleanAt(value, whose)) mqtt.HomeAssistant.clear();
  };
  auto keys = LoginKeys(mqtt.User, mqtt.Password);
  keys.insert(keys.end(),
              {{"broker", Checked(broker, [](const std::string& text) { return DividedAddress(text, 1); })},
               {"authorities", Path(mqtt.Authorities)},
               {"name", Checked(mqtt.Name, levels(true))},
               {"prefix", Checked(mqtt.Prefix, levels(false))},
               {"acts_as", Text(mqtt.ActsAs)},
               {"home_assistant", homeAssistant}});
  TakeAll(node, what, keys);
  CheckLogin(node, what, mqtt.User, mqtt.Password);
  if (broker.Host.empty()) Fail(node.source(), what + ": expected a broker, such as broker = \"localhost\"");
  constexpr std::int32_t plain = 1883, secure = 8883;
  mqtt.Host = broker.Host;
  mqtt.Port = static_cast<std::uint16_t>(broker.Port.value_or(mqtt.Authorities.empty() ? plain : secure));
}

GateSettings Reader::Read(const toml::table& document) const {
  GateSettings settings;
  auto& web = settings.Web;
  auto& onvif = settings.ONVIF;
  constexpr std::int32_t most = 1000000, kilobyte = 1024, megabyte = 1024 * kilobyte;
  const auto table = [this](const Keys& keys) {
    return [this, keys](const auto& node, const auto& what) { TakeAll(node, what, keys); };
  };
  const auto rate = [&](const toml::node& node, const std::string& what) {
    web.RequestsPerSecond = InRange(node, what, NumberAt(node, what), 1, most);
  };
  const auto port = [&](const toml::key&, const std::string& camera, const toml::node& node,
                        const std::string& what) {
    auto& address = onvif.Ports[camera];
    Checked(address, ListenAddressOf)(node, what);
    const auto isThis = [&](const auto& other) { return other.second == address; };
    if (address.Port != 0 && (std::ranges::count_if(onvif.Ports, isThis) > 1 ||
                              std::ranges::find(web.Listen, address) != web.Listen.end()))
      Fail(node.source(), what + ": " + address.Text() + " is there already");
  };
  TakeAll(document, "",
          {{"cameras", Path(settings.CameraFile)},
           {"connect", Boolean(settings.Connects)},
           {"http", [&](const auto& node, const auto& what) { ReadWeb(node, what, web); }},
           {"limits", table({{"connections", Whole(web.Connections, 1, most)},
                             {"connections_per_address", Whole(web.ConnectionsPerAddress, 1, most)},
                             {"requests_per_second", rate},
                             {"body", Whole(web.Body, kilobyte, 64 * megabyte)},
                             {"headers", Whole(web.Headers, kilobyte, megabyte)}})},
           {"control", [&](const auto& node, const auto& what) { ReadControl(node, what, settings); }},
           {"groups", Named([&](const auto&, const auto& name, const auto& node, const auto& whose) {
              settings.Groups[name] = PatternsAt(node, whose);
            })},
           {"user", Named([&](const auto& key, const auto& name, const auto& node, const auto& whose) {
              constexpr std::size_t longest = 64;
              // HTTP has a colon between a name and its password.
              if (name.size() > longest || name.find(':') != std::string::npos)
                Fail(key.source(), whose + ": expected a name of up to " + std::to_string(longest) +
                                       " bytes without \":\"");
              settings.Users.push_back(UserAt(name, node, whose, settings));
            })},
           {"picture", Named([&](const auto&, const auto& name, const auto& node, const auto& whose) {
              settings.Pictures[name] = PictureAt(node, whose);
            })},
           {"tour", Named([&](const auto&, const auto& name, const auto& node, const auto& whose) {
              settings.Tours[name] = TourAt(node, whose);
            })},
           {"onvif", table({{"enabled", Boolean(onvif.Enabled)},
                            {"discovery", Boolean(onvif.Discovery)},
                            {"ports", Named(port)}})},
           {"mqtt", [&](const auto& node, const auto& what) { ReadMQTT(node, what, settings.MQTT); }},
           {"remote", table({{"enabled", Boolean(settings.Remote)}})},
           {"audit", table({{"file", Path(settings.AuditFile)}})}});
  settings.Places = Places_;
  return settings;
}

}  // namespace

bool ListenAddress::IsLoopback() const { return boost::asio::ip::make_address(Host).is_loopback(); }

std::string ListenAddress::Text() const {
  const bool isV6 = Host.find(':') != std::string::npos;
  return (isV6 ? "[" + Host + "]" : Host) + ":" + std::to_string(Port);
}

GateSettings ReadGate(const std::string& text, const std::string& file, const std::string& openness) {
  return Reader(file, openness).Read(ParseTOML(text, file));
}

GateSettings ReadGateFile(const std::string& file) {
  constexpr std::size_t longest = 8 << 20;
  try {
    const auto contents = ReadWholeFile(PathOf(file), longest);
    return ReadGate(contents.Text, file, contents.Openness);
  } catch (const std::system_error& error) {
    throw InputError("the gateway's file " + file + " cannot be read: " + error.what());
  }
}

std::vector<std::string> CheckGate(const GateSettings& settings, const std::vector<NamedCamera>& cameras) {
  std::vector<std::string> names;
  for (const auto& camera : cameras) names.push_back(camera.Name);
  // What is said of a setting, behind where it stands.
  const auto told = [&](const std::string& what, const std::string& text) {
    const auto place = settings.Places.find(what);
    return (place == settings.Places.end() ? "" : place->second) + what + ": " + text;
  };
  const auto checkCamera = [&](const std::string& what, const std::string& name) {
    if (std::ranges::find(names, name) == names.end())
      throw InputError(told(what, "there is no camera \"" + Printable(name) + "\"" + DoYouMean(name, names)));
  };
  for (const auto& [name, picture] : settings.Pictures) checkCamera("picture " + name, name);
  for (const auto& [name, tour] : settings.Tours) checkCamera("tour " + name + ", camera", tour.Camera);

  const auto beyond = [&](const std::string& what, const ListenAddress& address) {
    if (address.IsLoopback()) return false;
    if (settings.Users.empty())
      throw InputError(
          told(what, address.Text() +
                         " listens beyond this machine, where there must be users: expected some "
                         "as [user.NAME], or an address such as 127.0.0.1:" +
                         std::to_string(address.Port)));
    return true;
  };
  std::vector<std::string> odd;
  const auto& web = settings.Web;
  bool isReached = false;
  for (const auto& address : web.Listen) {
    if (!beyond("http, listen", address)) continue;
    isReached = true;
    if (web.Certificate.empty())
      odd.push_back(told("http, listen",
                         address.Text() +
                             " listens beyond this machine without a certificate, so passwords cross the "
                             "network in the clear; that is well only behind a proxy that encrypts"));
  }
  const auto& onvif = settings.ONVIF;
  for (const auto& [name, address] : onvif.Ports) {
    checkCamera("onvif, ports " + name, name);
    if (beyond("onvif, ports " + name, address)) isReached = true;
  }
  if (onvif.Enabled && onvif.Discovery && !isReached)
    odd.push_back(told("onvif, discovery", "nobody beyond this machine can reach what is announced"));
  const auto& mqtt = settings.MQTT;
  std::vector<std::string> users;
  for (const auto& user : settings.Users) users.push_back(user.Name);
  if (!mqtt.ActsAs.empty() && std::ranges::find(users, mqtt.ActsAs) == users.end())
    throw InputError(told("mqtt, acts_as", "there is no user \"" + Printable(mqtt.ActsAs) + "\"" +
                                               DoYouMean(mqtt.ActsAs, users)));
  if (!mqtt.Host.empty() && mqtt.ActsAs.empty() && !users.empty())
    throw InputError(told("mqtt",
                          "the broker tells nobody who wishes something: expected the user whose rights they "
                          "have there, such as acts_as = \"" +
                              users[0] + "\""));
  boost::system::error_code isName;
  const auto broker = boost::asio::ip::make_address(mqtt.Host, isName);
  const bool isHere = mqtt.Host == "localhost" || (!isName && broker.is_loopback());
  if (!mqtt.User.empty() && mqtt.Authorities.empty() && !isHere)
    odd.push_back(told("mqtt", "without authorities the password goes to the broker in the clear"));
  for (const auto& user : settings.Users) {
    if (user.PasswordHash.empty() && !user.ONVIFSecret && user.Name != mqtt.ActsAs)
      odd.push_back(told("user " + user.Name,
                         "nobody can log in so, without a password_hash or an onvif_password_file"));
    if (user.Everywhere == Role::None && user.Groups.empty())
      odd.push_back(told("user " + user.Name, "sees no camera, without a role or roles"));
  }
  for (const auto& [group, patterns] : settings.Groups)
    for (const auto& pattern : patterns)
      if (std::ranges::none_of(names, [&](const auto& name) { return Matches(pattern, name); }))
        odd.push_back(told("groups " + group, "there is no camera \"" + pattern + "\""));
  return odd;
}

}  // namespace ptzgate
