#include "gateway/Program.h"

#include <systemd/sd-daemon.h>

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

std::optional<CertificateFiles> CertificateOf(const WebSettings& settings) {
  if (settings.Certificate.empty()) return std::nullopt;
  return CertificateFiles{settings.Certificate, settings.Key};
}

/// Sockets that the supervisor opened, or else those of the settings.
std::vector<Endpoint> EndpointsOf(const WebSettings& settings) {
  std::vector<Endpoint> endpoints;
  const auto count = sd_listen_fds(1);
  for (int i = 0; i < count; ++i) endpoints.push_back({.Socket = SD_LISTEN_FDS_START + i});
  if (!endpoints.empty()) return endpoints;
  for (const auto& listen : settings.Listen) endpoints.push_back({.Host = listen.Host, .Port = listen.Port});
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
  explicit Faces(Gate& gate)
      : Access(gate),
        Status_(gate, Access),
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
      Journal_(journal),
      Signals_(Context_, SIGINT, SIGTERM, SIGHUP),
      Watchdog_(Context_),
      Gate_(std::make_unique<Gate>(Context_, SettingsFrom(Arguments_.File), Arguments_.StateFolder, journal)),
      Faces_(std::make_unique<Faces>(*Gate_)) {
  Listen();
}

Program::~Program() = default;

void Program::Listen() {
  const auto& settings = Gate_->Settings().Web;
  ServerSettings server{.Listen = EndpointsOf(settings),
                        .Certificate = CertificateOf(settings),
                        .Limits = LimitsOf(settings),
                        .IsUrgent = [](const Request& request) { return request.Path.ends_with("/stop"); },
                        .Log = [this](const std::string& text) { Journal_.Warn(text); }};
  Server_ = std::make_unique<Server>(Context_, std::move(server),
                                     [this](std::shared_ptr<Call> call) { Faces_->Handle(call); });
  Server_->WhenConnectionGone([this](std::uint64_t connection) {
    if (Faces_) Faces_->Remote_.Forget(connection);
  });
  for (const auto& endpoint : Server_->Endpoints())
    Journal_.Write(Journal::Level::Info, "listening",
                   {{"address", TextOf(endpoint, !settings.Certificate.empty())}});
  if (Gate_->Settings().ONVIF.Enabled) ListenForONVIF();
}

void Program::ListenForONVIF() {
  const auto& settings = Gate_->Settings();
  const bool isSecure = !settings.Web.Certificate.empty();
  for (const auto& [camera, listen] : settings.ONVIF.Ports) {
    ServerSettings server{.Listen = {{.Host = listen.Host, .Port = listen.Port}},
                          .Certificate = CertificateOf(settings.Web),
                          .Limits = LimitsOf(settings.Web),
                          .Log = [this](const std::string& text) { Journal_.Warn(text); }};
    Ports_[camera] = std::make_unique<Server>(
        Context_, std::move(server),
        [this, name = camera](std::shared_ptr<Call> call) { Faces_->ONVIF_.Handle(call, name); });
    Journal_.Write(Journal::Level::Info, "listening",
                   {{"device", TextOf(Ports_[camera]->Endpoints().front(), isSecure)}, {"camera", camera}});
  }
  if (!settings.ONVIF.Discovery) return;
  Faces_->ONVIF_.Announce([this, isSecure](const std::string& camera) {
    const auto own = Ports_.find(camera);
    const auto at = (own == Ports_.end() ? *Server_ : *own->second).Endpoints().front();
    return Discovery::Reach{
        at.Host, at.Port, isSecure,
        own == Ports_.end() ? "/onvif/" + camera + "/device_service" : "/onvif/device_service"};
  });
}

std::size_t Program::Run() {
  AwaitSignal();
  KeepWatchdog();
  TellSupervisor("READY=1");
  Context_.run();
  TellSupervisor("STOPPING=1");
  // Whoever drives loses his connection, and with it his drive; what still moves then is stopped.
  Server_->Stop();
  Ports_.clear();
  Faces_.reset();
  const auto unstopped = Gate_->End(Arguments_.EndTime);
  Journal_.Info(unstopped == 0 ? "ended; all cameras are at rest"
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
  TellSupervisor("RELOADING=1");
  const auto fail = [this](const std::string& what, const std::runtime_error& error) {
    Journal_.Write(Journal::Level::Error, what + error.what());
  };
  const auto before = Gate_->Settings().Web;
  const auto portsBefore = Gate_->Settings().ONVIF.Ports;
  bool isTaken = false;
  try {
    Gate_->Reload(SettingsFrom(Arguments_.File));
    isTaken = true;
  } catch (const std::runtime_error& error) {
    fail("nothing was taken over: ", error);
  }
  if (isTaken) {
    Faces_->MQTT_.Reload();
    const auto& web = Gate_->Settings().Web;
    if (web.Listen != before.Listen || Gate_->Settings().ONVIF.Ports != portsBefore ||
        web.Certificate.empty() != before.Certificate.empty())
      Journal_.Warn("where it listens, and whether by TLS, changes when the gateway is started anew");
    std::vector<Server*> servers{Server_.get()};
    for (const auto& [camera, server] : Ports_) servers.push_back(server.get());
    try {
      for (auto* server : servers) {
        server->UseLimits(LimitsOf(web));
        if (!before.Certificate.empty() && !web.Certificate.empty())
          server->UseCertificate(*CertificateOf(web));
      }
    } catch (const std::runtime_error& error) {
      fail("the certificate was not taken over, all else was: ", error);
    }
  }
  TellSupervisor("READY=1");
}

void Program::TellSupervisor(const char* state) { sd_notify(0, state); }

void Program::KeepWatchdog() {
  std::uint64_t microseconds = 0;
  if (sd_watchdog_enabled(0, &microseconds) <= 0) return;
  TellSupervisor("WATCHDOG=1");
  Watchdog_.expires_after(std::chrono::microseconds(microseconds / 3));
  Watchdog_.async_wait([this](const boost::system::error_code& error) {
    if (!error) KeepWatchdog();
  });
}

}  // namespace ptzgate
