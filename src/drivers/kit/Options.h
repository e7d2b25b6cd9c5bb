#pragma once

#include <ptzd/DriverData.h>
#include <ptzd/PTZOptions.h>
#include <ptzd/PropertyBag.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

namespace ptzd {

/// An option that is read as a `Value`: text, a whole number of 32 or 16 bits, a single or a Boolean. What is
/// read and what is described is the same object.
template <typename Value>
struct TypedOption : DriverOption {
  /// The value, or the default where there is none. Raises 13 or 6 as `PropertyBag` does.
  Value In(const PropertyBag& options) const;
};

template <>
inline std::string TypedOption<std::string>::In(const PropertyBag& options) const {
  const auto* text = std::get_if<std::string_view>(&Default);
  return options.Text(Name, text == nullptr ? std::string() : std::string(*text));
}
template <>
inline std::int32_t TypedOption<std::int32_t>::In(const PropertyBag& options) const {
  return options.Long(Name, std::get<std::int32_t>(Default));
}
template <>
inline std::int16_t TypedOption<std::int16_t>::In(const PropertyBag& options) const {
  return options.Integer(Name, static_cast<std::int16_t>(std::get<std::int32_t>(Default)));
}
template <>
inline float TypedOption<float>::In(const PropertyBag& options) const {
  return options.Single(Name, static_cast<float>(std::get<std::int32_t>(Default)));
}
template <>
inline bool TypedOption<bool>::In(const PropertyBag& options) const {
  return options.Boolean(Name, std::get<bool>(Default));
}

// What several makes read, and hosts know without a descriptor.

inline constexpr TypedOption<std::string> AddressOption{
    {.Name = "Address",
     .Description = "Host name or IP address, with :port if not the usual one",
     .Default = std::string_view(),
     .Described = false}};
/// 32 bits in most makes, 16 in some.
template <typename Number>
inline constexpr TypedOption<Number> PortOption{
    {.Name = "Port",
     .Description = "Camera behind one address; 0: the only or first one",
     .OType = OptionInteger,
     .Default = 0,
     .Described = false}};
inline constexpr TypedOption<std::int32_t> LineAddressOption{
    {.Name = "Port",
     .Description = "Address of the camera on the serial line",
     .OType = OptionInteger,
     .Default = 1,
     .Described = false}};
/// The default is the model's.
inline constexpr TypedOption<std::string> CameraOption{
    {.Name = "Camera",
     .Description = "Camera behind one address, from 0 on newer models and from 1 on older ones",
     .Described = false}};
inline constexpr TypedOption<bool> ResetOption{{.Name = "Reset",
                                                .Description = "Go to the reference position on connecting",
                                                .OType = OptionBoolean,
                                                .Default = false,
                                                .Described = false}};

/// `PTZOptions` over a driver's data.
class DescribedOptions : public PTZOptions {
 public:
  std::optional<PTZOption> Item(const Variant& indexKey) override;
  std::int32_t Count() override;
  std::vector<PTZOption> NewEnum() override;

 protected:
  explicit DescribedOptions(const DriverData& data) : Described_(data.Options) {}

 private:
  std::span<const DriverOption* const> Described_;
};

}  // namespace ptzd
