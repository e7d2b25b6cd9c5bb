#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "common/Variant.h"

namespace ptzd {

/// Named values: the connection options that a host hands to `Connect` as `Contents`. Names compare exactly.
///
/// Contents are the four bytes "PTZB", a format version (16 bits), the number of values (16 bits), and for
/// every value its name, a type byte and the value; lengths and numbers are little-endian, texts are UTF-8
/// with a 32-bit length in front, numbers have 32 or 64 bits. Nothing follows the last value.
class PropertyBag {
 public:
  static constexpr std::uint16_t FormatVersion = 1;

  /// Stores a value; one of the same name is replaced. Raises 13 for bytes, 5 for an empty name.
  void WriteProperty(const std::string& name, Variant value);
  /// The value as it was written, or the default where there is none of that name.
  Variant ReadProperty(std::string_view name, const Variant& defaultValue = {}) const;

  // The same, converted to a type: text, 32-bit and 16-bit integer, single and Boolean. They raise 13 (type
  // mismatch) for a value that cannot be converted and 6 (overflow) for one out of range, with a description
  // that names the option.
  std::string Text(std::string_view name, std::string defaultValue = {}) const;
  std::int32_t Long(std::string_view name, std::int32_t defaultValue) const;
  std::int16_t Integer(std::string_view name, std::int16_t defaultValue) const;
  float Single(std::string_view name, float defaultValue) const;
  bool Boolean(std::string_view name, bool defaultValue) const;

  Bytes Contents() const;
  /// Replaces all values. Raises 5 with a description of what is wrong, and changes nothing, for bytes that
  /// are no contents of a property bag or of another format version.
  void Contents(std::span<const std::uint8_t> bytes);

  const std::vector<std::pair<std::string, Variant>>& Values() const { return Values_; }

 private:
  const Variant* Find(std::string_view name) const;

  std::vector<std::pair<std::string, Variant>> Values_;  // few, so a search is a walk
};

}  // namespace ptzd
