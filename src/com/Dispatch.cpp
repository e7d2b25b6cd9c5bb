#include "com/Dispatch.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>

#include "com/Errors.h"
#include "com/Module.h"
#include "com/TypeInformation.h"

namespace ptzd::com {

namespace {

constexpr VARTYPE ByteArrayReference = VT_BYREF | VT_ARRAY | VT_UI1;
constexpr VARTYPE VariantReference = VT_BYREF | VT_VARIANT;

bool SameName(const std::wstring& a, const wchar_t* b) { return _wcsicmp(a.c_str(), b) == 0; }

struct IIDLess {
  bool operator()(const IID& a, const IID& b) const { return std::memcmp(&a, &b, sizeof(IID)) < 0; }
  bool operator()(const std::vector<IID>& a, const std::vector<IID>& b) const {
    return std::ranges::lexicographical_compare(a, b, *this);
  }
};

/// A type of the type library as a VARTYPE. Enumerations, whose name is told, are long integers, our
/// interfaces objects.
VARTYPE TypeOf(ITypeInfo* info, const TYPEDESC& type, std::wstring& enumeration) {
  switch (type.vt) {
    case VT_PTR: {
      const auto inner = TypeOf(info, *type.lptdesc, enumeration);
      return inner == VT_DISPATCH && type.lptdesc->vt == VT_USERDEFINED
                 ? inner
                 : static_cast<VARTYPE>(inner | VT_BYREF);
    }
    case VT_SAFEARRAY:
      return static_cast<VARTYPE>(VT_ARRAY | TypeOf(info, *type.lptdesc, enumeration));
    case VT_USERDEFINED: {
      ComPtr<ITypeInfo> referred;
      Check(info->GetRefTypeInfo(type.hreftype, &referred), "The type library lacks a type it refers to");
      if (AttributesOf(referred.Get()).typekind != TKIND_ENUM) return VT_DISPATCH;
      enumeration = NameOf(referred.Get());
      return VT_I4;
    }
  }
  return type.vt;
}

Member Describe(ITypeInfo* info, const FUNCDESC& function) {
  std::vector<BSTR> names(static_cast<std::size_t>(function.cParams) + 1);
  UINT count = 0;
  Check(info->GetNames(function.memid, names.data(), static_cast<UINT>(names.size()), &count),
        "The type library lacks a member's name");
  std::vector<std::wstring> texts;
  for (auto* name : names) {
    texts.emplace_back(name ? name : L"");
    SysFreeString(name);
  }

  Member member{texts[0], function.memid, function.invkind, static_cast<std::size_t>(function.oVft),
                {},       VT_VOID};
  for (int i = 0; i < function.cParams; ++i) {
    const auto& element = function.lprgelemdescParam[i];
    std::wstring enumeration;
    const auto type = TypeOf(info, element.tdesc, enumeration);
    if (element.paramdesc.wParamFlags & PARAMFLAG_FRETVAL) {
      member.Result = static_cast<VARTYPE>(type & ~VT_BYREF);
      member.ResultEnumeration = std::move(enumeration);
      continue;
    }
    Parameter parameter{texts[static_cast<std::size_t>(i) + 1], type};
    parameter.Enumeration = std::move(enumeration);
    parameter.Optional = element.paramdesc.wParamFlags & PARAMFLAG_FOPT;
    if (element.paramdesc.wParamFlags & PARAMFLAG_FHASDEFAULT) {
      parameter.Default = OwnedVariant(element.paramdesc.pparamdescex->varDefaultValue);
    } else {
      V_VT(parameter.Default.Get()) = VT_ERROR;
      V_ERROR(parameter.Default.Get()) = DISP_E_PARAMNOTFOUND;
    }
    member.Parameters.push_back(std::move(parameter));
  }
  return member;
}

std::shared_ptr<const InterfaceDescription> ReadInterface(REFIID iid) {
  auto description = std::make_shared<InterfaceDescription>();
  const auto library = LoadOwnTypeLibrary();
  Check(library->GetTypeInfoOfGuid(iid, &description->Type), "The type library lacks an interface");

  // The other face of a dual interface has the functions as they lie in the virtual table.
  HREFTYPE reference = 0;
  ComPtr<ITypeInfo> functions;
  Check(description->Type->GetRefTypeOfImplType(static_cast<UINT>(-1), &reference),
        "An interface of the type library is not dual");
  Check(description->Type->GetRefTypeInfo(reference, &functions),
        "An interface of the type library is not dual");
  const UINT count = AttributesOf(functions.Get()).cFuncs;
  for (UINT i = 0; i < count; ++i) {
    FUNCDESC* function = nullptr;
    Check(functions->GetFuncDesc(i, &function), "The type library cannot be read");
    struct ReleaseFunction {
      ITypeInfo* Info;
      FUNCDESC* Function;
      ~ReleaseFunction() { Info->ReleaseFuncDesc(Function); }
    } release{functions.Get(), function};
    description->Members.push_back(Describe(functions.Get(), *function));
  }
  return description;
}

struct DescriptionCache {
  std::mutex Mutex;
  std::map<IID, std::shared_ptr<const InterfaceDescription>, IIDLess> Descriptions;
  std::map<std::vector<IID>, std::shared_ptr<const DispatchTable>, IIDLess> Tables;
};

DescriptionCache& Cache() {
  static DescriptionCache cache;
  return cache;
}

/// Whether a call of this kind may end at the member. Scripts read a property with both flags, or call it.
bool Accepts(INVOKEKIND kind, WORD flags) {
  if (kind == INVOKE_PROPERTYGET) return flags & (DISPATCH_PROPERTYGET | DISPATCH_METHOD);
  return flags & kind;
}

/// The arguments of one call as `DispCallFunc` takes them, and what must live until it returns.
class CallFrame {
 public:
  explicit CallFrame(std::size_t capacity) {
    Types_.reserve(capacity);
    Pointers_.reserve(capacity);
  }
  ~CallFrame() {
    for (auto* array : Arrays_) SafeArrayDestroy(array);
  }

  /// Converts an argument to a parameter's type. An HRESULT says that it does not convert.
  HRESULT Add(const Parameter& parameter, const VARIANT& argument, LCID locale) {
    switch (parameter.Type) {
      case ByteArrayReference: {
        auto*& array = Arrays_.emplace_back(nullptr);
        array = NewByteArray(ByteArray(argument, "The argument " + Utf8(std::wstring_view(parameter.Name))));
        PushReference(&array);
        return S_OK;
      }
      case VariantReference: {
        const bool byReference = V_VT(&argument) == VariantReference;
        PushReference(byReference ? V_VARIANTREF(&argument) : Values_.emplace_back(argument).Get());
        return S_OK;
      }
      case VT_VARIANT:
        Push(VT_VARIANT, Values_.emplace_back(argument).Get());
        return S_OK;
    }
    auto& value = Values_.emplace_back();
    Push(parameter.Type, value.Get());
    return Convert(value, Dereferenced(argument), parameter.Type, locale);
  }

  void PushReference(void* target) {
    auto* value = Values_.emplace_back().Get();
    V_VT(value) = VT_BYREF | VT_I4;  // a pointer, whatever it points to; not owned
    V_BYREF(value) = target;
    Push(VT_BYREF | VT_I4, value);
  }

  HRESULT Call(IUnknown* target, std::size_t offset) {
    OwnedVariant result;
    const auto called = DispCallFunc(target, offset, CC_STDCALL, VT_ERROR, static_cast<UINT>(Types_.size()),
                                     Types_.data(), Pointers_.data(), result.Get());
    return FAILED(called) ? called : V_ERROR(result.Get());
  }

 private:
  void Push(VARTYPE type, VARIANT* value) {
    Types_.push_back(type);
    Pointers_.push_back(value);
  }

  std::vector<VARTYPE> Types_;
  std::vector<VARIANTARG*> Pointers_;
  std::deque<OwnedVariant> Values_;  // its elements stay where they are
  std::deque<SAFEARRAY*> Arrays_;
};

HRESULT Call(const Member& member, IUnknown* target, LCID locale, const std::vector<const VARIANT*>& matched,
             VARIANT* result, EXCEPINFO* exception, UINT* wrongArgument, const DISPPARAMS& arguments) {
  CallFrame frame(member.Parameters.size() + 1);
  for (std::size_t i = 0; i < member.Parameters.size(); ++i) {
    const auto& parameter = member.Parameters[i];
    const auto converted = frame.Add(parameter, matched[i] ? *matched[i] : *parameter.Default, locale);
    if (FAILED(converted)) {
      if (wrongArgument && matched[i]) *wrongArgument = static_cast<UINT>(matched[i] - arguments.rgvarg);
      return converted;
    }
  }

  OwnedVariant answer;
  if (member.Result == VT_VARIANT) {
    frame.PushReference(answer.Get());
  } else if (member.Result != VT_VOID) {
    V_BYREF(answer.Get()) = nullptr;
    frame.PushReference(&V_BYREF(answer.Get()));
  }
  SetErrorInfo(0, nullptr);
  const auto called = frame.Call(target, member.Offset);
  if (FAILED(called)) return FillException(called, exception);
  if (member.Result != VT_VARIANT && member.Result != VT_VOID) V_VT(answer.Get()) = member.Result;
  if (result) *result = answer.Release();
  return S_OK;
}

}  // namespace

std::shared_ptr<const DispatchTable> TableOf(const std::vector<IID>& interfaces) {
  auto& cache = Cache();
  const std::lock_guard lock(cache.Mutex);
  auto& table = cache.Tables[interfaces];
  if (table) return table;
  std::vector<std::shared_ptr<const InterfaceDescription>> descriptions;
  for (const auto& iid : interfaces) {
    auto& description = cache.Descriptions[iid];
    if (!description) description = ReadInterface(iid);
    descriptions.push_back(description);
  }
  return table = std::make_shared<DispatchTable>(std::move(descriptions));
}

void ForgetTables() {
  auto& cache = Cache();
  const std::lock_guard lock(cache.Mutex);
  cache.Tables.clear();
  cache.Descriptions.clear();
}

DispatchTable::DispatchTable(std::vector<std::shared_ptr<const InterfaceDescription>> interfaces)
    : Interfaces_(std::move(interfaces)) {
  DISPID nextId = 1;
  for (std::size_t i = 0; i < Interfaces_.size(); ++i) {
    for (const auto& member : Interfaces_[i]->Members) {
      const bool keepsId = i == 0 || member.Id == DISPID_VALUE || member.Id == DISPID_NEWENUM;
      Add(member, i, keepsId ? member.Id : nextId++);
    }
  }
}

void DispatchTable::Add(const Member& member, std::size_t interface, DISPID id) {
  auto entry =
      std::ranges::find_if(Entries_, [&](const Entry& e) { return SameName(e.Name, member.Name.c_str()); });
  if (entry == Entries_.end()) entry = Entries_.insert(entry, Entry{id, member.Name, {}, {}});
  entry->Candidates.push_back({&member, interface});

  // The names of the widest come first: hosts count them in the type information.
  auto& known = entry->ParameterNames;
  known.clear();
  const auto addNames = [&](const Member& candidate) {
    for (const auto& parameter : candidate.Parameters)
      if (std::ranges::none_of(known,
                               [&](const auto& name) { return SameName(name, parameter.Name.c_str()); }))
        known.push_back(parameter.Name);
  };
  addNames(entry->Widest());
  for (const auto& candidate : entry->Candidates) addNames(*candidate.Function);
}

const Member& DispatchTable::Entry::Widest() const {
  return *std::ranges::max_element(Candidates, {}, [](const Candidate& candidate) {
            return candidate.Function->Parameters.size();
          })->Function;
}

DescribedMember DispatchTable::Describe(const Entry& entry) {
  const auto& first = *entry.Candidates.front().Function;
  const auto& widest = entry.Widest();
  // Where the arguments decide who answers, so they do over the kind of the result.
  return {entry.Id, &widest, first.Parameters.size(),
          &widest == &first ? first.Result : static_cast<VARTYPE>(VT_VARIANT)};
}

ComPtr<ITypeInfo> DispatchTable::Type() const {
  const auto& own = Interfaces_.front()->Type;
  if (Interfaces_.size() == 1) return own;
  const std::lock_guard lock(TypeMutex_);
  if (!Type_) {
    std::vector<DescribedMember> members;
    for (const auto& entry : Entries_) members.push_back(Describe(entry));
    Type_ = DescribeDispatch(own.Get(), members);
  }
  return Type_;
}

HRESULT DispatchTable::GetIDsOfNames(LPOLESTR* names, UINT count, DISPID* ids) const {
  if (!names || !ids) return E_POINTER;
  std::fill(ids, ids + count, DISPID_UNKNOWN);
  if (count == 0) return S_OK;
  const auto entry =
      std::ranges::find_if(Entries_, [&](const Entry& e) { return SameName(e.Name, names[0]); });
  if (entry == Entries_.end()) return DISP_E_UNKNOWNNAME;
  ids[0] = entry->Id;
  HRESULT result = S_OK;
  for (UINT i = 1; i < count; ++i) {
    const auto& known = entry->ParameterNames;
    const auto found =
        std::ranges::find_if(known, [&](const auto& name) { return SameName(name, names[i]); });
    if (found == known.end())
      result = DISP_E_UNKNOWNNAME;
    else
      ids[i] = static_cast<DISPID>(found - known.begin());
  }
  return result;
}

HRESULT DispatchTable::Match(const Entry& entry, const Member& member, const DISPPARAMS& arguments,
                             bool dropsMissing, std::vector<const VARIANT*>& matched, UINT* wrongArgument) {
  const auto& parameters = member.Parameters;
  matched.assign(parameters.size(), nullptr);
  if (arguments.cNamedArgs > arguments.cArgs) return DISP_E_BADPARAMCOUNT;
  auto positional = arguments.cArgs - arguments.cNamedArgs;
  // Arguments come last to first, the named ones in front.
  while (dropsMissing && positional > parameters.size() &&
         IsMissing(arguments.rgvarg[arguments.cArgs - positional]))
    --positional;
  if (positional + arguments.cNamedArgs > parameters.size()) return DISP_E_BADPARAMCOUNT;
  for (UINT i = 0; i < positional; ++i) matched[i] = &arguments.rgvarg[arguments.cArgs - 1 - i];
  for (UINT i = 0; i < arguments.cNamedArgs; ++i) {
    const auto id = arguments.rgdispidNamedArgs[i];
    auto index = parameters.size();
    if (id == DISPID_PROPERTYPUT) {
      index = parameters.size() - 1;
    } else if (id >= 0 && static_cast<std::size_t>(id) < entry.ParameterNames.size()) {
      const auto& name = entry.ParameterNames[static_cast<std::size_t>(id)];
      index = static_cast<std::size_t>(
          std::ranges::find_if(parameters,
                               [&](const Parameter& p) { return SameName(p.Name, name.c_str()); }) -
          parameters.begin());
    }
    if (index >= parameters.size() || matched[index]) {
      if (wrongArgument) *wrongArgument = i;
      return DISP_E_PARAMNOTFOUND;
    }
    matched[index] = &arguments.rgvarg[i];
  }
  for (std::size_t i = 0; i < parameters.size(); ++i) {
    if (matched[i] && !IsMissing(*matched[i])) continue;
    if (!parameters[i].Optional) {
      if (wrongArgument && matched[i]) *wrongArgument = static_cast<UINT>(matched[i] - arguments.rgvarg);
      return DISP_E_PARAMNOTOPTIONAL;
    }
    matched[i] = nullptr;
  }
  return S_OK;
}

HRESULT DispatchTable::Invoke(const std::vector<IUnknown*>& targets, DISPID id, LCID locale, WORD flags,
                              const DISPPARAMS& arguments, VARIANT* result, EXCEPINFO* exception,
                              UINT* wrongArgument) const {
  if (result) VariantInit(result);
  const auto entry = std::ranges::find(Entries_, id, &Entry::Id);
  if (entry == Entries_.end()) return DISP_E_MEMBERNOTFOUND;
  HRESULT failure = DISP_E_MEMBERNOTFOUND;
  std::vector<const VARIANT*> matched;
  // Hosts that go by the type information say "missing" for what only a later candidate has a parameter for.
  for (const bool dropsMissing : {false, true}) {
    for (const auto& candidate : entry->Candidates) {
      if (!Accepts(candidate.Function->Kind, flags)) continue;
      const auto fits = Match(*entry, *candidate.Function, arguments, dropsMissing, matched, wrongArgument);
      if (SUCCEEDED(fits))
        return Call(*candidate.Function, targets[candidate.Interface], locale, matched, result, exception,
                    wrongArgument, arguments);
      if (failure == DISP_E_MEMBERNOTFOUND) failure = fits;
    }
  }
  return failure;
}

}  // namespace ptzd::com
