#pragma once

#include <optional>
#include <string_view>

#include "gateway/api/API.h"
#include "gateway/wishes/Body.h"

namespace ptzgate {

/// What can be asked of a path, for the router and for the description of the interface alike.
struct Route {
  std::string_view Method;
  std::string_view Path;  ///< below the base; "{camera}" stands for any one part
  std::string_view About;
  std::string_view Answers;  ///< the schema of what is answered
  std::optional<Body> Takes;
  API::Handler Handle;
};

}  // namespace ptzgate
