#pragma once

#include <nlohmann/json.hpp>

#include "gateway/core/GateCamera.h"
#include "gateway/wishes/Body.h"

namespace ptzgate {

/// How a camera is reached, and all that its driver reads of its options, as a page shows them. No password.
nlohmann::json ConnectionJSON(const GateCamera& camera);

extern const Body ConnectionBody;
/// The camera as it is with the changes of such a body. Raises `Refusal`, which names what cannot be.
ptzd::NamedCamera Reconnected(const GateCamera& camera, const nlohmann::json& body);

}  // namespace ptzgate
