#include "gateway/api/Description.h"

#include <ptzd/Version.h>

#include <algorithm>
#include <cctype>

namespace ptzgate {

using nlohmann::json;

namespace {

// What is answered. Written by hand; the tests hold real answers to it.
constexpr char Answers[] = R"json({
  "Number": {"type": ["number", "null"]},
  "Range": {"type": ["object", "null"], "required": ["least", "greatest", "unit"], "properties": {
    "least": {"type": "number"}, "greatest": {"type": "number"}, "unit": {"type": "string"}}},
  "Position": {"type": ["object", "null"], "required": ["kind", "pan", "tilt", "zoom", "age_ms"], "properties": {
    "kind": {"enum": ["read", "estimated", "target"]}, "pan": {"type": "number"}, "tilt": {"type": "number"},
    "zoom": {"type": ["number", "null"]}, "age_ms": {"type": "integer"}}},
  "Holder": {"type": ["object", "null"], "required": ["user", "from", "face", "mine", "left_ms"], "properties": {
    "user": {"type": "string"}, "from": {"type": "string"}, "face": {"type": "string"}, "mine": {"type": "boolean"},
    "left_ms": {"type": "integer"}}},
  "Camera": {"type": "object",
    "required": ["name", "driver", "role", "link", "connected", "error", "motion", "position", "lease_left_ms",
                 "queued", "stop_tries", "holder", "tour", "tours", "can", "ranges", "preset_count", "picture",
                 "version"],
    "properties": {
      "name": {"type": "string"}, "driver": {"type": "string"}, "address": {"type": "string"},
      "line": {"type": "string"}, "role": {"enum": ["none", "viewer", "operator", "administrator"]},
      "link": {"type": "string"}, "connected": {"type": "boolean"},
      "error": {"type": ["object", "null"], "properties": {"number": {"type": "integer"}, "text": {"type": "string"}}},
      "motion": {"type": "string"}, "position": {"$ref": "#/components/schemas/Position"},
      "lease_left_ms": {"type": ["integer", "null"]}, "queued": {"type": "integer"},
      "stop_tries": {"type": "integer", "description": "how often a stop was sent that the camera has not taken yet"},
      "holder": {"$ref": "#/components/schemas/Holder"}, "tour": {"type": ["string", "null"]},
      "tours": {"type": "array", "items": {"type": "string"}},
      "can": {"type": "object", "additionalProperties": {"type": "boolean"}},
      "ranges": {"type": "object", "additionalProperties": {"$ref": "#/components/schemas/Range"}},
      "preset_count": {"type": "integer"},
      "picture": {"type": "object", "additionalProperties": {"type": "boolean"}},
      "version": {"type": "integer"}}},
  "Cameras": {"type": "object", "required": ["cameras"], "properties": {
    "cameras": {"type": "array", "items": {"$ref": "#/components/schemas/Camera"}}}},
  "Preset": {"type": "object", "required": ["token", "name", "number", "named"], "properties": {
    "token": {"type": "string"}, "name": {"type": "string"}, "number": {"type": ["integer", "null"]},
    "named": {"type": "boolean"}}},
  "Presets": {"type": "object", "required": ["presets"], "properties": {
    "presets": {"type": "array", "items": {"$ref": "#/components/schemas/Preset"}}}},
  "Control": {"type": "object", "required": ["holder"], "properties": {
    "holder": {"$ref": "#/components/schemas/Holder"}}},
  "Seen": {"type": "object", "required": ["camera", "exchanges", "track"], "properties": {
    "camera": {"type": "string"},
    "exchanges": {"type": "array", "items": {"type": "object", "required": ["when", "text", "failed"], "properties": {
      "when": {"type": "string", "format": "date-time"}, "text": {"type": "string"}, "failed": {"type": "boolean"}}}},
    "track": {"type": "array", "items": {"type": "object", "required": ["age_ms", "pan", "tilt"], "properties": {
      "age_ms": {"type": "integer"}, "pan": {"type": "number"}, "tilt": {"type": "number"}}}}}},
  "ConnectionOptions": {"type": "object", "required": ["driver", "address", "line", "user", "password", "options"],
    "properties": {
      "driver": {"type": "string"}, "address": {"type": "string"}, "line": {"type": "string"},
      "user": {"type": "string"}, "password": {"type": "string", "description": "where it comes from"},
      "options": {"type": "array", "items": {"type": "object", "required": ["name", "description", "type"]}}}},
  "Me": {"type": "object", "required": ["user", "anonymous", "administrator"], "properties": {
    "user": {"type": "string"}, "anonymous": {"type": "boolean"}, "administrator": {"type": "boolean"}}},
  "Outcome": {"type": "object", "required": ["result", "done", "took_ms"], "properties": {
    "result": {"type": "string", "description": "arrived, sent, stopped, replaced, refused, not reached and so on"},
    "done": {"type": "boolean"}, "took_ms": {"type": "integer"}, "text": {"type": "string"},
    "status_code": {"type": "integer"}, "tries": {"type": "integer"},
    "error": {"type": "object", "properties": {"number": {"type": "integer"}, "text": {"type": "string"}}}}},
  "Problem": {"type": "object", "required": ["type", "title", "status", "detail"], "properties": {
    "type": {"type": "string"}, "title": {"type": "string"}, "status": {"type": "integer"},
    "detail": {"type": "string"}, "outcome": {"$ref": "#/components/schemas/Outcome"}}}
})json";

json Content(const char* type, const std::string& schema) {
  return {{type, {{"schema", {{"$ref", "#/components/schemas/" + schema}}}}}};
}

/// "getCamerasPresets"
std::string OperationID(std::string_view method, std::string_view path) {
  std::string id;
  for (const char c : method) id += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  bool upper = false;
  for (const char c : path) {
    if (std::isalnum(static_cast<unsigned char>(c)) == 0) {
      upper = true;
      continue;
    }
    id += upper ? static_cast<char>(std::toupper(static_cast<unsigned char>(c))) : c;
    upper = false;
  }
  return id;
}

json Operation(std::string_view method, std::string_view path, std::string_view about,
               std::string_view answers, const Body* takes, json& schemas) {
  json operation{{"operationId", OperationID(method, path)}, {"summary", about}};
  for (auto at = path.find('{'); at != std::string_view::npos; at = path.find('{', at + 1))
    operation["parameters"].push_back({{"name", path.substr(at + 1, path.find('}', at) - at - 1)},
                                       {"in", "path"},
                                       {"required", true},
                                       {"schema", {{"type", "string"}}}});
  if (answers == "Events")
    operation["parameters"].push_back(
        {{"name", "camera"},
         {"in", "query"},
         {"description", "no others are told of; may come several times. Without it all are"},
         {"schema", {{"type", "array"}, {"items", {{"type", "string"}}}}}});
  // A drive is answered when it is over, however long that takes.
  if (answers == "Outcome" && !path.ends_with("/drive"))
    operation["parameters"].push_back(
        {{"name", "wait"},
         {"in", "query"},
         {"description", "sent: answered once the camera took it; done: when it is over as well"},
         {"schema", {{"enum", {"sent", "done"}}, {"default", "done"}}}});
  if (takes != nullptr) {
    const std::string name(takes->Name);
    schemas[name] = SchemaOf(takes->Members);
    operation["requestBody"] = {{"required", !takes->MayBeAbsent},
                                {"content", Content("application/json", name)}};
  }
  auto& responses = operation["responses"];
  if (answers == "Nothing")
    responses["204"] = {{"description", "done"}};
  else if (answers == "Socket")
    responses["101"] = {
        {"description",
         "messages of JSON from here on: hello with all cameras, then each as it changes. "
         "{\"do\": \"follow\", \"camera\": NAME} has its exchanges told, too; with \"others\": "
         "\"health\" of all others no more than what a list shows"}};
  else if (answers == "Events")
    responses["200"] = {{"description", "events without end"},
                        {"content", {{"text/event-stream", {{"schema", {{"type", "string"}}}}}}}};
  else
    responses["200"] = {{"description", "done"},
                        {"content", Content("application/json", std::string(answers))}};
  responses["default"] = {{"description", "it was not done; the text says why"},
                          {"content", Content("application/problem+json", "Problem")}};
  return operation;
}

}  // namespace

std::string_view AboutWish(std::string_view word) {
  struct Row {
    std::string_view Word, About;
  };
  static constexpr Row rows[] = {
      {"move", "Move to a place, or by an amount. Answered when the camera rests, or cannot tell"},
      {"zoom", "Zoom by an amount"},
      {"iris", "Open or close the iris"},
      {"focus", "Focus"},
      {"home", "Go home"},
      {"stop", "Stop all that moves. Answered when the camera took it"},
      {"connect", "Connect the camera, or again"},
      {"disconnect", "Disconnect it"},
      {"position", "Ask the camera where it is"},
      {"tour", "Begin a tour"},
  };
  const auto* row = std::ranges::find(rows, word, &Row::Word);
  return row == std::end(rows) ? word : row->About;
}

json OpenAPI(std::span<const Route> routes, const Body& login, const std::string& base) {
  json schemas = json::parse(Answers);
  json paths = json::object();
  const auto add = [&](std::string_view method, std::string_view path, std::string_view about,
                       std::string_view answers, const Body* takes) {
    std::string lower(method);
    std::ranges::transform(lower, lower.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    paths[std::string(path)][lower] = Operation(method, path, about, answers, takes, schemas);
  };
  for (const auto& route : routes)
    add(route.Method, route.Path, route.About, route.Answers, route.Takes ? &*route.Takes : nullptr);
  add("POST", "/login", "Begin a session, by a cookie", "Nothing", &login);
  paths["/login"]["post"]["security"] = json::array();
  return {{"openapi", "3.1.0"},
          {"info",
           {{"title", "ptzgate"},
            {"version", PTZD_VERSION},
            {"description",
             "The cameras of a site. Degrees are the site's, positive to the right and up; zoom and "
             "speeds are in each driver's own scale, whose ranges a camera tells."}}},
          {"servers", json::array({{{"url", base}}})},
          {"security", json::array({{{"basic", json::array()}}, {{"session", json::array()}}})},
          {"paths", std::move(paths)},
          {"components",
           {{"schemas", std::move(schemas)},
            {"securitySchemes",
             {{"basic", {{"type", "http"}, {"scheme", "basic"}}},
              {"session", {{"type", "apiKey"}, {"in", "cookie"}, {"name", "ptzgate"}}}}}}}};
}

}  // namespace ptzgate
