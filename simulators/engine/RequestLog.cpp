#include "simulators/engine/RequestLog.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace ptzsim {
namespace {

bool SameIgnoringCase(std::string_view left, std::string_view right) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [&](char a, char b) { return lower(a) == lower(b); });
}

std::string BytesAsText(std::string_view bytes) {
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      text += c;
    } else {
      text += static_cast<char>(0xC0 | (byte >> 6));
      text += static_cast<char>(0x80 | (byte & 0x3F));
    }
  }
  return text;
}

}  // namespace

std::string Request::Header(std::string_view name) const {
  for (const auto& [key, value] : Headers) {
    if (SameIgnoringCase(key, name)) return value;
  }
  return {};
}

RequestLog::RequestLog() : Start_(std::chrono::steady_clock::now()) {}

void RequestLog::Add(Request request) {
  const std::lock_guard lock(Mutex_);
  request.Order = Requests_.size();
  request.Time =
      std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - Start_);
  if (!request.Violation.empty()) Violations_.push_back(request.Violation);
  Requests_.push_back(std::move(request));
  Changed_.notify_all();
}

void RequestLog::AddViolation(std::string text) {
  const std::lock_guard lock(Mutex_);
  Violations_.push_back(std::move(text));
}

int RequestLog::OpenConnection() {
  const std::lock_guard lock(Mutex_);
  Changed_.notify_all();
  return ++Opened_;
}

void RequestLog::CloseConnection() {
  const std::lock_guard lock(Mutex_);
  Changed_.notify_all();
  ++Closed_;
}

void RequestLog::Clear() {
  const std::lock_guard lock(Mutex_);
  Requests_.clear();
  Violations_.clear();
}

std::vector<Request> RequestLog::Requests() const {
  const std::lock_guard lock(Mutex_);
  return Requests_;
}

std::vector<Request> RequestLog::TakeRequests() {
  const std::lock_guard lock(Mutex_);
  return std::exchange(Requests_, {});
}

std::vector<std::string> RequestLog::Violations() const {
  const std::lock_guard lock(Mutex_);
  return Violations_;
}

int RequestLog::ConnectionsOpened() const {
  const std::lock_guard lock(Mutex_);
  return Opened_;
}

int RequestLog::ConnectionsClosed() const {
  const std::lock_guard lock(Mutex_);
  return Closed_;
}

bool RequestLog::WaitForRequests(std::size_t count, std::chrono::milliseconds deadline) const {
  return Wait(deadline, [&] { return Requests_.size() >= count; });
}

bool RequestLog::WaitForConnections(int count, std::chrono::milliseconds deadline) const {
  return Wait(deadline, [&] { return Opened_ >= count; });
}

bool RequestLog::WaitForClosed(int count, std::chrono::milliseconds deadline) const {
  return Wait(deadline, [&] { return Closed_ >= count; });
}

bool RequestLog::Wait(std::chrono::milliseconds deadline, const std::function<bool()>& seen) const {
  std::unique_lock lock(Mutex_);
  return Changed_.wait_for(lock, deadline, seen);
}

nlohmann::json RequestLog::JSON() const {
  const std::lock_guard lock(Mutex_);
  nlohmann::json requests = nlohmann::json::array();
  for (const auto& request : Requests_) {
    nlohmann::json entry = {{"order", request.Order},
                            {"time", request.Time.count()},
                            {"connection", request.Connection},
                            {"raw", BytesAsText(request.Raw)}};
    if (!request.Method.empty()) {
      entry["method"] = BytesAsText(request.Method);
      entry["target"] = BytesAsText(request.Target);
      entry["version"] = request.Version;
      entry["headers"] = nlohmann::json::array();
      for (const auto& [name, value] : request.Headers) {
        entry["headers"].push_back({BytesAsText(name), BytesAsText(value)});
      }
      entry["body"] = BytesAsText(request.Body);
      entry["status"] = request.Status;
    } else if (!request.Target.empty()) {
      entry["target"] = request.Target;
    }
    if (!request.Violation.empty()) entry["violation"] = BytesAsText(request.Violation);
    requests.push_back(std::move(entry));
  }
  nlohmann::json violations = nlohmann::json::array();
  for (const auto& violation : Violations_) violations.push_back(BytesAsText(violation));
  return {{"connections", {{"opened", Opened_}, {"closed", Closed_}}},
          {"requests", std::move(requests)},
          {"violations", std::move(violations)}};
}

}  // namespace ptzsim
