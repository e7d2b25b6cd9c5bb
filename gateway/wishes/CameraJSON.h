#pragma once

#include <nlohmann/json.hpp>

#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "gateway/core/Gate.h"

namespace ptzgate {

/// A camera as a client sees it.
nlohmann::json CameraJSON(Gate& gate, const GateCamera& camera, const Client& client);
nlohmann::json HolderJSON(const GateCamera& camera, const Client& client);
nlohmann::json PresetsJSON(const GateCamera& camera);
/// The last exchanges, and where it was in the last minute.
nlohmann::json SeenJSON(const GateCamera& camera);
nlohmann::json OutcomeJSON(const ptzd::WishOutcome& outcome);
/// "not-allowed" and so on, for programs.
std::string_view Word(Refusal::Why why);
/// Who somebody is, and what he may do.
nlohmann::json ClientJSON(const Gate& gate, const Client& client);

/// A camera as text, made once for all to whom it looks alike. For one moment.
class CameraTexts {
 public:
  CameraTexts(Gate& gate, const GateCamera& camera) : Gate_(gate), Camera_(camera) {}
  const std::string& For(const Client& client);

 private:
  Gate& Gate_;
  const GateCamera& Camera_;
  std::map<std::pair<Role, bool>, std::string> Texts_;  ///< by the role, and whether he holds it
};

/// A text whose bytes are no UTF-8, as a camera may send them, is told with marks in place of those.
std::string TextOf(const nlohmann::json& json);

}  // namespace ptzgate
