#include "gateway/core/Journal.h"

#include <chrono>
#include <mutex>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include <cerrno>
#include <cstdio>
#include <system_error>

namespace ptzgate {

using nlohmann::json;

namespace {

constexpr const char* LevelNames[] = {"debug", "info", "warning", "error"};

/// Its members in the order that people read them.
std::string Line(const nlohmann::ordered_json& line) {
  return line.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

}  // namespace

std::string TimeText(std::chrono::system_clock::time_point time) {
  const auto seconds = std::chrono::floor<std::chrono::seconds>(time);
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(seconds - day);
  char text[48];
  std::snprintf(
      text, sizeof text, "%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", static_cast<int>(date.year()),
      static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
      static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
      static_cast<int>(clock.seconds().count()),
      static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(time - seconds).count()));
  return text;
}

struct Journal::State {
  Level Least;
  std::mutex Mutex;
  std::FILE* Audit = nullptr;  ///< null: where all else goes

  ~State() {
    if (Audit != nullptr) std::fclose(Audit);
  }
};

Journal::Journal(Level least) : State_(std::make_unique<State>()) { State_->Least = least; }

Journal::~Journal() = default;

void Journal::AuditTo(const std::string& file) {
  std::FILE* opened = nullptr;
  if (!file.empty()) {
    opened = std::fopen(file.c_str(), "ae");
    if (opened == nullptr)
      throw std::runtime_error("the audit file " + file +
                               " cannot be written: " + std::generic_category().message(errno));
  }
  const std::lock_guard lock(State_->Mutex);
  if (State_->Audit != nullptr) std::fclose(State_->Audit);
  State_->Audit = opened;
}

void Journal::Write(Level level, std::string_view what) { Write(level, what, json::object()); }

void Journal::Write(Level level, std::string_view what, const json& more) {
  if (level < State_->Least) return;
  nlohmann::ordered_json line{{"time", TimeText(std::chrono::system_clock::now())},
                              {"level", LevelNames[static_cast<int>(level)]},
                              {"text", what}};
  for (const auto& [key, value] : more.items()) line[key] = value;
  const auto text = Line(std::move(line));
  const std::lock_guard lock(State_->Mutex);
  std::fputs(text.c_str(), stderr);
}

void Journal::Audit(const Client& client, const std::string& camera, const std::string& wish,
                    std::string_view outcome, const std::string& text) {
  nlohmann::ordered_json line{{"time", TimeText(std::chrono::system_clock::now())},
                              {"audit", wish},
                              {"camera", camera},
                              {"outcome", outcome},
                              {"user", client.User},
                              {"from", client.From},
                              {"face", client.Face}};
  if (!text.empty()) line["text"] = text;
  const auto whole = Line(std::move(line));
  const std::lock_guard lock(State_->Mutex);
  auto* file = State_->Audit != nullptr ? State_->Audit : stderr;
  std::fputs(whole.c_str(), file);
  std::fflush(file);
}

}  // namespace ptzgate
