#include "com/Collection.h"

#include <algorithm>

#include "common/Numbers.h"

namespace ptzd::com {

namespace {

class Enumerator final : public Object, public IEnumVARIANT {
 public:
  explicit Enumerator(CollectionItems items, std::size_t position = 0)
      : Object("Collection"), Items_(std::move(items)), Position_(position) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    return Object::QueryInterface(iid, object);
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return Object::AddRef(); }
  ULONG STDMETHODCALLTYPE Release() override { return Object::Release(); }

  HRESULT STDMETHODCALLTYPE Next(ULONG count, VARIANT* values, ULONG* fetched) override {
    if (!values || (!fetched && count != 1)) return E_POINTER;
    ULONG given = 0;
    for (; given < count && Position_ < Items_->size(); ++given, ++Position_) {
      VariantInit(&values[given]);
      V_VT(&values[given]) = VT_DISPATCH;
      V_DISPATCH(&values[given]) = ComPtr<IDispatch>((*Items_)[Position_].Value).Detach();
    }
    if (fetched) *fetched = given;
    return given == count ? S_OK : S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE Skip(ULONG count) override {
    const auto left = Items_->size() - Position_;
    Position_ += std::min<std::size_t>(count, left);
    return count <= left ? S_OK : S_FALSE;
  }
  HRESULT STDMETHODCALLTYPE Reset() override {
    Position_ = 0;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Clone(IEnumVARIANT** clone) override {
    if (!clone) return E_POINTER;
    try {
      *clone = ComPtr<IEnumVARIANT>(new Enumerator(Items_, Position_)).Detach();
      return S_OK;
    } catch (...) {
      *clone = nullptr;
      return ReportException(Source());
    }
  }

 private:
  IUnknown* Find(REFIID iid) override {
    return IsEqualIID(iid, IID_IEnumVARIANT) ? static_cast<IEnumVARIANT*>(this) : nullptr;
  }

  CollectionItems Items_;
  std::size_t Position_;
};

/// No type library holds it: the virtual table is our own affair.
struct CollectionMembers : IDispatch {
  virtual HRESULT STDMETHODCALLTYPE get_Item(VARIANT Index, IDispatch** Result) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_Count(LONG* Result) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_NewEnum(IUnknown** Result) = 0;
};

std::shared_ptr<const DispatchTable> CollectionTable() {
  constexpr std::size_t firstOwn = 7 * sizeof(void*);  // after those of IDispatch
  auto description = std::make_shared<InterfaceDescription>();
  auto& members = description->Members;
  members.push_back({L"Item", DISPID_VALUE, INVOKE_PROPERTYGET, firstOwn, {}, VT_DISPATCH});
  members.back().Parameters.push_back({L"Index", VT_VARIANT});
  members.push_back({L"Count", 1, INVOKE_PROPERTYGET, firstOwn + sizeof(void*), {}, VT_I4});
  members.push_back(
      {L"_NewEnum", DISPID_NEWENUM, INVOKE_PROPERTYGET, firstOwn + 2 * sizeof(void*), {}, VT_UNKNOWN});
  return std::make_shared<DispatchTable>(
      std::vector<std::shared_ptr<const InterfaceDescription>>{std::move(description)});
}

class Collection final : public Object, public Adaptor<CollectionMembers> {
 public:
  explicit Collection(CollectionItems items)
      : Object("Collection"), Adaptor(*this, CollectionTable()), Items_(std::move(items)) {}

  HRESULT STDMETHODCALLTYPE get_Item(VARIANT Index, IDispatch** Result) override {
    return Answer(Result, [&] { return Lookup(Index).Value; });
  }
  HRESULT STDMETHODCALLTYPE get_Count(LONG* Result) override {
    return Answer(Result, [&] { return static_cast<std::int32_t>(Items_->size()); });
  }
  HRESULT STDMETHODCALLTYPE get_NewEnum(IUnknown** Result) override {
    return Answer(Result, [&] { return NewEnumerator(Items_); });
  }

 private:
  IUnknown* Find(REFIID iid) override {
    return IsEqualIID(iid, IID_IDispatch) ? static_cast<CollectionMembers*>(this) : nullptr;
  }

  const CollectionItem& Lookup(const VARIANT& index) const {
    const auto value = FromVariant(index);
    if (const auto* text = std::get_if<std::string>(&value)) {
      const auto key = Utf16(*text);
      // As everywhere in such collections case does not matter, unless two keys differ in nothing else.
      auto found = std::ranges::find(*Items_, key, &CollectionItem::Key);
      if (found == Items_->end())
        found = std::ranges::find_if(*Items_, [&](const CollectionItem& item) {
          return item.Key && CompareStringW(LOCALE_INVARIANT, NORM_IGNORECASE, item.Key->c_str(), -1,
                                            key.c_str(), -1) == CSTR_EQUAL;
        });
      if (found == Items_->end()) Raise(ErrorInvalidCall);
      return *found;
    }
    const auto position = ToInt32(value);
    if (position < 1 || static_cast<std::size_t>(position) > Items_->size()) Raise(ErrorInvalidCall);
    return (*Items_)[static_cast<std::size_t>(position) - 1];
  }

  CollectionItems Items_;
};

}  // namespace

ComPtr<IDispatch> NewCollection(CollectionItems items) {
  return static_cast<CollectionMembers*>(new Collection(std::move(items)));
}

ComPtr<IUnknown> NewEnumerator(CollectionItems items) {
  return static_cast<IEnumVARIANT*>(new Enumerator(std::move(items)));
}

}  // namespace ptzd::com
