#include "com/ForeignBag.h"

#include "com/Automation.h"

#include "com/LateBound.h"
#include "com/Values.h"

namespace ptzd::com {

namespace {

// The class PropertyBag of the type library VBRUN. It registers no ProgID.
constexpr CLSID RunTimePropertyBag = {
    0xD5DE8D20, 0x5BB8, 0x11D1, {0xA1, 0xE3, 0x00, 0xA0, 0xC9, 0x0F, 0x27, 0x31}};

// A default that no host stores tells an absent value from all others.
constexpr wchar_t Absent[] = L"{3B1DF1D2-7E0C-4B57-9A0F-5C8F7A4E21D6}";

class RunTimeContents final : public ForeignContents {
 public:
  explicit RunTimeContents(ComPtr<IDispatch> bag) : Bag_(std::move(bag)) {}

  std::optional<Variant> Read(std::string_view name) const override {
    const auto nameText = ToVariant(std::string(name));
    const auto absent = ToVariant(Utf8(std::wstring_view(Absent)));
    VARIANT arguments[] = {*absent, *nameText};
    const auto value = CallByName(Bag_.Get(), L"ReadProperty", DISPATCH_METHOD, arguments);
    if (V_VT(&*value) == VT_BSTR && Utf8(V_BSTR(&*value)) == Utf8(std::wstring_view(Absent)))
      return std::nullopt;
    return FromVariant(*value);
  }

 private:
  ComPtr<IDispatch> Bag_;
};

/// Null where the class is not installed.
ComPtr<IDispatch> NewBag() {
  ComPtr<IDispatch> bag;
  CoCreateInstance(RunTimePropertyBag, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch, &bag);
  return bag;
}

}  // namespace

std::optional<Bytes> MakeForeignContents(std::span<const std::pair<std::string, Variant>> values) {
  const auto bag = NewBag();
  if (!bag) return std::nullopt;
  for (const auto& [name, value] : values) {
    const auto nameText = ToVariant(name), itsValue = ToVariant(value);
    VARIANT arguments[] = {*itsValue, *nameText};
    CallByName(bag.Get(), L"WriteProperty", DISPATCH_METHOD, arguments);
  }
  return ByteArray(*CallByName(bag.Get(), L"Contents", DISPATCH_PROPERTYGET), "the options");
}

std::unique_ptr<const ForeignContents> OpenForeignContents(std::span<const std::uint8_t> bytes) {
  auto bag = NewBag();
  if (!bag) return nullptr;
  const auto contents = ToVariant(Bytes(bytes.begin(), bytes.end()));
  VARIANT arguments[] = {*contents};
  CallByName(bag.Get(), L"Contents", DISPATCH_PROPERTYPUT, arguments);
  return std::make_unique<RunTimeContents>(std::move(bag));
}

}  // namespace ptzd::com
