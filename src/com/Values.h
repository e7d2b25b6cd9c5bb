#pragma once

/// Where COM's types meet the library's: texts, variants and byte arrays.

#include "com/Automation.h"

#include <string>
#include <string_view>
#include <utility>

#include <ptzd/Variant.h>

namespace ptzd::com {

std::wstring Utf16(std::string_view text);
/// A lone surrogate becomes U+FFFD.
std::string Utf8(std::wstring_view text);
/// A null BSTR is the empty text.
std::string Utf8(const BSTR& text);
/// A new BSTR that the caller frees; throws `std::bad_alloc`.
BSTR NewBstr(std::string_view text);

/// A VARIANT that clears itself.
class OwnedVariant {
 public:
  OwnedVariant() { VariantInit(&Value_); }
  /// A copy, without any reference it may hold.
  explicit OwnedVariant(const VARIANT& other);
  OwnedVariant(OwnedVariant&& other) noexcept : OwnedVariant() { std::swap(Value_, other.Value_); }
  OwnedVariant& operator=(OwnedVariant&& other) noexcept {
    std::swap(Value_, other.Value_);
    return *this;
  }
  ~OwnedVariant() { VariantClear(&Value_); }

  const VARIANT& operator*() const { return Value_; }
  VARIANT& operator*() { return Value_; }
  VARIANT* Get() { return &Value_; }
  VARTYPE Type() const { return V_VT(&Value_); }

  /// Hands the value over; this one is empty then.
  VARIANT Release() {
    VARIANT value = Value_;
    VariantInit(&Value_);
    return value;
  }

 private:
  VARIANT Value_;
};

/// `VariantChangeTypeEx`: the value as another type, texts read as the locale writes numbers.
HRESULT Convert(OwnedVariant& out, const VARIANT& value, VARTYPE type, LCID locale = LOCALE_USER_DEFAULT);

/// The variant that a variable's reference leads to, or the variant itself.
const VARIANT& Dereferenced(const VARIANT& value);

/// Whether a host left the argument out.
bool IsMissing(const VARIANT& value);

/// What a user would call the value's kind: "a text", "Null", "an object".
std::string KindOf(const VARIANT& value);

/// Empty, Booleans, numbers, dates (as numbers), texts and byte arrays. Raises 13 (type mismatch) for all
/// else, objects and Null among it.
Variant FromVariant(const VARIANT& value);
OwnedVariant ToVariant(const Variant& value);

/// The bytes of a one-dimensional array of bytes, or of variants that hold numbers from 0 to 255, as scripts
/// make it; by value, by reference or in a variable. An array that was never dimensioned has no bytes.
/// Raises 13 for anything else, with a description that names what the array is for; 6 for a number that is
/// no byte.
Bytes ByteArray(const VARIANT& value, std::string_view purpose);
Bytes ByteArray(SAFEARRAY* array, std::string_view purpose);
/// A new array that the caller destroys; throws `std::bad_alloc`.
SAFEARRAY* NewByteArray(const Bytes& bytes);

}  // namespace ptzd::com
