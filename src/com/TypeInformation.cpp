#include "com/TypeInformation.h"

#include <map>
#include <memory>

#include "com/Errors.h"

namespace ptzd::com {

namespace {

constexpr const char* Unreadable = "The type library cannot be read";
constexpr const char* Unmade = "The type information cannot be made";

struct BstrFree {
  void operator()(OLECHAR* text) const { SysFreeString(text); }
};
using OwnedBstr = std::unique_ptr<OLECHAR, BstrFree>;

/// Attributes that their owner lends.
template <class Owner, class Attributes>
Attributes CopyOf(Owner* owner, HRESULT (STDMETHODCALLTYPE Owner::*lend)(Attributes**),
                  void (STDMETHODCALLTYPE Owner::*takeBack)(Attributes*)) {
  Attributes* lent = nullptr;
  Check((owner->*lend)(&lent), Unreadable);
  const auto copy = *lent;
  (owner->*takeBack)(lent);
  return copy;
}

/// A library that is never written to a file.
class LibraryInMemory {
 public:
  /// Has the identity and the enumerations of a recorded one.
  explicit LibraryInMemory(ITypeLib* recorded) {
    BSTR name = nullptr;
    Check(recorded->GetDocumentation(MEMBERID_NIL, &name, nullptr, nullptr, nullptr), Unreadable);
    const OwnedBstr owned(name);
    const auto identity = AttributesOf(recorded);
    Check(CreateTypeLib2(identity.syskind, name, &Library_), Unmade);
    Check(Library_->SetName(name), Unmade);
    Check(Library_->SetGuid(identity.guid), Unmade);
    Check(Library_->SetVersion(identity.wMajorVerNum, identity.wMinorVerNum), Unmade);
    Check(Library_->SetLcid(identity.lcid), Unmade);
    for (UINT i = 0; i < recorded->GetTypeInfoCount(); ++i) {
      TYPEKIND kind{};
      Check(recorded->GetTypeInfoType(i, &kind), Unreadable);
      if (kind != TKIND_ENUM) continue;
      ComPtr<ITypeInfo> enumeration;
      Check(recorded->GetTypeInfo(i, &enumeration), Unreadable);
      CopyEnumeration(enumeration.Get());
    }
  }

  ComPtr<ICreateTypeInfo> Add(const std::wstring& name, TYPEKIND kind) {
    ComPtr<ICreateTypeInfo> type;
    Check(Library_->CreateTypeInfo(const_cast<LPOLESTR>(name.c_str()), kind, &type), Unmade);
    return type;
  }
  /// Ends the making of a type.
  static ComPtr<ITypeInfo> Finish(ICreateTypeInfo* type) {
    Check(type->LayOut(), Unmade);
    ComPtr<ITypeInfo> info;
    Check(type->QueryInterface(IID_ITypeInfo, &info), Unmade);
    return info;
  }
  ITypeInfo* Enumeration(const std::wstring& name) const { return Enumerations_.at(name).Get(); }

 private:
  void CopyEnumeration(ITypeInfo* source) {
    const auto copy = Add(NameOf(source), TKIND_ENUM);
    const UINT count = AttributesOf(source).cVars;
    for (UINT i = 0; i < count; ++i) {
      VARDESC* value = nullptr;
      Check(source->GetVarDesc(i, &value), Unreadable);
      BSTR name = nullptr;
      UINT names = 0;
      auto added = source->GetNames(value->memid, &name, 1, &names);
      const OwnedBstr owned(name);
      auto unnumbered = *value;
      unnumbered.memid = MEMBERID_NIL;
      if (SUCCEEDED(added)) added = copy->AddVarDesc(i, &unnumbered);
      source->ReleaseVarDesc(value);
      Check(added, Unmade);
      Check(copy->SetVarName(i, name), Unmade);
    }
    Enumerations_[NameOf(source)] = Finish(copy.Get());
  }

  ComPtr<ICreateTypeLib2> Library_;
  std::map<std::wstring, ComPtr<ITypeInfo>> Enumerations_;
};

/// The description of one member, and what it points to.
class Function {
 public:
  Function(const LibraryInMemory& library, ICreateTypeInfo* type, const DescribedMember& member)
      : Library_(library),
        Type_(type),
        Parameters_(member.Function->Parameters.size()),
        Defaults_(Parameters_.size()),
        Elements_(Parameters_.size()) {
    const auto& source = *member.Function;
    Names_.push_back(const_cast<LPOLESTR>(source.Name.c_str()));
    for (std::size_t i = 0; i < Parameters_.size(); ++i) {
      Names_.push_back(const_cast<LPOLESTR>(source.Parameters[i].Name.c_str()));
      SetParameter(i, source.Parameters[i], i >= member.Needed || source.Parameters[i].Optional);
    }
    Description_.memid = member.Id;
    Description_.lprgelemdescParam = Parameters_.data();
    Description_.cParams = static_cast<SHORT>(Parameters_.size());
    Description_.funckind = FUNC_DISPATCH;
    Description_.invkind = source.Kind;
    Description_.callconv = CC_STDCALL;
    // As usual the enumerator serves "For Each" and is not shown.
    if (member.Id == DISPID_NEWENUM) Description_.wFuncFlags = FUNCFLAG_FHIDDEN;
    Description_.elemdescFunc.tdesc = member.Result == source.Result
                                          ? TypeOf(source.Result, source.ResultEnumeration)
                                          : TypeOf(member.Result, {});
  }

  void AddAs(UINT index) {
    Check(Type_->AddFuncDesc(index, &Description_), Unmade);
    Check(Type_->SetFuncAndParamNames(index, Names_.data(), static_cast<UINT>(Names_.size())), Unmade);
  }

 private:
  void SetParameter(std::size_t i, const Parameter& source, bool optional) {
    auto& type = Parameters_[i].tdesc;
    auto& details = Parameters_[i].paramdesc;
    type = TypeOf(source.Type, source.Enumeration);
    if (source.Type & VT_ARRAY) {
      Elements_[i].vt = source.Type & VT_TYPEMASK;
      type.vt = VT_SAFEARRAY;
      type.lptdesc = &Elements_[i];
    }
    details.wParamFlags = PARAMFLAG_FIN;
    if (!optional) return;
    details.wParamFlags |= PARAMFLAG_FOPT;
    if (IsMissing(*source.Default)) {
      type.vt = VT_VARIANT;  // so that hosts can say "missing" where they must say something
    } else {
      details.wParamFlags |= PARAMFLAG_FHASDEFAULT;
      details.pparamdescex = &Defaults_[i];
      Defaults_[i] = {sizeof(PARAMDESCEX), *source.Default};
    }
  }

  TYPEDESC TypeOf(VARTYPE type, const std::wstring& enumeration) const {
    TYPEDESC described{};
    described.vt = static_cast<VARTYPE>(type & VT_TYPEMASK);
    if (!enumeration.empty()) {
      described.vt = VT_USERDEFINED;
      Check(Type_->AddRefTypeInfo(Library_.Enumeration(enumeration), &described.hreftype), Unmade);
    }
    return described;
  }

  const LibraryInMemory& Library_;
  ICreateTypeInfo* Type_;
  std::vector<ELEMDESC> Parameters_;
  std::vector<PARAMDESCEX> Defaults_;
  std::vector<TYPEDESC> Elements_;  // of arrays
  std::vector<LPOLESTR> Names_;
  FUNCDESC Description_{};
};

}  // namespace

std::wstring NameOf(ITypeInfo* info) {
  BSTR name = nullptr;
  Check(info->GetDocumentation(MEMBERID_NIL, &name, nullptr, nullptr, nullptr), Unreadable);
  const OwnedBstr owned(name);
  return name;
}

TYPEATTR AttributesOf(ITypeInfo* info) {
  return CopyOf(info, &ITypeInfo::GetTypeAttr, &ITypeInfo::ReleaseTypeAttr);
}

TLIBATTR AttributesOf(ITypeLib* library) {
  return CopyOf(library, &ITypeLib::GetLibAttr, &ITypeLib::ReleaseTLibAttr);
}

ComPtr<ITypeInfo> DescribeDispatch(ITypeInfo* interface, const std::vector<DescribedMember>& members) {
  ComPtr<ITypeLib> recorded;
  UINT unused = 0;
  Check(interface->GetContainingTypeLib(&recorded, &unused), Unreadable);
  HREFTYPE reference = 0;
  ComPtr<ITypeInfo> base;
  Check(interface->GetRefTypeOfImplType(0, &reference), Unreadable);
  Check(interface->GetRefTypeInfo(reference, &base), Unreadable);

  LibraryInMemory library(recorded.Get());
  const auto type = library.Add(NameOf(interface), TKIND_DISPATCH);
  Check(type->SetGuid(AttributesOf(interface).guid), Unmade);
  Check(type->SetTypeFlags(TYPEFLAG_FDISPATCHABLE), Unmade);
  Check(type->AddRefTypeInfo(base.Get(), &reference), Unmade);
  Check(type->AddImplType(0, reference), Unmade);
  UINT index = 0;
  for (const auto& member : members) Function(library, type.Get(), member).AddAs(index++);
  return LibraryInMemory::Finish(type.Get());
}

}  // namespace ptzd::com
