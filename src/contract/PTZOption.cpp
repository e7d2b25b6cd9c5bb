#include <ptzd/Error.h>
#include <ptzd/PTZOption.h>

#include <utility>

namespace ptzd {

void PTZOption::Init(std::string name, std::string description, std::int32_t oType,
                     std::vector<Variant> values, Variant defaultValue) {
  if (!Name_.empty()) Raise(ErrorInvalidCall);
  Name_ = std::move(name);
  Description_ = std::move(description);
  OType_ = oType;
  Values_ = std::move(values);
  Default_ = std::move(defaultValue);
}

PTZOption DriverOption::Descriptor() const {
  std::vector<Variant> values;
  if (Least != 0 || Greatest != 0) values = {Least, Greatest};
  for (const auto choice : Choices) values.emplace_back(std::string(choice));
  const auto defaultValue = std::visit(
      []<typename Value>(const Value& value) -> Variant {
        if constexpr (std::is_same_v<Value, std::string_view>)
          return std::string(value);
        else
          return value;
      },
      Default);
  PTZOption option;
  option.Init(std::string(Name), std::string(Description), OType, std::move(values), defaultValue);
  return option;
}

}  // namespace ptzd
