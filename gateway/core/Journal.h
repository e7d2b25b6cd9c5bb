#pragma once

#include <nlohmann/json_fwd.hpp>

#include <chrono>
#include <memory>
#include <string>
#include <string_view>

#include "gateway/core/Client.h"

namespace ptzgate {

/// "2026-02-03T04:05:06.789Z"
std::string TimeText(std::chrono::system_clock::time_point time);

/// What the gateway tells of itself: a line of JSON each, with its time. May be used on any thread.
class Journal {
 public:
  enum class Level { Debug, Info, Warning, Error };

  /// To the standard error output, where a supervisor reads it; audit lines go there too until `AuditTo`.
  explicit Journal(Level least = Level::Info);
  ~Journal();

  /// Puts audit lines at the end of a file, which is made where there is none and opened anew at each call.
  /// Empty: among the others. Raises `std::runtime_error` where it cannot be written, and goes on as before.
  void AuditTo(const std::string& file);

  /// `more` is an object, whose members stand beside the text. No password may be in any of it.
  void Write(Level level, std::string_view what, const nlohmann::json& more);
  void Write(Level level, std::string_view what);
  void Info(std::string_view what) { Write(Level::Info, what); }
  void Warn(std::string_view what) { Write(Level::Warning, what); }

  /// Who wished what of which camera, and what came of it. `outcome` is "arrived", "not allowed" and so on;
  /// `text` says why, and may be empty.
  void Audit(const Client& client, const std::string& camera, const std::string& wish,
             std::string_view outcome, const std::string& text);

 private:
  struct State;
  std::unique_ptr<State> State_;
};

}  // namespace ptzgate
