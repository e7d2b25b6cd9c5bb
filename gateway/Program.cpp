#include "gateway/Program.h"

#include <sys/socket.h>
#include <systemd/sd-daemon.h>

#include <algorithm>
#include <boost/asio/ip/tcp.hpp>
#include <csignal>
#include <nlohmann/json.hpp>
#include <utility>

#include "cameras/InputWords.h"
#include "gateway/access/HTTPAccess.h"
#include "gateway/api/API.h"
#include "gateway/console/Console.h"
#include "gateway/mqtt/MQTT.h"
#include "gateway/onvif/ONVIF.h"
#include "gateway/pictures/Pictures.h"
#include "gateway/remote/Remote.h"
#include "gateway/status/Status.h"

namespace ptzgate {

namespace {

using std::chrono::milliseconds;

ServerLimits LimitsOf(const WebSettings& settings) {
  ServerLimits limits;
  limits.HeaderBytes = settings.Headers;
  limits.BodyBytes = settings.Body;
  limits.Connections = settings.Connections;
  limits.ConnectionsPerAddress = settings.ConnectionsPerAddress;
  limits.RequestsPerSecond = settings.RequestsPerSecond;
  limits.RequestBurst = 2 * settings.RequestsPerSecond;
  return limits;
}

/// Sockets that the supervisor opened. They are as they are where a file says something else.
std::vector<Endpoint> InheritedSockets() {
  std::vector<Endpoint> endpoints;
  const auto count = sd_listen_fds(1);
  for (int socket = SD_LISTEN_FDS_START; socket < SD_LISTEN_FDS_START + count; ++socket) {
    boost::asio::ip::tcp::endpoint where;
    auto size = static_cast<socklen_t>(where.capacity());
    if (sd_is_socket_inet(socket, AF_UNSPEC, SOCK_STREAM, 1, 0) <= 0 ||
        getsockname(socket, where.data(), &size) != 0)
      throw std::runtime_error("socket " + std::to_string(socket) + " of the supervisor is not one of TCP");
    where.resize(size);
    endpoints.push_back({where.address().to_string(), where.port(), socket});
  }
  return endpoints;
}

std::string TextOf(const Endpoint& endpoint, bool isSecure) {
  const bool isIPv6 = endpoint.Host.find(':') != std::string::npos;
  return (isSecure ? "https://" : "http://") + (isIPv6 ? "[" + endpoint.Host + "]" : endpoint.Host) + ":" +
         std::to_string(endpoint.Port) + "/";
}

}  // namespace

/// Who answers which request.
struct Program::Faces {
  Faces(Gate& gate, std::function<std::size_t()> connections)
      : Access(gate),
        Status_(gate, Access, std::move(connections)),
        API_(gate, Access),
        Remote_(gate, Access),
        Pictures_(gate, Access),
        ONVIF_(gate, Access),
        MQTT_(gate) {}

  void Handle(const std::shared_ptr<Call>& call) {
    const auto& path = call->Asked().Path;
    if (Pictures::Has(path)) return Pictures_.Handle(call);
    if (API::Has(path)) return API_.Handle(call);
    if (Status::Has(path)) return Status_.Handle(call);
    if (Remote::Has(path)) return Remote_.Handle(call);
    if (Console::Has(path)) return Console::Handle(call);
    if (ONVIF::Has(path)) return ONVIF_.Handle(call);
    call->Answer(Problem(404, "there is nothing at " + path));
  }

  HTTPAccess Access;
  Status Status_;
  API API_;
  Remote Remote_;
  Pictures Pictures_;
  ONVIF ONVIF_;
  MQTT MQTT_;
};

GateSettings SettingsFrom(const std::string& file) {
  return file.empty() ? GateSettings() : ReadGateFile(file);
}

Program::Program(Arguments arguments, Journal& journal)
    : Arguments_(std::move(arguments)),
      Inherited_(InheritedSockets()),
      Journal_(journal),
      Signals_(Context_, SIGINT, SIGTERM, SIGHUP),
      Watchdog_(Context_),
      Gate_(std::make_unique<Gate>(Context_, ReadSettings(), Arguments_.StateFolder, journal)),
      Faces_(std::make_unique<Faces>(*Gate_, [this] {
        std::size_t connections = 0;
        for (const auto& [camera, server] : Servers_) connections += server->Connections();
        return connections;
      })) {
  Listen(Gate_->Settings());
  Announce(true);
}

Program::~Program() = default;

GateSettings Program::ReadSettings() const {
  auto settings = SettingsFrom(Arguments_.File);
  if (!Inherited_.empty()) settings.Web.Listen.clear();
  for (const auto& endpoint : Inherited_) settings.Web.Listen.push_back({endpoint.Host, endpoint.Port});
  return settings;
}

void Program::Listen(const GateSettings& settings) {
  const auto& web = settings.Web;
  const auto certificate = web.Certificate.empty() ? nullptr : ReadCertificate({web.Certificate, web.Key});
  Places places{{"", web.Listen}};
  if (settings.ONVIF.Enabled)
    for (const auto& [camera, listen] : settings.ONVIF.Ports) places[camera] = {listen};
  const auto dropOthers = [this] {
    std::erase_if(Servers_, [this](const auto& server) { return !Places_.contains(server.first); });
  };
  try {
    Open(places);
  } catch (const std::runtime_error&) {
    try {
      Open(Places_);
    } catch (const std::runtime_error& error) {
      Journal_.Write(Journal::Level::Error,
                     std::string("what was there before is not, either: ") + error.what());
    }
    dropOthers();
    throw;
  }
  Places_ = places;
  dropOthers();
  for (const auto& [camera, server] : Servers_) {
    server->UseCertificate(certificate);
    server->UseLimits(LimitsOf(web));
  }
  TellListening(certificate != nullptr);
}

/// A port may go from one to another: what is not wanted any more is closed first.
void Program::Open(const Places& places) {
  const auto endpointsOf = [&](const std::string& camera) {
    std::vector<Endpoint> endpoints;
    if (const auto wanted = places.find(camera); wanted != places.end())
      for (const auto& listen : wanted->second)
        endpoints.push_back({.Host = listen.Host, .Port = listen.Port});
    return endpoints;
  };
  for (const auto& [camera, server] : Servers_) server->ListenOnlyAt(endpointsOf(camera));
  for (const auto& [camera, listen] : places) {
    auto& server = Servers_[camera];
    if (!server) server = MakeServer(camera);
    server->ListenAt(endpointsOf(camera));
  }
}

std::unique_ptr<Server> Program::MakeServer(const std::string& camera) {
  ServerSettings settings{.Listen = {},
                          .IsUrgent = [](const Request& request) { return request.Path.ends_with("/stop"); },
                          .Log = [this](const std::string& text) { Journal_.Warn(text); }};
  if (!camera.empty())
    return std::make_unique<Server>(
        Context_, std::move(settings),
        [this, camera](std::shared_ptr<Call> call) { Faces_->ONVIF_.Handle(call, camera); });
  settings.Listen = Inherited_;
  auto server = std::make_unique<Server>(Context_, std::move(settings),
                                         [this](std::shared_ptr<Call> call) { Faces_->Handle(call); });
  server->WhenConnectionGone([this](std::uint64_t connection) {
    if (Faces_) Faces_->Remote_.Forget(connection);
  });
  return server;
}

void Program::TellListening(bool isSecure) {
  decltype(Listening_) now;
  for (const auto& [camera, server] : Servers_)
    for (const auto& endpoint : server->Endpoints()) {
      const auto text = TextOf(endpoint, isSecure);
      now.insert(camera.empty() ? nlohmann::json{{"address", text}}
                                : nlohmann::json{{"device", text}, {"camera", camera}});
    }
  const auto tell = [this](const char* what, const auto& some, const auto& others) {
    for (const auto& each : some)
      if (!others.contains(each)) Journal_.Write(Journal::Level::Info, what, each);
  };
  tell("no longer listening", Listening_, now);
  tell("listening", now, Listening_);
  Listening_ = std::move(now);
}

void Program::Announce(bool isAnew) {
  auto& face = Faces_->ONVIF_;
  const auto& settings = Gate_->Settings().ONVIF;
  if (!settings.Enabled || !settings.Discovery) return face.EndAnnouncing();
  if (face.IsAnnouncing() && !isAnew) return;
  face.Announce([this](const std::string& camera) {
    const bool hasPort = Servers_.contains(camera);
    const auto endpoints = Servers_.at(hasPort ? camera : "")->Endpoints();
    const auto at = endpoints.empty() ? Endpoint() : endpoints.front();
    return Discovery::Reach{at.Host, at.Port, !Gate_->Settings().Web.Certificate.empty(),
                            hasPort ? "/onvif/device_service" : "/onvif/" + camera + "/device_service"};
  });
}

std::size_t Program::Run() {
  AwaitSignal();
  KeepWatchdog();
  sd_notify(0, "READY=1");
  TellStatus();
  Context_.run();
  sd_notify(0, "STOPPING=1\nSTATUS=Stopping the cameras");
  // Before anybody is waited for. Whoever drives loses his connection then, and with it his drive.
  Gate_->StopAll();
  for (const auto& [camera, server] : Servers_) server->Stop();
  Faces_.reset();
  const auto unstopped = Gate_->End(Arguments_.EndTime);
  Journal_.Info(unstopped == 0 ? "ended; whatever may have been moving took its stop"
                               : "ended; cameras that did not take their stop: " + std::to_string(unstopped));
  return unstopped;
}

void Program::AwaitSignal() {
  Signals_.async_wait([this](const boost::system::error_code& error, int signal) {
    if (error) return;
    if (signal == SIGHUP) {
      Reload();
      return AwaitSignal();
    }
    Context_.stop();
  });
}

void Program::Reload() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  sd_notifyf(0, "RELOADING=1\nMONOTONIC_USEC=%lld",
             static_cast<long long>(std::chrono::duration_cast<std::chrono::microseconds>(now).count()));
  Complaint_.clear();
  const auto before = std::pair(Places_, Gate_->Settings().Web.Certificate.empty());
  const auto attempt = [this](const std::string& otherwise, const auto& work) {
    try {
      work();
      return true;
    } catch (const std::runtime_error& error) {
      Complaint_ = otherwise + error.what();
      Journal_.Write(Journal::Level::Error, Complaint_);
      return false;
    }
  };
  if (attempt("nothing was taken over: ", [this] {
        Gate_->Reload(ReadSettings(), [this](const GateSettings& settings) { Listen(settings); });
      })) {
    Faces_->Access.Reload();
    Faces_->MQTT_.Reload();
    attempt("all was taken over but the discovery: ",
            [&] { Announce(before != std::pair(Places_, Gate_->Settings().Web.Certificate.empty())); });
  }
  sd_notify(0, "READY=1");
  TellStatus();
}

/// One line, for `systemctl status`.
void Program::TellStatus() {
  const auto cameras = Gate_->Cameras();
  const auto up = std::ranges::count_if(
      cameras, [](const auto& camera) { return camera->State().Link == ptzd::LinkHealth::Up; });
  auto status = std::to_string(up) + " of " + std::to_string(cameras.size()) + " cameras up";
  for (const auto& each : Listening_)
    if (each.contains("address")) status += ", " + each["address"].get<std::string>();
  if (!Complaint_.empty()) status += "; " + Complaint_;
  std::ranges::replace(status, '\n', ' ');
  if (status == Status_) return;
  Status_ = status;
  sd_notify(0, ("STATUS=" + status).c_str());
}

/// The pings come from the thread that everything runs on: where it hangs, they end.
void Program::KeepWatchdog() {
  std::uint64_t microseconds = 0;
  if (sd_watchdog_enabled(0, &microseconds) <= 0) return;
  sd_notify(0, "WATCHDOG=1");
  TellStatus();
  Watchdog_.expires_after(std::chrono::microseconds(microseconds / 3));
  Watchdog_.async_wait([this](const boost::system::error_code& error) {
    if (!error) KeepWatchdog();
  });
}

}  // namespace ptzgate
