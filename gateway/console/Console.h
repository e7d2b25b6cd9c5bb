#pragma once

#include <memory>
#include <string>

#include "gateway/web/Call.h"

namespace ptzgate {

/// The page at `/` by which people steer the cameras, and what it consists of: files that are part of the
/// program. Anybody may read them; what they show of cameras they get by `/api/v1`, as everybody does.
class Console {
 public:
  static bool Has(const std::string& path);
  /// Answers at once. A browser that has the file already is told so.
  static void Handle(const std::shared_ptr<Call>& call);
};

}  // namespace ptzgate
