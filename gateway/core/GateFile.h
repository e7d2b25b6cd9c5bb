#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "cameras/NamedCamera.h"
#include "cameras/TourFile.h"
#include "gateway/core/Users.h"

namespace ptzgate {

/// An address of this machine; port 0: one that the system chooses.
struct ListenAddress {
  std::string Host;  ///< "192.0.2.1" or "::1", never a name
  std::uint16_t Port = 0;

  bool IsLoopback() const;
  /// "192.0.2.1:8480", "[::1]:8480"
  std::string Text() const;
  bool operator==(const ListenAddress&) const = default;
};

struct WebSettings {
  std::vector<ListenAddress> Listen{{"127.0.0.1", 8480}};
  std::string Certificate, Key;  ///< paths of PEM files; both, or none for plain HTTP
  std::size_t Connections = 1024, ConnectionsPerAddress = 256;
  std::size_t Body = 64 * 1024, Headers = 16 * 1024;  ///< bytes
  double RequestsPerSecond = 200;                     ///< of one address

  bool operator==(const WebSettings&) const = default;
};

/// A camera's picture, which the gateway fetches; with what it logs in there.
struct PictureSettings {
  std::string Snapshot, MJPEG;  ///< http or https; empty: none
  std::string Stream;           ///< rtsp, for NVRs, which fetch it themselves
  std::string User;
  ptzd::PasswordSource Password;
  std::int32_t Width = 1280, Height = 720;  ///< as told to NVRs
};

struct ONVIFSettings {
  bool Enabled = true;
  /// A camera's own port beside its path, for clients that know no path.
  std::map<std::string, ListenAddress> Ports;
  bool Discovery = false;
};

struct MQTTSettings {
  std::string Host;  ///< empty: no broker
  std::uint16_t Port = 1883;
  std::string User;
  ptzd::PasswordSource Password;
  std::string Authorities;       ///< path of PEM certificates, with which TLS is spoken; empty: plain
  std::string Name = "ptzgate";  ///< of this gateway, as client and in its topics
  std::string Prefix = "ptz";    ///< of all topics
  std::string HomeAssistant = "homeassistant";  ///< prefix of its discovery; empty: none
  std::string ActsAs;  ///< the user whose rights those at the broker have; empty where there are no users

  bool operator==(const MQTTSettings&) const = default;
};

struct TourSettings {
  std::string Camera;
  std::string File;
  ptzd::Tour Stops;
};

struct GateSettings {
  std::string CameraFile;  ///< empty: those of this user and this machine
  WebSettings Web;
  std::vector<User> Users;
  std::map<std::string, std::vector<std::string>> Groups;
  std::map<std::string, PictureSettings> Pictures;  ///< by camera
  std::map<std::string, TourSettings> Tours;        ///< by name
  ONVIFSettings ONVIF;
  MQTTSettings MQTT;
  bool Remote = true;                     ///< offers the interface of the remote system
  std::string AuditFile;                  ///< empty: audit lines go among the log's
  std::chrono::milliseconds Hold{10000};  ///< how long a client holds a camera after its last wish
  std::chrono::milliseconds Lease{1000}, LongestLease{60000};  ///< of drives
  bool Connects = true;  ///< cameras that do not move for it are connected without being asked
  /// Where the values stand, by what they are called in texts: "tour night, camera" to "gate.toml:9:10: ".
  std::map<std::string, std::string> Places{};
};

/// The gateway's settings from a text in TOML. `file` is its name, in texts and as where other files are
/// looked for; `openness`: why others may read it, which forbids passwords in it. Raises `ptzd::InputError`
/// with file, line, column, and what was expected there.
GateSettings ReadGate(const std::string& text, const std::string& file, const std::string& openness = {});
/// Those of a file. Raises the same, and for one that cannot be read.
GateSettings ReadGateFile(const std::string& file);

/// What of the settings does not fit the cameras there are, or is not safe: cameras of pictures, tours and
/// ports that are not there, a broker's user who is none, listening beyond loopback without users. Raises
/// `ptzd::InputError` with the first and where it stands. Answers what is only odd: passwords that cross the
/// network in the clear, users who can log in nowhere or see no camera, groups without cameras, a discovery
/// that leads nowhere.
std::vector<std::string> CheckGate(const GateSettings& settings,
                                   const std::vector<ptzd::NamedCamera>& cameras);

}  // namespace ptzgate
