#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <ptzd/Export.h>
#include <ptzd/Variant.h>

namespace ptzd {

/// Contents that another kind of property bag wrote. Only that kind can read them, a value at a time.
class PTZD_API ForeignContents {
 public:
  virtual ~ForeignContents() = default;
  /// The value of a name, nothing where there is none. Raises 13 for a value of a kind that no option has.
  virtual std::optional<Variant> Read(std::string_view name) const = 0;
};

/// Opens such contents: null where the system has no such kind of bag. What it raises passes on to whoever
/// assigned the contents.
using ForeignContentsOpener = std::unique_ptr<const ForeignContents> (*)(std::span<const std::uint8_t> bytes);

/// Sets what is asked about contents that do not begin as ours do; nothing is until then. Safe to call from
/// any thread.
PTZD_API void SetForeignContentsOpener(ForeignContentsOpener opener);

/// Named values: the connection options that a host hands to `Connect` as `Contents`. Names compare exactly.
///
/// Contents are the four bytes "PTZB", a format version (16 bits), the number of values (16 bits), and for
/// every value its name, a type byte and the value; lengths and numbers are little-endian, texts are UTF-8
/// with a 32-bit length in front, numbers have 32 or 64 bits. Nothing follows the last value.
class PTZD_API PropertyBag {
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

  /// Raises 5 where the values came in foreign contents, which cannot be listed.
  Bytes Contents() const;
  /// Replaces all values. Raises 5 with a description of what is wrong, and changes nothing, for bytes that
  /// are no contents of a property bag, neither ours nor foreign ones, or of another format version.
  void Contents(std::span<const std::uint8_t> bytes);

  /// What was written or came in contents of ours.
  const std::vector<std::pair<std::string, Variant>>& Values() const { return Values_; }

 private:
  std::optional<Variant> Find(std::string_view name) const;

  std::vector<std::pair<std::string, Variant>> Values_;  // few, so a search is a walk
  std::shared_ptr<const ForeignContents> Foreign_;       // asked for what is not among them
};

}  // namespace ptzd
