#pragma once

/// What the tests' hosts need of COM: references, texts, late-bound calls.

// clang-format off
#include <windows.h>
#include <objbase.h>
#include <oleauto.h>
#include <wrl/client.h>
// clang-format on

#include <string>
#include <utility>
#include <vector>

namespace host {

using Microsoft::WRL::ComPtr;

/// Null where the object has no such interface.
template <class Other, class Interface>
ComPtr<Other> As(const ComPtr<Interface>& object) {
  ComPtr<Other> other;
  object->QueryInterface(__uuidof(Other), &other);
  return other;
}

class Value : public VARIANT {
 public:
  Value() { VariantInit(this); }
  Value(const Value& other) : Value() { VariantCopy(this, const_cast<Value*>(&other)); }
  Value(Value&& other) noexcept : Value() { std::swap<VARIANT>(*this, other); }
  Value& operator=(Value other) noexcept {
    std::swap<VARIANT>(*this, other);
    return *this;
  }
  ~Value() { VariantClear(this); }

  static Value OfType(VARTYPE type) {
    Value value;
    value.vt = type;
    return value;
  }
  static Value Long(LONG number) {
    auto value = OfType(VT_I4);
    value.lVal = number;
    return value;
  }
  static Value Double(double number) {
    auto value = OfType(VT_R8);
    value.dblVal = number;
    return value;
  }
  static Value Boolean(bool truth) {
    auto value = OfType(VT_BOOL);
    value.boolVal = truth ? VARIANT_TRUE : VARIANT_FALSE;
    return value;
  }
  static Value Text(const wchar_t* text) {
    auto value = OfType(VT_BSTR);
    value.bstrVal = SysAllocString(text);
    return value;
  }
  static Value Missing() {
    auto value = OfType(VT_ERROR);
    value.scode = DISP_E_PARAMNOTFOUND;
    return value;
  }
  static Value Object(IDispatch* object) {
    auto value = OfType(VT_DISPATCH);
    value.pdispVal = object;
    if (object) object->AddRef();
    return value;
  }
  static Value Array(SAFEARRAY* array, VARTYPE element) {
    auto value = OfType(static_cast<VARTYPE>(VT_ARRAY | element));
    value.parray = array;
    return value;
  }
  static Value Bytes(const std::vector<BYTE>& bytes) {
    auto* array = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size()));
    for (LONG i = 0; i < static_cast<LONG>(bytes.size()); ++i)
      SafeArrayPutElement(array, &i, const_cast<BYTE*>(&bytes[static_cast<std::size_t>(i)]));
    return Array(array, VT_UI1);
  }
  /// As a script's variable, or a host's by-reference argument; the referred value must live on.
  static Value Reference(Value& target, VARTYPE type) {
    auto value = OfType(static_cast<VARTYPE>(VT_BYREF | type));
    value.byref = type == VT_VARIANT ? static_cast<void*>(&target) : static_cast<void*>(&target.parray);
    return value;
  }
};

/// The type library that registration made known.
inline ComPtr<ITypeLib> RegisteredLibrary() {
  static constexpr GUID identifier = {
      0x04B52BB1, 0x7DBA, 0x4A29, {0x98, 0xA5, 0x70, 0x71, 0xB2, 0x38, 0x3D, 0xD2}};
  ComPtr<ITypeLib> library;
  LoadRegTypeLib(identifier, 1, 36, LOCALE_NEUTRAL, &library);
  return library;
}

inline TYPEATTR AttributesOf(ITypeInfo* info) {
  TYPEATTR* attributes = nullptr;
  if (FAILED(info->GetTypeAttr(&attributes))) return {};
  const auto copy = *attributes;
  info->ReleaseTypeAttr(attributes);
  return copy;
}

inline std::wstring Text(BSTR& text) {
  std::wstring result(text ? text : L"", SysStringLen(text));
  SysFreeString(text);
  text = nullptr;
  return result;
}

/// The outcome of a late-bound call; scripts see `Number` as `Err.Number`.
struct Outcome {
  HRESULT Status = S_OK;
  Value Result;
  HRESULT Number = 0;
  std::wstring Source, Description;
  UINT WrongArgument = ~0U;
};

struct Named {
  const wchar_t* Name;
  Value Argument;
};

/// Calls a member by name, arguments in the order in which they are written, named ones last.
inline Outcome Call(IDispatch* object, const wchar_t* member, WORD kind, const std::vector<Value>& arguments,
                    const std::vector<Named>& named = {}) {
  std::vector<LPOLESTR> names = {const_cast<LPOLESTR>(member)};
  for (const auto& argument : named) names.push_back(const_cast<LPOLESTR>(argument.Name));
  std::vector<DISPID> ids(names.size());
  Outcome outcome;
  outcome.Status = object->GetIDsOfNames(IID_NULL, names.data(), static_cast<UINT>(names.size()),
                                         LOCALE_USER_DEFAULT, ids.data());
  if (FAILED(outcome.Status)) return outcome;
  std::vector<VARIANT> given;
  for (auto it = named.rbegin(); it != named.rend(); ++it) given.push_back(it->Argument);
  for (auto it = arguments.rbegin(); it != arguments.rend(); ++it) given.push_back(*it);
  std::vector<DISPID> namedIds(ids.rbegin(), ids.rend() - 1);
  if (kind == DISPATCH_PROPERTYPUT) namedIds = {DISPID_PROPERTYPUT};
  DISPPARAMS parameters{given.data(), namedIds.data(), static_cast<UINT>(given.size()),
                        static_cast<UINT>(namedIds.size())};
  EXCEPINFO exception{};
  outcome.Status = object->Invoke(ids[0], IID_NULL, LOCALE_USER_DEFAULT, kind, &parameters, &outcome.Result,
                                  &exception, &outcome.WrongArgument);
  outcome.Number = exception.scode;
  outcome.Source = Text(exception.bstrSource);
  outcome.Description = Text(exception.bstrDescription);
  return outcome;
}

inline Outcome Call(IDispatch* object, const wchar_t* member, const std::vector<Value>& arguments = {},
                    const std::vector<Named>& named = {}) {
  return Call(object, member, DISPATCH_METHOD | DISPATCH_PROPERTYGET, arguments, named);
}

/// The error object of the last early-bound call.
struct ErrorTold {
  ErrorTold() {
    ComPtr<IErrorInfo> error;
    if (GetErrorInfo(0, &error) != S_OK) return;
    BSTR text = nullptr;
    error->GetSource(&text);
    Source = Text(text);
    error->GetDescription(&text);
    Description = Text(text);
  }
  std::wstring Source, Description;
};

constexpr HRESULT Number(int number) { return static_cast<HRESULT>(0x800A0000) + number; }

}  // namespace host
