#pragma once

#include <nlohmann/json.hpp>

#include <span>
#include <string>
#include <string_view>

#include "gateway/api/Route.h"
#include "gateway/wishes/Body.h"

namespace ptzgate {

/// The interface as OpenAPI 3.1 has it.
nlohmann::json OpenAPI(std::span<const Route> routes, const Body& login, const std::string& base);

/// What a wish does, for people.
std::string_view AboutWish(std::string_view word);

}  // namespace ptzgate
