#include "Report.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>
#include <vector>

#include "ExchangeLog.h"
#include "Words.h"
#include "common/Credentials.h"
#include "common/Numbers.h"
#include "platform/StandardOutput.h"

namespace ptzctl {

namespace {

using Json = nlohmann::ordered_json;

Json JsonMilliseconds(std::chrono::nanoseconds time) {
  return ptzd::Round(std::chrono::duration<double, std::milli>(time).count(), 2);
}

Json JsonOf(const ptzd::CameraPosition& position) {
  Json json = {{"kind", ptzd::Name(position.Kind)}};
  if (position.Kind == ptzd::PositionKind::Unknown) return json;
  json["pan"] = AsWritten(position.Pan);
  json["tilt"] = AsWritten(position.Tilt);
  if (position.Zoom) json["zoom"] = AsWritten(*position.Zoom);
  return json;
}

Json JsonError(std::int32_t number, const std::string& text) { return {{"number", number}, {"text", text}}; }

Json JsonOf(const ptzd::Exchange& exchange) {
  const bool isHTTP = exchange.Link == ptzd::ExchangeLink::HTTP;
  Json json = {{"link", LinkName(exchange.Link)}, {"where", exchange.Where}};
  if (isHTTP) {
    json["method"] = exchange.Method;
    json["url"] = exchange.URL;
  }
  if (!isHTTP || !exchange.Sent.empty()) {
    if (isHTTP)
      json["body"] = std::string(exchange.Sent.begin(), exchange.Sent.end());
    else
      json["sent"] = ptzd::HexBytes(exchange.Sent);
  }
  if (exchange.StatusCode != 0) {
    json["status"] = exchange.StatusCode;
    json["reason"] = exchange.Reason;
  }
  json["reply"] = exchange.ReplyBeginning;
  json["reply_size"] = exchange.ReplySize;
  if (exchange.ErrorNumber != 0) json["error"] = JsonError(exchange.ErrorNumber, exchange.ErrorText);
  json["ms"] = JsonMilliseconds(exchange.Took);
  return json;
}

Json JsonOf(const Outcome& outcome) {
  Json json = {{"operation", outcome.Operation},
               {"result", ResultName(outcome.Result)},
               {"exit", outcome.ExitCode()},
               {"text", outcome.Text}};
  if (outcome.Became) json["outcome"] = Identifier(ptzd::Name(*outcome.Became));
  if (outcome.ErrorNumber) json["error"] = JsonError(*outcome.ErrorNumber, outcome.ErrorText);
  if (outcome.Answer) json["answer"] = *outcome.Answer;
  if (outcome.Before) json["before"] = JsonOf(*outcome.Before);
  if (outcome.Target) json["target"] = JsonOf(*outcome.Target);
  if (outcome.Position) json["position"] = JsonOf(*outcome.Position);
  if (outcome.Stop)
    json["stop"] = {{"outcome", Identifier(ptzd::Name(outcome.Stop->Result))},
                    {"tries", outcome.Stop->Tries}};
  if (outcome.Values) json["values"] = *outcome.Values;
  if (!outcome.Notes.empty()) json["notes"] = outcome.Notes;
  if (outcome.Took) json["ms"] = JsonMilliseconds(*outcome.Took);
  json["exchanges"] = Json::array();
  for (const auto& exchange : outcome.Exchanges) json["exchanges"].push_back(JsonOf(exchange));
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

/// "integer 0 to 10000", "one of 2400, 4800"
std::string KindText(const Json& option) {
  auto kind = option["kind"].get<std::string>();
  const auto& values = option["values"];
  if (kind.starts_with("choice")) return "one of " + Plain(values);
  if (kind == "integer" && values.size() == 2)
    return "integer " + Plain(values[0]) + " to " + Plain(values[1]);
  return kind;
}

/// What people need not see: another column says it in words.
bool ForPrograms(const std::string& column) {
  return column == "type" || column == "values" || column == "evidence";
}

void PrintTable(std::ostream& out, const Json& rows) {
  std::vector<std::vector<std::string>> lines(1);
  for (const auto& [column, value] : rows.front().items())
    if (!ForPrograms(column)) lines.front().push_back(Label(column));
  for (const auto& row : rows) {
    auto& line = lines.emplace_back();
    for (const auto& [column, value] : row.items())
      if (!ForPrograms(column)) line.push_back(column == "kind" ? KindText(row) : Plain(value));
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
    out << text << '\n';
  }
}

void PrintValues(std::ostream& out, const Json& values) {
  for (const auto& [name, value] : values.items()) {
    const bool table = value.is_array() && !value.empty() && value.front().is_object();
    out << Printable(Label(name)) << ":" << (table ? "" : " " + Plain(value)) << '\n';
    if (table) PrintTable(out, value);
  }
}

std::string PlaceText(const ptzd::CameraPosition& position) {
  if (position.Kind == ptzd::PositionKind::Unknown) return "unknown";
  auto text = "pan " + ptzd::Text(position.Pan) + ", tilt " + ptzd::Text(position.Tilt);
  if (position.Zoom) text += ", zoom " + ptzd::Text(*position.Zoom);
  return text + (position.Kind == ptzd::PositionKind::Estimated ? " (estimated)" : "");
}

void PrintPlace(std::ostream& out, const char* label, const std::optional<ptzd::CameraPosition>& position) {
  if (position) out << "  " << label << PlaceText(*position) << '\n';
}

void PrintLines(std::ostream& out, const std::string& text) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) out << Printable(line) << '\n';
}

void Print(std::ostream& out, const Outcome& outcome) {
  const bool failed = outcome.Result != Result::Done;
  if (failed) {
    std::cerr << "ptzctl: " << (outcome.Operation.empty() ? "" : outcome.Operation + ": ")
              << (outcome.Result == Result::Usage || outcome.Result == Result::Interrupted
                      ? ""
                      : ResultName(outcome.Result) + std::string(": "))
              << Printable(outcome.Text) << std::endl;
  } else if (!outcome.Text.empty()) {
    PrintLines(out, outcome.Text);
  }
  if (outcome.Values) PrintValues(out, *outcome.Values);
  if (outcome.Before && outcome.Before->Kind != ptzd::PositionKind::Unknown)
    PrintPlace(out, "was at    ", outcome.Before);
  PrintPlace(out, "sent to   ", outcome.Target);
  PrintPlace(out, "position  ", outcome.Position);
  for (const auto& note : outcome.Notes) out << "  note: " << Printable(note) << '\n';
  for (const auto& exchange : outcome.Exchanges) out << "  " << ExchangeText(exchange) << '\n';
}

}  // namespace

const char* LinkName(ptzd::ExchangeLink link) {
  switch (link) {
    case ptzd::ExchangeLink::HTTP:
      return "http";
    case ptzd::ExchangeLink::Serial:
      return "serial";
    case ptzd::ExchangeLink::TCP:
      return "tcp";
  }
  return "";
}

const char* ResultName(Result result) {
  switch (result) {
    case Result::Done:
      return "done";
    case Result::Refused:
      return "refused";
    case Result::Usage:
      return "usage";
    case Result::NoConnection:
      return "no_connection";
    case Result::Error:
      return "error";
    case Result::NotArrived:
      return "not_arrived";
    case Result::Interrupted:
      return "interrupted";
  }
  return "error";
}

Report::Report(bool json) : JSON_(json), OnTerminal_(ptzd::OutputIsTerminal()) {}

void Report::Show(const Outcome& outcome) {
  std::ostringstream out;
  if (std::exchange(InProgress_, false)) out << '\n';
  if (JSON_)
    // In ASCII, so that no control character of a reply reaches a terminal.
    out << JsonOf(outcome).dump(-1, ' ', true, Json::error_handler_t::replace) << '\n';
  else
    Print(out, outcome);
  Write(out.str());
}

void Report::ShowProgress(const Outcome& outcome) {
  if (JSON_) return Show(outcome);
  constexpr std::size_t width = 60;
  auto text = PlaceText(*outcome.Position);
  if (!OnTerminal_) return Write(text + '\n');
  text.resize(std::max(text.size(), width), ' ');  // over a longer one
  InProgress_ = true;
  Write('\r' + text);
}

void Report::Write(const std::string& text) {
  if (!Failure_.empty()) return;
  errno = 0;
  std::cout << text;
  if (std::cout.flush()) return;
  [[maybe_unused]] const int error = errno;
  Failure_ = "the output cannot be written: " + SystemReason();
#ifdef SIGPIPE
  if (error == EPIPE) Signal_ = SIGPIPE;
#endif
#ifdef SIGHUP
  if (error == EIO && OnTerminal_) Signal_ = SIGHUP;
#endif
}

void Report::Warn(const std::string& text) const {
  std::cerr << "ptzctl: warning: " << Printable(ptzd::MaskCredentials(text)) << std::endl;
}

namespace {

int ExitCodeAfter(const Report& report, int code) {
  if (report.Failure().empty()) return code;
  report.Warn(report.Failure());
  return static_cast<int>(Result::Refused);
}

}  // namespace

int ShowOnce(Report& report, const Outcome& outcome) {
  report.Show(outcome);
  return ExitCodeAfter(report, outcome.ExitCode());
}

int ShowText(Report& report, const std::string& text) {
  report.Write(text);
  return ExitCodeAfter(report, 0);
}

}  // namespace ptzctl
