#pragma once

#include <cstdint>
#include <string_view>

#include <ptzd/Export.h>

namespace ptzd {

/// What the driver of Sanyo cameras (`QVPTZ.Sanyo`) has beside the interfaces of all drivers.
class PTZD_API SanyoControl {
 public:
  virtual ~SanyoControl() = default;

  /// Sends an operation command of the camera with its parameters, "name=value" joined with "&". Answers
  /// whether anything answered. Blocks as a move does; raises nothing.
  virtual bool SendOpeCmd(std::int32_t command, std::string_view parameters = {}) = 0;
};

}  // namespace ptzd
