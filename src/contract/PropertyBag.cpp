#include <ptzd/PropertyBag.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <limits>

#include <ptzd/Error.h>
#include "common/Numbers.h"

namespace ptzd {

namespace {

std::atomic<ForeignContentsOpener> OpenForeign{nullptr};

constexpr std::uint8_t Magic[] = {'P', 'T', 'Z', 'B'};

enum class ValueType : std::uint8_t { Empty = 0, Boolean = 1, Integer = 2, Single = 3, Double = 4, Text = 5 };

[[noreturn]] void RaiseUnreadable(const std::string& reason) {
  throw Error(ErrorInvalidCall, "The connection options cannot be read: " + reason);
}

class Writer {
 public:
  template <typename Unsigned>
  void Number(Unsigned value) {
    for (std::size_t i = 0; i < sizeof value; ++i)
      Output.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
  }
  void Type(ValueType type) { Number(static_cast<std::uint8_t>(type)); }
  void Text(std::string_view text) {
    if (text.size() > std::numeric_limits<std::uint32_t>::max()) Raise(ErrorOverflow);
    Number(static_cast<std::uint32_t>(text.size()));
    Output.insert(Output.end(), text.begin(), text.end());
  }

  void operator()(std::monostate) { Type(ValueType::Empty); }
  void operator()(bool value) { Type(ValueType::Boolean), Number(static_cast<std::uint8_t>(value)); }
  void operator()(std::int32_t value) { Type(ValueType::Integer), Number(static_cast<std::uint32_t>(value)); }
  void operator()(float value) { Type(ValueType::Single), Number(std::bit_cast<std::uint32_t>(value)); }
  void operator()(double value) { Type(ValueType::Double), Number(std::bit_cast<std::uint64_t>(value)); }
  void operator()(const std::string& value) { Type(ValueType::Text), Text(value); }
  void operator()(const Bytes&) { Raise(ErrorTypeMismatch); }

  Bytes Output;
};

class Reader {
 public:
  explicit Reader(std::span<const std::uint8_t> input) : Rest_(input) {}

  bool AtEnd() const { return Rest_.empty(); }

  std::span<const std::uint8_t> Take(std::size_t count) {
    if (count > Rest_.size()) RaiseUnreadable("they end too early");
    const auto taken = Rest_.first(count);
    Rest_ = Rest_.subspan(count);
    return taken;
  }
  template <typename Unsigned>
  Unsigned Number() {
    Unsigned value = 0;
    const auto bytes = Take(sizeof value);
    for (std::size_t i = 0; i < bytes.size(); ++i)
      value |= static_cast<Unsigned>(Unsigned{bytes[i]} << (8 * i));
    return value;
  }
  std::string Text() {
    const auto bytes = Take(Number<std::uint32_t>());
    return {bytes.begin(), bytes.end()};
  }
  Variant Value() {
    const auto type = Number<std::uint8_t>();
    switch (static_cast<ValueType>(type)) {
      case ValueType::Empty:
        return {};
      case ValueType::Boolean:
        return Number<std::uint8_t>() != 0;
      case ValueType::Integer:
        return static_cast<std::int32_t>(Number<std::uint32_t>());
      case ValueType::Single:
        return std::bit_cast<float>(Number<std::uint32_t>());
      case ValueType::Double:
        return std::bit_cast<double>(Number<std::uint64_t>());
      case ValueType::Text:
        return Text();
    }
    RaiseUnreadable("a value has the unknown type " + std::to_string(type));
  }

 private:
  std::span<const std::uint8_t> Rest_;
};

/// Conversions say which option has the wrong value; its number stays.
template <typename Convert>
auto Converted(std::string_view name, const Convert& convert) {
  try {
    return convert();
  } catch (const Error& error) {
    throw Error(error.Number(), error.Description() + ": option " + std::string(name));
  }
}

}  // namespace

void SetForeignContentsOpener(ForeignContentsOpener opener) { OpenForeign = opener; }

std::optional<Variant> PropertyBag::Find(std::string_view name) const {
  const auto found =
      std::ranges::find(Values_, name, [](const auto& entry) { return std::string_view(entry.first); });
  if (found != Values_.end()) return found->second;
  return Foreign_ ? Foreign_->Read(name) : std::nullopt;
}

void PropertyBag::WriteProperty(const std::string& name, Variant value) {
  if (name.empty()) Raise(ErrorInvalidCall);
  if (std::holds_alternative<Bytes>(value)) Raise(ErrorTypeMismatch);
  const auto present = std::ranges::find(Values_, name, &std::pair<std::string, Variant>::first);
  if (present != Values_.end())
    present->second = std::move(value);
  else
    Values_.emplace_back(name, std::move(value));
}

Variant PropertyBag::ReadProperty(std::string_view name, const Variant& defaultValue) const {
  const auto value = Find(name);
  return value ? *value : defaultValue;
}

std::string PropertyBag::Text(std::string_view name, std::string defaultValue) const {
  const auto value = Find(name);
  return value ? Converted(name, [&] { return ToText(*value); }) : std::move(defaultValue);
}

std::int32_t PropertyBag::Long(std::string_view name, std::int32_t defaultValue) const {
  const auto value = Find(name);
  return value ? Converted(name, [&] { return ToInt32(*value); }) : defaultValue;
}

std::int16_t PropertyBag::Integer(std::string_view name, std::int16_t defaultValue) const {
  const auto value = Find(name);
  return value ? Converted(name, [&] { return ToInt16(*value); }) : defaultValue;
}

float PropertyBag::Single(std::string_view name, float defaultValue) const {
  const auto value = Find(name);
  return value ? Converted(name, [&] { return ToSingle(ToDouble(*value)); }) : defaultValue;
}

bool PropertyBag::Boolean(std::string_view name, bool defaultValue) const {
  const auto value = Find(name);
  return value ? Converted(name, [&] { return ToBoolean(*value); }) : defaultValue;
}

Bytes PropertyBag::Contents() const {
  if (Foreign_)
    throw Error(ErrorInvalidCall, "The values cannot be listed: they came from another kind of property bag");
  if (Values_.size() > std::numeric_limits<std::uint16_t>::max()) Raise(ErrorOverflow);
  Writer writer;
  for (const auto byte : Magic) writer.Number(byte);
  writer.Number(FormatVersion);
  writer.Number(static_cast<std::uint16_t>(Values_.size()));
  for (const auto& [name, value] : Values_) {
    writer.Text(name);
    std::visit(writer, value);
  }
  return std::move(writer.Output);
}

void PropertyBag::Contents(std::span<const std::uint8_t> bytes) {
  if (bytes.size() < sizeof Magic || !std::ranges::equal(bytes.first(sizeof Magic), Magic)) {
    const auto open = OpenForeign.load();
    std::shared_ptr<const ForeignContents> foreign = open ? open(bytes) : nullptr;
    if (!foreign) RaiseUnreadable("they do not begin as the contents of a property bag do");
    Foreign_ = std::move(foreign);
    Values_.clear();
    return;
  }
  Reader reader(bytes.subspan(sizeof Magic));
  const auto version = reader.Number<std::uint16_t>();
  if (version != FormatVersion)
    RaiseUnreadable("they have format version " + std::to_string(version) + ", this library reads version " +
                    std::to_string(FormatVersion));
  std::vector<std::pair<std::string, Variant>> values;
  for (auto left = reader.Number<std::uint16_t>(); left > 0; --left) {
    auto name = reader.Text();
    auto value = reader.Value();
    values.emplace_back(std::move(name), std::move(value));
  }
  if (!reader.AtEnd()) RaiseUnreadable("bytes follow the last value");
  Values_ = std::move(values);
  Foreign_ = nullptr;
}

}  // namespace ptzd
