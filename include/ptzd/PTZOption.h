#pragma once

#include <ptzd/Export.h>
#include <ptzd/Variant.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace ptzd {

/// Kinds of option values, as COM variant type codes.
enum OptionTypes : std::int32_t {
  OptionInteger = 2,         ///< `Values`: lowest and highest
  OptionText = 8,            ///< `Values`: none
  OptionBoolean = 11,        ///< `Values`: none
  OptionChoiceIndex = 8194,  ///< stored as the index of one of `Values`
  OptionChoiceText = 8200,   ///< stored as one of `Values`
};

/// Describes one option that a driver understands beyond the common ones, for a host's settings page.
class PTZD_API PTZOption {
 public:
  /// Fills the descriptor, once: raises 5 (invalid procedure call) and changes nothing when it has a name
  /// already.
  void Init(std::string name, std::string description, std::int32_t oType, std::vector<Variant> values,
            Variant defaultValue);

  /// The key under which the options hold the value; empty for a descriptor of no option.
  const std::string& Name() const { return Name_; }
  /// The label that a host shows.
  const std::string& Description() const { return Description_; }
  /// One of `OptionTypes`.
  std::int32_t OType() const { return OType_; }
  const std::vector<Variant>& Values() const { return Values_; }
  /// What the driver takes where the options do not hold the key.
  const Variant& Default() const { return Default_; }

 private:
  std::string Name_;
  std::string Description_;
  std::int32_t OType_ = 0;
  std::vector<Variant> Values_;
  Variant Default_;
};

/// An option as a driver's data has it: what a settings page shows, and what the driver takes where the
/// options do not hold the name.
struct PTZD_API DriverOption {
  std::string_view Name;
  std::string_view Description;
  OptionTypes OType = OptionText;
  /// What the driver takes where there is none; empty where that depends on the camera.
  std::variant<std::monostate, bool, std::int32_t, std::string_view> Default;
  /// Of whole numbers; what a settings page offers, drivers may take more. No range where both are 0.
  std::int32_t Least = 0, Greatest = 0;
  std::span<const std::string_view> Choices;  ///< of a choice
  /// Whether `PTZOptions` describes it; hosts know the others as common options.
  bool Described = true;

  PTZOption Descriptor() const;
};

}  // namespace ptzd
