#include "com/Records.h"

#include <algorithm>
#include <limits>
#include <memory>

#include <ptzd/PTZDrivers.h>
#include <ptzd/PropertyBag.h>
#include "com/Collection.h"
#include "com/Object.h"

namespace ptzd::com {

namespace {

/// An array of variants that frees itself.
class VariantArray {
 public:
  VariantArray() = default;
  explicit VariantArray(SAFEARRAY* array) : Array_(array) {}
  VariantArray(VariantArray&& other) noexcept : Array_(std::exchange(other.Array_, nullptr)) {}
  VariantArray& operator=(VariantArray&& other) noexcept {
    std::swap(Array_, other.Array_);
    return *this;
  }
  ~VariantArray() { SafeArrayDestroy(Array_); }

  static VariantArray OfLength(std::size_t length, LONG lower = 0) {
    auto* array = SafeArrayCreateVector(VT_VARIANT, lower, static_cast<ULONG>(length));
    if (!array) throw std::bad_alloc();
    return VariantArray(array);
  }
  void Put(LONG index, OwnedVariant value) {
    Check(SafeArrayPutElement(Array_, &index, value.Get()), "An array cannot be filled");
  }
  /// A new array that the caller destroys; an empty one for an array that was never made.
  SAFEARRAY* Copy() const {
    if (!Array_) return OfLength(0).Detach();
    SAFEARRAY* copy = nullptr;
    Check(SafeArrayCopy(Array_, &copy), "An array cannot be copied");
    return copy;
  }
  SAFEARRAY* Detach() { return std::exchange(Array_, nullptr); }

 private:
  SAFEARRAY* Array_ = nullptr;
};

/// An array of any kind with one dimension as an array of variants; raises 13 for anything else.
VariantArray ToVariantArray(const VARIANT& values) {
  const auto& source = Dereferenced(values);
  auto* array = !(V_VT(&source) & VT_ARRAY) ? nullptr
                : V_VT(&source) & VT_BYREF  ? *V_ARRAYREF(&source)
                                            : V_ARRAY(&source);
  VARTYPE type = VT_EMPTY;
  if (!array || SafeArrayGetDim(array) != 1 || FAILED(SafeArrayGetVartype(array, &type)))
    throw Error(ErrorTypeMismatch, RunTimeErrorText(ErrorTypeMismatch) +
                                       ": The argument Values must be an array with one dimension, not " +
                                       KindOf(source));
  LONG lower = 0, upper = -1;
  SafeArrayGetLBound(array, 1, &lower);
  SafeArrayGetUBound(array, 1, &upper);
  auto result = VariantArray::OfLength(static_cast<std::size_t>(std::int64_t{upper} - lower + 1), lower);
  for (LONG i = lower; i <= upper; ++i) {
    OwnedVariant element;
    void* target = type == VT_VARIANT ? static_cast<void*>(element.Get()) : &V_BYREF(element.Get());
    if (type == VT_DECIMAL) target = &V_DECIMAL(element.Get());
    Check(SafeArrayGetElement(array, &i, target), "An array cannot be read");
    if (type != VT_VARIANT) V_VT(element.Get()) = type;
    result.Put(i, std::move(element));
  }
  return result;
}

/// Whole numbers of a descriptor are 16-bit integers, as its type code says, where they fit.
OwnedVariant DescriptorValue(const Variant& value) {
  auto result = ToVariant(value);
  const auto* integer = std::get_if<std::int32_t>(&value);
  if (integer && *integer >= std::numeric_limits<std::int16_t>::min() &&
      *integer <= std::numeric_limits<std::int16_t>::max()) {
    V_VT(result.Get()) = VT_I2;
    V_I2(result.Get()) = static_cast<std::int16_t>(*integer);
  }
  return result;
}

/// A descriptor keeps a host's values as they are, whatever their types.
class Option final : public SingleObject<::_PTZOption> {
 public:
  Option() : SingleObject("PTZOption") {}
  explicit Option(const ptzd::PTZOption& option) : Option() {
    Name_ = option.Name();
    Description_ = option.Description();
    OType_ = option.OType();
    Values_ = VariantArray::OfLength(option.Values().size());
    LONG index = 0;
    for (const auto& value : option.Values()) Values_.Put(index++, DescriptorValue(value));
    Default_ = DescriptorValue(option.Default());
  }

  HRESULT STDMETHODCALLTYPE Init(BSTR Name, BSTR Description, LONG OType, VARIANT Values,
                                 VARIANT Default) override {
    return Do([&] {
      if (!Name_.empty()) Raise(ErrorInvalidCall);
      auto values = ToVariantArray(Values);
      OwnedVariant defaultValue(Default);
      auto name = Utf8(Name);
      Description_ = Utf8(Description);
      Name_ = std::move(name);
      OType_ = OType;
      Values_ = std::move(values);
      Default_ = std::move(defaultValue);
    });
  }
  HRESULT STDMETHODCALLTYPE get_Name(BSTR* Result) override {
    return Answer(Result, [&] { return Name_; });
  }
  HRESULT STDMETHODCALLTYPE get_Description(BSTR* Result) override {
    return Answer(Result, [&] { return Description_; });
  }
  HRESULT STDMETHODCALLTYPE get_OType(LONG* Result) override {
    return Answer(Result, [&] { return OType_; });
  }
  HRESULT STDMETHODCALLTYPE get_Values(SAFEARRAY** Result) override {
    return Answer(Result, [&] { return Values_.Copy(); });
  }
  HRESULT STDMETHODCALLTYPE get_Default(VARIANT* Result) override {
    return Answer(Result, [&] { return OwnedVariant(*Default_); });
  }

 private:
  std::string Name_;
  std::string Description_;
  std::int32_t OType_ = 0;
  VariantArray Values_;
  OwnedVariant Default_;
};

class NamedPreset final : public SingleObject<::_PTZNamedPreset> {
 public:
  explicit NamedPreset(ptzd::PTZNamedPreset preset)
      : SingleObject("PTZNamedPreset"), Preset_(std::move(preset)) {}

  HRESULT STDMETHODCALLTYPE get_Index(LONG* Result) override {
    return Answer(Result, [&] { return Preset_.Index(); });
  }
  HRESULT STDMETHODCALLTYPE get_ID(BSTR* Result) override {
    return Answer(Result, [&] { return Preset_.ID(); });
  }
  HRESULT STDMETHODCALLTYPE get_Name(BSTR* Result) override {
    return Answer(Result, [&] { return Preset_.Name(); });
  }

 private:
  ptzd::PTZNamedPreset Preset_;
};

class CatalogueEntry final : public SingleObject<::_PTZDriver> {
 public:
  explicit CatalogueEntry(std::shared_ptr<ptzd::PTZDriver> driver)
      : SingleObject("PTZDriver"), Driver_(std::move(driver)) {}

  HRESULT STDMETHODCALLTYPE get_Key(BSTR* Result) override {
    return Answer(Result, [&] { return Driver_->Key(); });
  }
  HRESULT STDMETHODCALLTYPE put_Key(BSTR Value) override {
    return Do([&] { Driver_->Key(Utf8(Value)); });
  }
  HRESULT STDMETHODCALLTYPE get_Class(BSTR* Result) override {
    return Answer(Result, [&] { return Driver_->Class(); });
  }
  HRESULT STDMETHODCALLTYPE get_Name(BSTR* Result) override {
    return Answer(Result, [&] { return Driver_->Name(); });
  }

 private:
  std::shared_ptr<ptzd::PTZDriver> Driver_;
};

class Catalogue final : public SingleObject<::_PTZDrivers> {
 public:
  Catalogue() : SingleObject("PTZDrivers") {
    auto items = std::make_shared<std::vector<CollectionItem>>();
    for (const auto& driver : Drivers_.NewEnum())
      items->push_back({static_cast<::_PTZDriver*>(new CatalogueEntry(driver))});
    Items_ = std::move(items);
  }

  HRESULT STDMETHODCALLTYPE get_Item(VARIANT* vntIndexKey, ::_PTZDriver** Result) override {
    if (!vntIndexKey) return E_POINTER;
    return Answer(Result, [&] {
      const auto driver = Drivers_.Item(FromVariant(*vntIndexKey));
      const auto position = std::ranges::find(Drivers_.NewEnum(), driver) - Drivers_.NewEnum().begin();
      return ComPtr<::_PTZDriver>(
          static_cast<::_PTZDriver*>((*Items_)[static_cast<std::size_t>(position)].Value.Get()));
    });
  }
  HRESULT STDMETHODCALLTYPE get_Count(LONG* Result) override {
    return Answer(Result, [&] { return Drivers_.Count(); });
  }
  HRESULT STDMETHODCALLTYPE get_NewEnum(IUnknown** Result) override {
    return Answer(Result, [&] { return NewEnumerator(Items_); });
  }

 private:
  ptzd::PTZDrivers Drivers_;
  CollectionItems Items_;  // an object for every entry, the same one every time
};

class Bag final : public SingleObject<::_PropertyBag> {
 public:
  Bag() : SingleObject("PropertyBag") {}

  HRESULT STDMETHODCALLTYPE ReadProperty(BSTR Name, VARIANT Default, VARIANT* Result) override {
    return Answer(Result, [&] {
      // No bag holds bytes, so they tell an absent value from all others.
      const auto value = Bag_.ReadProperty(Utf8(Name), Bytes());
      if (!std::holds_alternative<Bytes>(value)) return ToVariant(value);
      return IsMissing(Default) ? OwnedVariant() : OwnedVariant(Default);
    });
  }
  HRESULT STDMETHODCALLTYPE WriteProperty(BSTR Name, VARIANT Value) override {
    return Do([&] { Bag_.WriteProperty(Utf8(Name), FromVariant(Value)); });
  }
  HRESULT STDMETHODCALLTYPE get_Contents(VARIANT* Result) override {
    return Answer(Result, [&] { return ToVariant(Bag_.Contents()); });
  }
  HRESULT STDMETHODCALLTYPE put_Contents(VARIANT Value) override {
    return Do([&] { Bag_.Contents(ByteArray(Value, "Contents")); });
  }

 private:
  ptzd::PropertyBag Bag_;
};

}  // namespace

ComPtr<::_PTZOption> NewOption(const ptzd::PTZOption& option) {
  return static_cast<::_PTZOption*>(new Option(option));
}
ComPtr<::_PTZNamedPreset> NewNamedPreset(const ptzd::PTZNamedPreset& preset) {
  return static_cast<::_PTZNamedPreset*>(new NamedPreset(preset));
}
ComPtr<IUnknown> NewEmptyOption() { return static_cast<::_PTZOption*>(new Option()); }
ComPtr<IUnknown> NewCatalogue() { return static_cast<::_PTZDrivers*>(new Catalogue()); }
ComPtr<IUnknown> NewPropertyBag() { return static_cast<::_PropertyBag*>(new Bag()); }

}  // namespace ptzd::com
