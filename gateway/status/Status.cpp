#include "gateway/status/Status.h"

#include <ptzd/Version.h>

#include <chrono>
#include <map>
#include <sstream>
#include <string_view>

namespace ptzgate {

namespace {

using Labels = std::string_view;

/// A text where Prometheus takes one in quotes.
std::string Quoted(std::string_view text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '\n') {
      quoted += "\\n";
      continue;
    }
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

void Begin(std::ostream& out, std::string_view name, std::string_view type, std::string_view about) {
  out << "# HELP " << name << ' ' << about << "\n# TYPE " << name << ' ' << type << '\n';
}

template <typename Value>
void Tell(std::ostream& out, std::string_view name, std::string_view type, std::string_view about,
          Value value) {
  Begin(out, name, type, about);
  out << name << ' ' << value << '\n';
}

/// `labels` without braces; may be empty.
void TellDurations(std::ostream& out, std::string_view name, const Durations& durations, Labels labels) {
  const auto counts = durations.Read();
  const std::string before = labels.empty() ? "" : std::string(labels) + ",";
  const std::string alone = labels.empty() ? "" : "{" + std::string(labels) + "}";
  for (std::size_t i = 0; i < Durations::Bounds.size(); ++i)
    out << name << "_bucket{" << before << "le=\"" << Durations::Bounds[i] << "\"} " << counts.AtMost[i]
        << '\n';
  out << name << "_bucket{" << before << "le=\"+Inf\"} " << counts.All << '\n'
      << name << "_sum" << alone << ' ' << counts.Sum << '\n'
      << name << "_count" << alone << ' ' << counts.All << '\n';
}

}  // namespace

void Status::Handle(const std::shared_ptr<Call>& call) {
  if (call->Asked().Method != "GET") return call->Answer(MethodProblem(call->Asked(), "GET"));
  if (call->Asked().Path == "/healthz") return call->Answer(Health());
  Access_.Identify(call, "metrics", [this, call](const Client& client) {
    call->Answer({.Headers = {{"Content-Type", "text/plain; version=0.0.4; charset=utf-8"}},
                  .Body = MetricsText(client.User)});
  });
}

/// Well as long as it answers. What is away besides is told, and no reason to start the gateway anew, which
/// would not bring it back.
Response Status::Health() const {
  std::string text = "ok\n";
  if (!Gate_.Settings().MQTT.Host.empty())
    text += Gate_.Metrics().IsBrokerThere ? "broker connected\n" : "broker away\n";
  return {.Headers = {{"Content-Type", "text/plain"}, {"Cache-Control", "no-store"}},
          .Body = std::move(text)};
}

std::string Status::MetricsText(const std::string& user) const {
  std::ostringstream out;
  out.precision(12);  // sums of seconds grow for as long as it runs
  const auto cameras = Gate_.CamerasFor(user);
  Begin(out, "ptzgate_build_info", "gauge", "The version that runs.");
  out << "ptzgate_build_info{version=\"" PTZD_VERSION "\"} 1\n";

  Begin(out, "ptzgate_camera_up", "gauge", "Whether the last exchange with a camera went well.");
  std::size_t queued = 0, stopping = 0, held = 0;
  std::map<std::string_view, std::size_t> moving;
  for (const auto& camera : cameras) {
    const auto state = camera->State();
    out << "ptzgate_camera_up{camera=" << Quoted(camera->Name())
        << ",driver=" << Quoted(camera->Driver().ProgID) << "} "
        << (state.Link == ptzd::LinkHealth::Up ? 1 : 0) << '\n';
    queued += state.Queued;
    stopping += state.StopTries > 0 ? 1 : 0;
    held += camera->HeldBy() != nullptr ? 1 : 0;
    ++moving[ptzd::Name(state.Motion)];
  }
  Begin(out, "ptzgate_cameras", "gauge", "Cameras by what they do.");
  for (const auto& [motion, count] : moving)
    out << "ptzgate_cameras{motion=" << Quoted(motion) << "} " << count << '\n';
  Tell(out, "ptzgate_queued_wishes", "gauge", "Wishes that were not sent yet, of all cameras.", queued);
  Tell(out, "ptzgate_stops_pending", "gauge", "Cameras that have not taken a stop yet.", stopping);

  Tell(out, "ptzgate_cameras_held", "gauge", "Cameras that a client has control of.", held);
  Tell(out, "ptzgate_connections", "gauge", "Connections of clients by HTTP.", Connections_());

  const Metrics& metrics = Gate_.Metrics();
  if (!Gate_.Settings().MQTT.Host.empty())
    Tell(out, "ptzgate_broker_connected", "gauge", "Whether wishes at the MQTT broker are heard.",
         metrics.IsBrokerThere ? 1 : 0);
  Begin(out, "ptzgate_exchange_seconds", "histogram", "How long exchanges with cameras took.");
  metrics.ForEachDriver([&](const std::string& driver, const Durations& durations) {
    TellDurations(out, "ptzgate_exchange_seconds", durations, "driver=" + Quoted(driver));
  });
  Tell(out, "ptzgate_exchanges_failed_total", "counter", "Exchanges that failed or were refused.",
       metrics.FailedExchanges.load());
  Begin(out, "ptzgate_stop_seconds", "histogram", "From a stop until the camera took it.");
  TellDurations(out, "ptzgate_stop_seconds", metrics.Stops, "");
  Tell(out, "ptzgate_stops_failed_total", "counter", "Stops that no camera took.",
       metrics.FailedStops.load());
  Tell(out, "ptzgate_leases_ended_total", "counter", "Drives that ended because nobody renewed them.",
       metrics.EndedLeases.load());
  Tell(out, "ptzgate_wishes_total", "counter", "What clients wished of cameras.", metrics.Wishes.load());
  Tell(out, "ptzgate_refusals_total", "counter", "What clients wished and could not have.",
       metrics.Refusals.load());
  Tell(out, "ptzgate_logins_failed_total", "counter", "Wrong passwords.", metrics.FailedLogins.load());
  return out.str();
}

}  // namespace ptzgate
