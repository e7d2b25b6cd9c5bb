#include "com/Values.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>

#include <ptzd/Error.h>

namespace ptzd::com {

std::wstring Utf16(std::string_view text) {
  if (text.empty()) return {};
  const auto size = static_cast<int>(text.size());
  std::wstring result(
      static_cast<std::size_t>(MultiByteToWideChar(CP_UTF8, 0, text.data(), size, nullptr, 0)), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.data(), size, result.data(), static_cast<int>(result.size()));
  return result;
}

std::string Utf8(std::wstring_view text) {
  if (text.empty()) return {};
  const auto size = static_cast<int>(text.size());
  const auto length = WideCharToMultiByte(CP_UTF8, 0, text.data(), size, nullptr, 0, nullptr, nullptr);
  std::string result(static_cast<std::size_t>(length), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text.data(), size, result.data(), length, nullptr, nullptr);
  return result;
}

std::string Utf8(const BSTR& text) { return Utf8(std::wstring_view(text ? text : L"", SysStringLen(text))); }

BSTR NewBstr(std::string_view text) {
  const auto wide = Utf16(text);
  const auto result = SysAllocStringLen(wide.data(), static_cast<UINT>(wide.size()));
  if (!result) throw std::bad_alloc();
  return result;
}

OwnedVariant::OwnedVariant(const VARIANT& other) : OwnedVariant() {
  const auto result = VariantCopyInd(&Value_, const_cast<VARIANT*>(&other));
  if (result == E_OUTOFMEMORY) throw std::bad_alloc();
  if (FAILED(result)) Raise(ErrorTypeMismatch);
}

HRESULT Convert(OwnedVariant& out, const VARIANT& value, VARTYPE type, LCID locale) {
  return VariantChangeTypeEx(out.Get(), const_cast<VARIANT*>(&value), locale, 0, type);
}

const VARIANT& Dereferenced(const VARIANT& value) {
  const auto* inner = &value;
  while (V_VT(inner) == (VT_BYREF | VT_VARIANT) && V_VARIANTREF(inner)) inner = V_VARIANTREF(inner);
  return *inner;
}

bool IsMissing(const VARIANT& value) {
  const auto& inner = Dereferenced(value);
  return V_VT(&inner) == VT_ERROR && V_ERROR(&inner) == DISP_E_PARAMNOTFOUND;
}

std::string KindOf(const VARIANT& value) {
  const auto type = V_VT(&Dereferenced(value));
  if (type & VT_ARRAY) return "an array of another kind";
  switch (type & VT_TYPEMASK) {
    case VT_EMPTY:
      return "Empty";
    case VT_NULL:
      return "Null";
    case VT_BSTR:
      return "a text";
    case VT_BOOL:
      return "a Boolean";
    case VT_DISPATCH:
    case VT_UNKNOWN:
      return "an object";
    case VT_DATE:
      return "a date";
    case VT_ERROR:
      return "an error value";
  }
  return "a number";
}

Variant FromVariant(const VARIANT& value) {
  const OwnedVariant owned(value);
  const auto& source = *owned;
  switch (V_VT(&source)) {
    case VT_EMPTY:
      return {};
    case VT_BOOL:
      return V_BOOL(&source) != VARIANT_FALSE;
    case VT_R4:
      return V_R4(&source);
    case VT_BSTR:
      return Utf8(V_BSTR(&source));
    case VT_ARRAY | VT_UI1:
      return ByteArray(source, "a value");
    case VT_I1:
    case VT_I2:
    case VT_I4:
    case VT_I8:
    case VT_INT:
    case VT_UI1:
    case VT_UI2:
    case VT_UI4:
    case VT_UI8:
    case VT_UINT:
    case VT_R8:
    case VT_CY:
    case VT_DATE:
    case VT_DECIMAL: {
      OwnedVariant number;
      if (FAILED(Convert(number, source, VT_R8))) Raise(ErrorTypeMismatch);
      const bool fractional = V_VT(&source) == VT_R8 || V_VT(&source) == VT_CY || V_VT(&source) == VT_DATE ||
                              V_VT(&source) == VT_DECIMAL;
      const double result = V_R8(number.Get());
      if (fractional || result < std::numeric_limits<std::int32_t>::min() ||
          result > std::numeric_limits<std::int32_t>::max())
        return result;
      return static_cast<std::int32_t>(result);
    }
  }
  throw Error(ErrorTypeMismatch,
              RunTimeErrorText(ErrorTypeMismatch) + ": " + KindOf(source) + " cannot be used as a value");
}

OwnedVariant ToVariant(const Variant& value) {
  OwnedVariant result;
  auto* out = result.Get();
  if (const auto* boolean = std::get_if<bool>(&value)) {
    V_VT(out) = VT_BOOL;
    V_BOOL(out) = *boolean ? VARIANT_TRUE : VARIANT_FALSE;
  } else if (const auto* integer = std::get_if<std::int32_t>(&value)) {
    V_VT(out) = VT_I4;
    V_I4(out) = *integer;
  } else if (const auto* single = std::get_if<float>(&value)) {
    V_VT(out) = VT_R4;
    V_R4(out) = *single;
  } else if (const auto* number = std::get_if<double>(&value)) {
    V_VT(out) = VT_R8;
    V_R8(out) = *number;
  } else if (const auto* text = std::get_if<std::string>(&value)) {
    V_BSTR(out) = NewBstr(*text);
    V_VT(out) = VT_BSTR;
  } else if (const auto* bytes = std::get_if<Bytes>(&value)) {
    V_ARRAY(out) = NewByteArray(*bytes);
    V_VT(out) = VT_ARRAY | VT_UI1;
  }
  return result;
}

namespace {

[[noreturn]] void RaiseNoByteArray(std::string_view purpose, const std::string& kind) {
  throw Error(ErrorTypeMismatch, RunTimeErrorText(ErrorTypeMismatch) + ": " + std::string(purpose) +
                                     " must be a byte array, not " + kind);
}

std::uint8_t ByteFrom(const VARIANT& element, std::string_view purpose) {
  OwnedVariant byte;
  const auto& source = Dereferenced(element);
  const auto result = V_VT(&source) == VT_EMPTY ? DISP_E_TYPEMISMATCH : Convert(byte, source, VT_UI1);
  if (result == DISP_E_OVERFLOW)
    throw Error(ErrorOverflow, RunTimeErrorText(ErrorOverflow) + ": an element of " + std::string(purpose) +
                                   " is not in the range from 0 to 255");
  if (FAILED(result)) RaiseNoByteArray(purpose, "an array that holds " + KindOf(source));
  return V_UI1(byte.Get());
}

}  // namespace

Bytes ByteArray(SAFEARRAY* array, std::string_view purpose) {
  if (!array || SafeArrayGetDim(array) == 0) return {};
  VARTYPE type = VT_EMPTY;
  if (FAILED(SafeArrayGetVartype(array, &type)) || SafeArrayGetDim(array) != 1)
    RaiseNoByteArray(purpose, "an array of another kind");
  LONG lower = 0, upper = -1;
  SafeArrayGetLBound(array, 1, &lower);
  SafeArrayGetUBound(array, 1, &upper);
  const auto count = static_cast<std::size_t>(std::int64_t{upper} - lower + 1);
  if ((type != VT_UI1 && type != VT_VARIANT)) RaiseNoByteArray(purpose, "an array of another kind");
  if (count == 0) return {};

  void* data = nullptr;
  if (FAILED(SafeArrayAccessData(array, &data))) Raise(ErrorTypeMismatch);
  struct Unlock {
    SAFEARRAY* Array;
    ~Unlock() { SafeArrayUnaccessData(Array); }
  } unlock{array};
  Bytes bytes(count);
  if (type == VT_UI1)
    std::memcpy(bytes.data(), data, count);
  else
    std::ranges::transform(static_cast<VARIANT*>(data), static_cast<VARIANT*>(data) + count, bytes.begin(),
                           [&](const VARIANT& element) { return ByteFrom(element, purpose); });
  return bytes;
}

Bytes ByteArray(const VARIANT& value, std::string_view purpose) {
  const auto& source = Dereferenced(value);
  if (!(V_VT(&source) & VT_ARRAY)) RaiseNoByteArray(purpose, KindOf(source));
  const bool byReference = V_VT(&source) & VT_BYREF;
  if (byReference && !V_ARRAYREF(&source)) return {};
  return ByteArray(byReference ? *V_ARRAYREF(&source) : V_ARRAY(&source), purpose);
}

SAFEARRAY* NewByteArray(const Bytes& bytes) {
  auto* array = SafeArrayCreateVector(VT_UI1, 0, static_cast<ULONG>(bytes.size()));
  if (!array) throw std::bad_alloc();
  if (!bytes.empty()) {
    void* data = nullptr;
    SafeArrayAccessData(array, &data);
    std::memcpy(data, bytes.data(), bytes.size());
    SafeArrayUnaccessData(array);
  }
  return array;
}

}  // namespace ptzd::com
