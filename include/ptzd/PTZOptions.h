#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <ptzd/PTZOption.h>

namespace ptzd {

/// The descriptors of a driver's options.
class PTZOptions {
 public:
  virtual ~PTZOptions() = default;

  /// The descriptor at a position (a number, from 0) or with a name (a text, compared exactly), made anew at
  /// every call. An unknown position or name gives a descriptor without a name; never an error.
  virtual std::optional<PTZOption> Item(const Variant& indexKey);
  virtual std::int32_t Count();
  /// All descriptors in order, made anew.
  virtual std::vector<PTZOption> NewEnum();
};

/// One descriptor, as a driver's table holds it.
struct OptionRow {
  std::string Name;
  std::string Description;
  OptionTypes OType;
  std::vector<Variant> Values;
  Variant Default;
};

/// `PTZOptions` over a driver's table.
class TabledOptions : public PTZOptions {
 public:
  std::optional<PTZOption> Item(const Variant& indexKey) override;
  std::int32_t Count() override { return static_cast<std::int32_t>(OptionTable().size()); }
  std::vector<PTZOption> NewEnum() override;

 protected:
  virtual std::span<const OptionRow> OptionTable() const = 0;
};

}  // namespace ptzd
