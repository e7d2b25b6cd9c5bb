#include "gateway/core/PlacePresets.h"

#include <utility>

namespace ptzgate {

using nlohmann::json;

PlacePresets::PlacePresets(const std::string& folder)
    : File_(folder, "places.json", "the places of presets") {
  File_.Read([this](const json& document) {
    for (const auto& [camera, places] : document.items())
      for (const auto& [token, place] : places.items()) {
        auto& kept = Places_[camera][token];
        kept = {.Name = place.at("name"), .Pan = place.at("pan"), .Tilt = place.at("tilt"), .Zoom = {}};
        if (place.contains("zoom")) kept.Zoom = place["zoom"].get<float>();
      }
  });
}

const std::map<std::string, PlacePresets::Place>& PlacePresets::Of(const std::string& camera) const {
  static const std::map<std::string, Place> none;
  const auto places = Places_.find(camera);
  return places == Places_.end() ? none : places->second;
}

std::string PlacePresets::NewToken(const std::string& camera) const {
  const auto& places = Of(camera);
  for (std::size_t number = 1;; ++number)
    if (auto token = "place-" + std::to_string(number); !places.contains(token)) return token;
}

void PlacePresets::Save(const std::string& camera, const std::string& token, const Place& place) {
  auto places = Places_;
  places[camera][token] = place;
  Store(std::move(places));
}

void PlacePresets::Remove(const std::string& camera, const std::string& token) {
  auto places = Places_;
  places[camera].erase(token);
  if (places[camera].empty()) places.erase(camera);
  Store(std::move(places));
}

void PlacePresets::Store(Places places) {
  auto document = json::object();
  for (const auto& [camera, of] : places)
    for (const auto& [token, place] : of) {
      auto& kept = document[camera][token];
      kept = {{"name", place.Name}, {"pan", place.Pan}, {"tilt", place.Tilt}};
      if (place.Zoom) kept["zoom"] = *place.Zoom;
    }
  File_.Write(document);
  Places_ = std::move(places);
}

}  // namespace ptzgate
