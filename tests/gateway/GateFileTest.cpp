#include "gateway/core/GateFile.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "cameras/InputWords.h"

namespace ptzgate {
namespace {

using namespace std::chrono_literals;

std::string Told(const std::string& text, const std::string& openness = {}) {
  try {
    ReadGate(text, "g.toml", openness);
  } catch (const ptzd::InputError& error) {
    return error.what();
  }
  return "accepted";
}

/// A folder that goes with the test.
class Folder {
 public:
  Folder() {
    std::string path = testing::TempDir() + "gate.XXXXXX";
    if (mkdtemp(path.data()) == nullptr) throw std::runtime_error("no folder");
    Path = path;
  }
  ~Folder() { std::filesystem::remove_all(Path); }
  void Write(const std::string& name, const std::string& text) const {
    std::ofstream(Path / name) << text;
    std::filesystem::permissions(Path / name, std::filesystem::perms::owner_read);
  }
  std::filesystem::path Path;
};

/// What the document gives as everything that can stand in the file.
std::string Example() {
  std::ifstream file(PTZGATE_DOCUMENT);
  const std::string text{std::istreambuf_iterator<char>(file), {}};
  const std::string begin = "```toml\n";
  const auto at = text.find(begin) + begin.size();
  return text.substr(at, text.find("```", at) - at);
}

TEST(GateFile, IsReadAsDocumented) {
  const Folder folder;
  folder.Write("gate.toml", Example());
  folder.Write("anna.secret", "p w\n");
  folder.Write("night.toml", "[[stop]]\npreset = 1\n");
  const auto in = [&](const char* name) { return (folder.Path / name).string(); };
  const auto gate = ReadGateFile(in("gate.toml"));

  EXPECT_EQ(gate.CameraFile, in("cameras.toml"));
  EXPECT_TRUE(gate.Connects);
  // Limits and times are those that there are without the file.
  WebSettings web{.Certificate = in("gate.crt"), .Key = in("gate.key")};
  web.Listen = {{"0.0.0.0", 8480}, {"::1", 8480}};
  EXPECT_EQ(gate.Web, web);
  const GateSettings usual;
  EXPECT_EQ(gate.Hold, usual.Hold);
  EXPECT_EQ(gate.Lease, usual.Lease);
  EXPECT_EQ(gate.LongestLease, usual.LongestLease);

  ASSERT_EQ(gate.Users.size(), 1U);
  const auto& anna = gate.Users[0];
  EXPECT_EQ(anna.Name, "anna");
  EXPECT_EQ(anna.Everywhere, Role::Operator);
  EXPECT_EQ(anna.Groups, (std::map<std::string, Role>{{"yard", Role::Administrator}}));
  EXPECT_EQ(anna.Priority, 10);
  EXPECT_EQ(anna.ONVIFSecret, "p w");
  EXPECT_EQ(gate.Groups.at("yard"), (std::vector<std::string>{"gate", "yard-*"}));

  const auto& picture = gate.Pictures.at("gate");
  EXPECT_EQ(picture.Snapshot, "http://192.168.0.90/snapshot.jpg");
  EXPECT_EQ(picture.Stream, "rtsp://192.168.0.90/stream");
  EXPECT_EQ(picture.Password.Text(), "file " + in("gate-picture.secret"));
  EXPECT_EQ(gate.Tours.at("night").Stops.Stops.at(0).Preset, "1");
  EXPECT_EQ(gate.ONVIF.Ports, (std::map<std::string, ListenAddress>{{"gate", {"0.0.0.0", 8601}}}));
  EXPECT_EQ(gate.MQTT.Host + ":" + std::to_string(gate.MQTT.Port), "localhost:1883");
  EXPECT_EQ(gate.MQTT.Password.Text(), "environment PTZGATE_BROKER");
  EXPECT_EQ(gate.MQTT.HomeAssistant, "homeassistant");
  EXPECT_EQ(gate.MQTT.ActsAs, "anna");
  EXPECT_EQ(gate.AuditFile, in("audit.log"));

  std::filesystem::permissions(folder.Path / "anna.secret", std::filesystem::perms::others_read,
                               std::filesystem::perm_options::add);
  EXPECT_THROW(ReadGateFile(in("gate.toml")), ptzd::InputError);
  EXPECT_THROW(ReadGateFile(in("other.toml")), ptzd::InputError);
}

TEST(GateFile, NeedsNothing) {
  const auto gate =
      ReadGate("[mqtt]\nbroker = \"[::1]\"\nauthorities = \"ca\"\nhome_assistant = false", "g.toml");
  EXPECT_EQ(gate.Web, WebSettings());
  EXPECT_EQ(gate.MQTT.Host + " " + std::to_string(gate.MQTT.Port), "::1 8883");
  EXPECT_EQ(gate.MQTT.HomeAssistant, "");
}

TEST(GateFile, TellsWhereItIsWrong) {
  const std::string picture = "[picture.gate]\nsnapshot = \"http://h/\"\n";
  const std::string listen =
      " is no address of this machine: expected its number and a port, such as "
      "127.0.0.1:8480, 0.0.0.0:8480 for all, [::]:8480, or localhost:8480";
  const struct {
    std::string Text, Told;
  } rows[] = {
      {"conect = true", "1:1: the key \"conect\" is not known; do you mean connect?"},
      {"[user.a]\npasword_hash = \"x\"",
       "2:1: user a: the key \"pasword_hash\" is not known; do you mean "
       "password_hash?"},
      {"[user.a]\npassword_hash = hunter2", "2:17: expected a key, \"=\" and a text in quotes"},
      {"user = 3", "1:8: user: expected a table, not a whole number"},
      {"[http]\nlisten = \"127.0.0.1:80\"",
       "2:10: http, listen: expected a list of addresses such as [\"127.0.0.1:8480\"], not a text"},
      {"[http]\nlisten = []",
       "2:10: http, listen: expected a list of addresses such as [\"127.0.0.1:8480\"]"},
      {"[http]\nlisten = [\"gate.site:80\"]", "2:11: http, listen: \"gate.site:80\"" + listen},
      {"[http]\nlisten = [\"[127.0.0.1]:80\"]", "2:11: http, listen: \"[127.0.0.1]:80\"" + listen},
      {"[http]\nlisten = [\"::1:80\"]",
       "2:11: http, listen: \"::1:80\" lacks the brackets of an IPv6 address"},
      {"[http]\nlisten = [\"127.0.0.1\"]", "2:11: http, listen: \"127.0.0.1\" lacks a port"},
      {"[http]\nlisten = [\"127.0.0.1:65536\"]",
       "2:11: http, listen: \"127.0.0.1:65536\" has no port from 1 to 65535"},
      {"[http]\nlisten = [\"127.0.0.1:8e1\"]",
       "2:11: http, listen: \"127.0.0.1:8e1\" has no port behind the colon"},
      {"[http]\nlisten = [\"127.0.0.1:80\", \"localhost:80\"]",
       "2:27: http, listen: 127.0.0.1:80 is there already"},
      {"[http]\nkey = \"k\"", "1:1: http: expected both certificate and key, or neither"},
      {"[limits]\nbody = 0", "2:8: limits, body: expected a number from 1024 to 67108864, not 0"},
      {"[limits]\nrequests_per_second = nan", "2:23: limits, requests_per_second: the number is too large"},
      {"[control]\nlease = 0", "2:9: control, lease: expected more than 0"},
      {"[control]\nlease = \"soon\"", "2:9: control, lease: \"soon\" is not a time such as 2s, 500ms or 1.5"},
      {"[control]\nlease = \"2m\"",
       "1:1: control: expected a longest_lease of no less than the lease, which is 120000ms"},
      {"[groups]\nyard = [\"a b\"]", "2:9: groups yard: \"a b\" is no name for a camera"},
      {"[user.a]\nroles = { yrd = \"viewer\" }\n[groups]\nyard = []",
       "2:11: user a, roles: the group \"yrd\" is not known; do you mean yard?"},
      {"[user.a]\nrole = \"admin\"",
       "2:8: user a, role: the role: \"admin\" is none of viewer, operator, administrator"},
      {"[user.\"a:b\"]", "1:7: user a:b: expected a name of up to 64 bytes without \":\""},
      {"[user.a]\npassword_hash = \"$argon2id$v=19$m=65536\"",
       "2:17: user a, password_hash: expected an Argon2id hash of the password, as \"ptzgate password\" "
       "makes it"},
      {"[user.a]\nonvif_password_file = \"/nowhere\"",
       "1:1: user a: the secret file /nowhere cannot be read: "},
      {picture + "mjpeg = \"ftp://h/\"",
       "3:9: picture gate, mjpeg: expected http://HOST/... or https://HOST/..."},
      {"[picture.gate]\nstream = \"rtsp://\"", "2:10: picture gate, stream: expected rtsp://HOST/..."},
      {picture + "stream = \"rtsp://a:hunter2@h/\"",
       "3:10: picture gate, stream: expected no login in it; a user "},
      {picture + "mjpeg = \"http://h:70000/\"", "3:9: picture gate, mjpeg: expected http://HOST/"},
      {picture + "user = \"a\"", "1:1: picture gate: expected where the user's password comes from"},
      {picture + "password_env = \"A\"", "1:1: picture gate: expected a user beside the password"},
      {picture + "user = \"a\"\npassword_env = \"A\"\npassword_file = \"f\"",
       "5:17: picture gate, password_file: expected one source of the password"},
      {picture + "password_prompt = true", "3:1: picture gate: the key \"password_prompt\" is not known"},
      {"[picture.gate]", "1:1: picture gate: expected a snapshot, mjpeg or stream"},
      {"[tour.night]\ncamera = \"gate\"", "1:1: tour night: expected both a camera and a file"},
      {"[tour.night]\ncamera = \"gate\"\nfile = \"/nowhere\"",
       "3:8: tour night, file: the tour /nowhere cannot be read: "},
      {"[onvif.ports]\na = \"127.0.0.1:8480\"", "2:5: onvif, ports a: 127.0.0.1:8480 is there already"},
      {"[mqtt]\nprefix = \"ptz\"", "1:1: mqtt: expected a broker"},
      {"[mqtt]\nbroker = \"mqtt://h:1883\"",
       "2:10: mqtt, broker: \"mqtt://h:1883\" is neither a host nor HOST:PORT"},
      {"[mqtt]\nbroker = \"h:0\"", "2:10: mqtt, broker: \"h:0\" has no port from 1 to 65535"},
      {"[mqtt]\nbroker = \"h\"\nprefix = \"ptz/#\"",
       "3:10: mqtt, prefix: \"ptz/#\" cannot stand in topics: expected up to 128 bytes without \"+\" and "
       "\"#\", "
       "no \"$\" first, and something at both sides of each \"/\""},
      {"[mqtt]\nbroker = \"h\"\nname = \"a/b\"", "3:8: mqtt, name: \"a/b\" cannot stand in topics: "},
      {"[mqtt]\nbroker = \"h\"\nname = \"a\\u0000\"", "3:8: mqtt, name: the text has control characters"},
  };
  for (const auto& row : rows) {
    const auto told = Told(row.Text);
    EXPECT_EQ(told.substr(0, row.Told.size() + 7), "g.toml:" + row.Told) << row.Text;
    EXPECT_EQ(told.find("hunter2"), std::string::npos) << told;
  }
  EXPECT_EQ(Told("[user.a]\nonvif_password = \"x\""), "accepted");
  EXPECT_EQ(Told("[user.a]\nonvif_password = \"x\"", "others may"),
            "g.toml:2:18: user a, onvif_password: no password may stand in this file: others may");
}

TEST(CheckGate, RefusesWhatDoesNotFit) {
  const std::vector<ptzd::NamedCamera> cameras{{.Name = "gate"}, {.Name = "yard-1"}};
  const std::string user = "[user.a]\nonvif_password = \"x\"\nrole = \"viewer\"\n";
  const std::string open = "[http]\nlisten = [\"0.0.0.0:80\"]\n";
  const struct {
    std::string Text, Told;
  } rows[] = {
      {"", ""},
      {"[picture.Gate]\nsnapshot = \"http://h/\"",
       "g.toml:1:10: picture Gate: there is no camera \"Gate\"; do you mean gate?"},
      {"[onvif.ports]\nyard = \"127.0.0.1:1\"",
       "g.toml:2:1: onvif, ports yard: there is no camera \"yard\"; do you mean yard-1?"},
      {open,
       "g.toml:2:10: http, listen: 0.0.0.0:80 listens beyond this machine, where there must be users: "
       "expected some as "
       "[user.NAME], or an address such as 127.0.0.1:80"},
      {"[http]\nlisten = [\"[::]:80\"]",
       "g.toml:2:10: http, listen: [::]:80 listens beyond this machine, where"},
      {"[onvif.ports]\ngate = \"10.0.0.1:80\"",
       "g.toml:2:1: onvif, ports gate: 10.0.0.1:80 listens beyond this machine, where"},
      {open + user,
       "g.toml:2:10: http, listen: 0.0.0.0:80 listens beyond this machine without a certificate, so "
       "passwords"},
      {open + "certificate = \"c\"\nkey = \"k\"\n" + user, ""},
      {"[http]\nlisten = [\"127.1.2.3:80\", \"[::1]:80\"]", ""},
      {"[user.a]\nrole = \"viewer\"", "g.toml:1:7: user a: nobody can log in so"},
      {"[user.a]\nonvif_password = \"x\"", "g.toml:1:7: user a: sees no camera"},
      {"[groups]\nall = [\"*\"]\nyard = [\"yard-*\"]", ""},
      {"[groups]\nyard = [\"yrd-*\"]", "g.toml:2:1: groups yard: there is no camera \"yrd-*\""},
      {"[onvif]\ndiscovery = true", "g.toml:2:13: onvif, discovery: nobody beyond this machine can reach"},
      {"[mqtt]\nbroker = \"10.0.0.1\"\nuser = \"a\"\npassword_env = \"A\"",
       "g.toml:1:1: mqtt: without authorities the password"},
      {"[mqtt]\nbroker = \"127.0.0.1\"\nuser = \"a\"\npassword_env = \"A\"", ""},
      {"[mqtt]\nbroker = \"h\"\n" + user,
       "g.toml:1:1: mqtt: the broker tells nobody who wishes something: expected"},
      {"[mqtt]\nbroker = \"h\"\nacts_as = \"b\"\n" + user,
       "g.toml:3:11: mqtt, acts_as: there is no user \"b\"; do you mean a?"},
      {"[mqtt]\nbroker = \"h\"\nacts_as = \"a\"\n" + user, ""},
  };
  for (const auto& row : rows) {
    std::string told;
    try {
      for (const auto& odd : CheckGate(ReadGate(row.Text, "g.toml"), cameras)) told += odd;
    } catch (const ptzd::InputError& error) {
      told = error.what();
    }
    EXPECT_EQ(row.Told.empty() ? told : told.substr(0, row.Told.size()), row.Told) << row.Text;
  }
}

}  // namespace
}  // namespace ptzgate
