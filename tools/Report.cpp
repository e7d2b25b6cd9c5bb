#include "Report.h"

#include <algorithm>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <vector>

#include "Words.h"
#include "common/Credentials.h"
#include "common/Numbers.h"

namespace ptzctl {

namespace {

using Json = nlohmann::ordered_json;

Json JsonOf(const Position& position) {
  const auto number = [](float value) { return ptzd::Val(ptzd::Text(value)); };
  Json json = {{"pan", number(position.Pan)}, {"tilt", number(position.Tilt)}};
  if (position.Zoom) json["zoom"] = number(*position.Zoom);
  return json;
}

Json JsonOf(const RequestRecord& request) {
  Json json = {{"path", request.Path}};
  if (request.Reply) json["reply"] = *request.Reply;
  if (!request.Failure.empty()) json["failure"] = request.Failure;
  return json;
}

Json JsonOf(const Outcome& outcome) {
  Json json = {{"operation", outcome.Operation},
               {"result", ResultName(outcome.Result)},
               {"exit", static_cast<int>(outcome.Result)},
               {"text", outcome.Text}};
  if (outcome.ErrorNumber) json["error"] = {{"number", *outcome.ErrorNumber}, {"text", outcome.ErrorText}};
  if (outcome.Answer) json["answer"] = *outcome.Answer;
  if (outcome.Before) json["before"] = JsonOf(*outcome.Before);
  if (outcome.After) json["after"] = JsonOf(*outcome.After);
  if (outcome.Before || outcome.After) json["estimated"] = outcome.PositionIsEstimated;
  if (outcome.Values) json["values"] = *outcome.Values;
  if (!outcome.Notes.empty()) json["notes"] = outcome.Notes;
  json["requests"] = Json::array();
  for (const auto& request : outcome.Requests) json["requests"].push_back(JsonOf(request));
  return json;
}

std::string Plain(const Json& value) {
  if (value.is_string()) return Printable(value.get<std::string>());
  if (value.is_boolean()) return value.get<bool>() ? "yes" : "no";
  if (value.is_null()) return "";
  if (value.is_number_float()) return ptzd::Text(value.get<float>());
  if (!value.is_array()) return value.dump(-1, ' ', true, Json::error_handler_t::replace);
  std::string text;
  for (const auto& item : value) text.append(text.empty() ? "" : ", ").append(Plain(item));
  return text;
}

std::string Label(std::string name) {
  std::ranges::replace(name, '_', ' ');
  return name;
}

/// What people need not see: it says again, for programs, what another column says in words.
bool ForPrograms(const std::string& column) { return column == "type" || column == "values"; }

void PrintTable(const Json& rows) {
  std::vector<std::vector<std::string>> lines(1);
  for (const auto& [column, value] : rows.front().items())
    if (!ForPrograms(column)) lines.front().push_back(Label(column));
  for (const auto& row : rows) {
    auto& line = lines.emplace_back();
    for (const auto& [column, value] : row.items())
      if (!ForPrograms(column)) line.push_back(Plain(value));
  }
  std::vector<std::size_t> widths(lines.front().size());
  for (const auto& line : lines)
    for (std::size_t i = 0; i < line.size(); ++i) widths[i] = std::max(widths[i], line[i].size());
  for (const auto& line : lines) {
    std::string text;
    for (std::size_t i = 0; i < line.size(); ++i) {
      text += "  " + line[i];
      if (i + 1 < line.size()) text.append(widths[i] - line[i].size(), ' ');
    }
    std::cout << text << '\n';
  }
}

void PrintValues(const Json& values) {
  for (const auto& [name, value] : values.items()) {
    const bool table = value.is_array() && !value.empty() && value.front().is_object();
    std::cout << Printable(Label(name)) << ":" << (table ? "" : " " + Plain(value)) << '\n';
    if (table) PrintTable(value);
  }
}

std::string ChangeText(const char* name, std::optional<float> before, float after) {
  const auto text = std::string(name) + " " + ptzd::Text(after);
  return before && *before != after
             ? std::string(name) + " " + ptzd::Text(*before) + " -> " + ptzd::Text(after)
             : text;
}

std::string PositionText(const Outcome& outcome) {
  const auto& after = *outcome.After;
  const auto before = outcome.Before;
  auto text = ChangeText("pan", before ? std::optional(before->Pan) : std::nullopt, after.Pan) + ", " +
              ChangeText("tilt", before ? std::optional(before->Tilt) : std::nullopt, after.Tilt);
  if (after.Zoom) text += ", " + ChangeText("zoom", before ? before->Zoom : std::nullopt, *after.Zoom);
  return text + (outcome.PositionIsEstimated ? " (estimated)" : "");
}

std::string RequestText(const RequestRecord& request) {
  constexpr std::size_t longest = 200;
  auto text = "  " + Printable(request.Path) + "  ->  ";
  if (!request.Failure.empty()) return text + Printable(request.Failure);
  if (!request.Reply) return text + "no reply told";
  if (request.Reply->empty()) return text + "answered, empty reply";
  const auto reply = Printable(*request.Reply);
  return text + (reply.size() > longest ? reply.substr(0, longest) + "..." : reply);
}

void PrintLines(const std::string& text) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) std::cout << Printable(line) << '\n';
}

void Print(const Outcome& outcome) {
  const bool failed = outcome.Result != Result::Done;
  if (failed) {
    std::cerr << "ptzctl: " << (outcome.Operation.empty() ? "" : outcome.Operation + ": ")
              << (outcome.Result == Result::Usage || outcome.Result == Result::Interrupted
                      ? ""
                      : ResultName(outcome.Result) + std::string(": "))
              << Printable(outcome.Text) << std::endl;
  } else if (!outcome.Text.empty()) {
    PrintLines(outcome.Text);
  }
  if (outcome.Values) PrintValues(*outcome.Values);
  if (outcome.After) std::cout << "  " << PositionText(outcome) << '\n';
  for (const auto& note : outcome.Notes) std::cout << "  note: " << Printable(note) << '\n';
  for (const auto& request : outcome.Requests) std::cout << RequestText(request) << '\n';
  std::cout.flush();
}

}  // namespace

const char* ResultName(Result result) {
  switch (result) {
    case Result::Done:
      return "done";
    case Result::Refused:
      return "refused";
    case Result::Usage:
      return "usage";
    case Result::NoConnection:
      return "no connection";
    case Result::Error:
      return "error";
    case Result::Interrupted:
      return "interrupted";
  }
  return "error";
}

void Report::Show(const Outcome& outcome) const {
  if (!JSON_) return Print(outcome);
  // In ASCII, so that no control character of a reply reaches a terminal.
  std::cout << JsonOf(outcome).dump(-1, ' ', true, Json::error_handler_t::replace) << std::endl;
}

void Report::Warn(const std::string& text) const {
  std::cerr << "ptzctl: warning: " << Printable(ptzd::MaskCredentials(text)) << std::endl;
}

}  // namespace ptzctl
