#pragma once

#include <ptzd/Export.h>
#include <ptzd/PTZOption.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace ptzd {

/// The descriptors of a driver's options.
class PTZD_API PTZOptions {
 public:
  virtual ~PTZOptions() = default;

  /// The descriptor at a position (a number, from 0) or with a name (a text, compared exactly), made anew at
  /// every call. An unknown position or name gives a descriptor without a name; never an error.
  virtual std::optional<PTZOption> Item(const Variant& indexKey);
  virtual std::int32_t Count();
  /// All descriptors in order, made anew.
  virtual std::vector<PTZOption> NewEnum();
};

}  // namespace ptzd
