#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>

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

/// A text whose bytes are no UTF-8, as a camera may send them, is told with marks in place of those.
std::string TextOf(const nlohmann::json& json);

}  // namespace ptzgate
