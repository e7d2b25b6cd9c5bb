#include "com/Driver.h"

#include <algorithm>

namespace ptzd::com {

Driver::Driver(const std::string& className, REFIID ownIID, OwnInterface createOwn,
               std::unique_ptr<ptzd::PTZDevice> core)
    : Object(className), Core_(std::move(core)), OwnIID_(ownIID) {
  Adapt<ptzd::PTZDevice>(Device_, __uuidof(::_PTZDevice));
  Adapt<ptzd::PTZDevice2>(Device2_, __uuidof(::_PTZDevice2));
  Adapt<ptzd::PTZContinuousControl>(ContinuousControl_, __uuidof(::_PTZContinuousControl));
  Adapt<ptzd::PTZOptions>(Options_, __uuidof(::_PTZOptions));
  Adapt<ptzd::PTZNamedPresets>(NamedPresets_, __uuidof(::_PTZNamedPresets));
  Adapt<ptzd::PTZMoveInImage>(MoveInImage_, __uuidof(::_PTZMoveInImage));
  Own_ = createOwn(*this, *Core_, Control_);
}

template <class CoreInterface, class InterfaceAdaptor>
void Driver::Adapt(std::optional<InterfaceAdaptor>& adaptor, REFIID iid) {
  auto* implemented = dynamic_cast<CoreInterface*>(Core_.get());
  if (implemented) Control_.push_back({iid, &adaptor.emplace(*this, *implemented)});
}

IUnknown* Driver::Find(REFIID iid) {
  if (IsEqualIID(iid, OwnIID_) || IsEqualIID(iid, IID_IDispatch)) return Own_.get();
  const auto found =
      std::ranges::find_if(Control_, [&](const auto& part) { return IsEqualIID(part.Interface, iid); });
  return found == Control_.end() ? nullptr : found->Target;
}

}  // namespace ptzd::com
