#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <string_view>

#include "gateway/wishes/Body.h"

namespace ptzgate {

/// What a message on a command's topic says: a JSON object, or the plain text of the only member that there
/// must be, or nothing at all (or "PRESS", as buttons send) where nothing must be. Nothing of it is checked
/// yet, but that it is one of these. Raises `Refusal`.
nlohmann::json ReadPayload(const Body& body, const std::string& payload);

/// Takes "id" out of a body: null where there is none. Raises `Refusal` where it is neither a text nor a
/// number.
nlohmann::json TakeID(nlohmann::json& body);

}  // namespace ptzgate
