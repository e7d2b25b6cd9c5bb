#include <ptzd/PTZOption.h>

#include <utility>

#include <ptzd/Error.h>

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

}  // namespace ptzd
