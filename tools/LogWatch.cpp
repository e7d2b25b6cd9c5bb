#include "LogWatch.h"

#include <algorithm>
#include <iostream>
#include <utility>

#include <ptzd/Logging.h>
#include "Words.h"

namespace ptzctl {

namespace {

// How the drivers' request routines begin their lines.
constexpr std::string_view Announcements[] = {"Requesting ", "Sending: "};
constexpr std::string_view Completions[] = {"Request complete. Reply: ", "Received: "};
constexpr std::string_view DriverFailure = "Request failed.";
constexpr std::string_view ClientFailure = "Request error ";
constexpr std::string_view LineFailure = "The serial port could not be opened. ";

bool Skip(std::string_view& line, std::string_view beginning) {
  if (!line.starts_with(beginning)) return false;
  line.remove_prefix(beginning.size());
  return true;
}

}  // namespace

LogWatch::LogWatch(bool trace) : Trace_(trace) {
  ptzd::SetLogSink([this](std::string_view line) {
    if (Trace_) std::cerr << "trace: " << Printable(line) << std::endl;
    Read(line);
  });
}

LogWatch::~LogWatch() { ptzd::SetLogSink({}); }

void LogWatch::Read(std::string_view line) {
  const std::lock_guard lock(Mutex_);
  for (const auto beginning : Announcements) {
    auto path = line;
    if (Skip(path, beginning) && (path.starts_with('/') || path.starts_with("http")))
      return void(Requests_.push_back({std::string(path), std::nullopt, ""}));
  }
  const bool failed =
      line.starts_with(DriverFailure) || line.starts_with(ClientFailure) || line.starts_with(LineFailure);
  if (failed && Requests_.empty()) Requests_.emplace_back();
  if (Requests_.empty()) return;
  auto& request = Requests_.back();
  for (const auto beginning : Completions)
    if (auto reply = line; Skip(reply, beginning)) request.Reply = reply;
  // The client tells number and text; the driver's own line adds nothing to that.
  if (failed && request.Failure.empty()) {
    Skip(line, ClientFailure) || Skip(line, LineFailure);
    request.Failure = line;
  }
}

bool LogWatch::HasFailure() {
  const std::lock_guard lock(Mutex_);
  return std::ranges::any_of(Requests_, [](const auto& request) { return !request.Failure.empty(); });
}

std::vector<RequestRecord> LogWatch::Take() {
  const std::lock_guard lock(Mutex_);
  return std::exchange(Requests_, {});
}

}  // namespace ptzctl
