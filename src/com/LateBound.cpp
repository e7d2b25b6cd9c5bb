#include "com/LateBound.h"

#include "com/Errors.h"

namespace ptzd::com {

OwnedVariant CallByName(IDispatch* object, const wchar_t* member, WORD kind, std::span<VARIANT> arguments) {
  auto* name = const_cast<LPOLESTR>(member);
  DISPID id = DISPID_UNKNOWN;
  const auto found = object->GetIDsOfNames(IID_NULL, &name, 1, LOCALE_USER_DEFAULT, &id);
  if (FAILED(found))
    throw ComError(found, "The host's object lacks the member " + Utf8(std::wstring_view(member)));

  const bool isPut = kind == DISPATCH_PROPERTYPUT;
  DISPID put = DISPID_PROPERTYPUT;
  DISPPARAMS parameters{arguments.data(), isPut ? &put : nullptr, static_cast<UINT>(arguments.size()),
                        isPut ? 1U : 0U};
  OwnedVariant result;
  EXCEPINFO exception{};
  const auto called = object->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, kind, &parameters,
                                     isPut ? nullptr : result.Get(), &exception, nullptr);
  if (FAILED(called)) ThrowException(called, exception);
  return result;
}

}  // namespace ptzd::com
