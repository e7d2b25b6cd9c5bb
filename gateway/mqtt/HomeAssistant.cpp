#include "gateway/mqtt/HomeAssistant.h"

#include <ptzd/Version.h>

#include <nlohmann/json.hpp>

#include <cstdio>
#include <vector>

#include "common/ASCII.h"
#include "gateway/mqtt/Topics.h"
#include "gateway/wishes/CameraJSON.h"

namespace ptzgate {

using nlohmann::json;

namespace {

constexpr std::string_view Between = "__";

std::string NodeOf(const MQTTSettings& settings) { return "ptz_" + DiscoveryID(settings.Name); }

}  // namespace

std::string DiscoveryID(std::string_view text) {
  std::string id;
  for (const char c : text) {
    const auto lower = ptzd::LowerASCII(c);
    if ((c >= '0' && c <= '9') || (lower >= 'a' && lower <= 'z') || c == '-') {
      id += c;
      continue;
    }
    char escaped[8];
    std::snprintf(escaped, sizeof escaped, "_%02x", static_cast<unsigned char>(c));
    id += escaped;
  }
  return id;
}

std::string DiscoveryFilter(const MQTTSettings& settings) {
  return settings.HomeAssistant + "/+/" + NodeOf(settings) + "/+/config";
}

std::string CameraOfDiscovery(const MQTTSettings& settings, std::string_view topic) {
  const auto node = "/" + NodeOf(settings) + "/";
  const auto at = topic.find(node, settings.HomeAssistant.size());
  if (settings.HomeAssistant.empty() || !topic.starts_with(settings.HomeAssistant + "/") ||
      at == std::string_view::npos || !topic.ends_with("/config"))
    return {};
  topic.remove_prefix(at + node.size());
  const auto end = topic.find(Between);
  return end == std::string_view::npos ? std::string() : std::string(topic.substr(0, end));
}

DiscoveryMessages DiscoveryOf(const MQTTSettings& settings, const std::string& camera, const json& about) {
  DiscoveryMessages discovery;
  if (settings.HomeAssistant.empty()) return discovery;
  const auto node = NodeOf(settings), id = DiscoveryID(camera);
  const json device{{"identifiers", {node + "_" + id}},
                    {"name", camera},
                    {"manufacturer", "PTZD"},
                    {"model", about["driver"]},
                    {"sw_version", PTZD_VERSION}};
  const json gatewayThere{{"topic", GatewayTopic(settings, "available")}};
  const json cameraThere{{"topic", CameraTopic(settings, camera, "available")}};

  const auto add = [&](const std::string& kind, const std::string& what, json config, bool needsCamera) {
    const auto object = id + std::string(Between) + what;
    config["unique_id"] = node + "_" + object;
    config["object_id"] = camera + "_" + what;
    config["device"] = device;
    config["origin"] = {{"name", "ptzgate"}, {"sw", PTZD_VERSION}};
    config["availability"] = json::array({gatewayThere});
    if (needsCamera) config["availability"].push_back(cameraThere);
    config["availability_mode"] = "all";
    discovery[settings.HomeAssistant + "/" + kind + "/" + node + "/" + object + "/config"] = TextOf(config);
  };
  const auto button = [&](const std::string& what, const std::string& name, const char* command,
                          const std::string& payload, bool needsCamera = true) {
    add("button", what,
        {{"name", name},
         {"command_topic", CommandTopic(settings, camera, command)},
         {"payload_press", payload},
         {"qos", 1}},
        needsCamera);
  };
  // A stop is wished all the more where the camera does not answer.
  button("stop", "Stop", "stop", "PRESS", false);
  const auto& can = about["can"];
  if (can["home"] == true) button("home", "Home", "home", "PRESS");
  for (const auto& preset : about["presets"])
    if (preset["named"] == true)
      button("preset_" + preset["token"].get<std::string>(), preset["name"], "go", preset["token"]);

  const auto sensor = [&](const std::string& what, const std::string& name, const std::string& value,
                          const json& more) {
    json config{{"name", name},
                {"state_topic", CameraTopic(settings, camera, "state")},
                {"value_template", "{{ " + value + " }}"}};
    config.update(more);
    add("sensor", what, std::move(config), what != "link");
  };
  const auto place = [&](const std::string& axis, const char* name) {
    const auto& range = about["ranges"][axis];
    if (range.is_null()) return;
    const std::string at = "value_json.position";
    json more{{"state_class", "measurement"}, {"suggested_display_precision", 1}};
    if (range["unit"] != "")
      more["unit_of_measurement"] = range["unit"] == "degrees" ? json("°") : range["unit"];
    sensor(axis, name, at + "." + axis + " if " + at + " else none", more);
  };
  place("pan", "Pan");
  place("tilt", "Tilt");
  place("zoom", "Zoom");
  sensor("motion", "Motion", "value_json.motion", {{"icon", "mdi:cctv"}});
  sensor("link", "Link", "value_json.link", {{"entity_category", "diagnostic"}});
  return discovery;
}

}  // namespace ptzgate
