// Prints all that a type library promises its hosts, as lines that can be compared:
//
//   library NAME {identifier} version MAJOR.MINOR "help string"
//   enum NAME, then its members and values
//   interface NAME {identifier} : BASE FLAGS, then per member
//       slot after those of IDispatch, DISPID, get/put/putref/method, name(parameters) -> result FLAGS
//   class NAME {identifier} FLAGS: its interfaces
//
// Types stand sorted by kind and name, their members in the library's order. A parameter is "name: type",
// with its flags in brackets unless it is plainly [in].

#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "Host.h"

namespace {

using host::ComPtr;

[[noreturn]] void Fail(const std::string& what, HRESULT code) {
  std::fprintf(stderr, "typelib-dump: %s: error 0x%08lX\n", what.c_str(), static_cast<unsigned long>(code));
  std::exit(1);
}

void Check(HRESULT code, const char* call) {
  if (FAILED(code)) Fail(call, code);
}

std::string Narrow(const OLECHAR* text) {
  if (!text || !*text) return {};
  const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  std::string out(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, -1, out.data(), size, nullptr, nullptr);
  out.pop_back();
  return out;
}

std::string Take(BSTR text) {
  std::string out = Narrow(text);
  SysFreeString(text);
  return out;
}

std::string Format(const char* format, unsigned long value) {
  char text[40];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

std::string Braced(const GUID& id) {
  OLECHAR text[40];
  StringFromGUID2(id, text, 40);
  return Narrow(text);
}

struct Attributes {
  explicit Attributes(ITypeInfo* info) : Info_(info) { Check(Info_->GetTypeAttr(&Value_), "GetTypeAttr"); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;
  ~Attributes() { Info_->ReleaseTypeAttr(Value_); }
  const TYPEATTR* operator->() const { return Value_; }

 private:
  ITypeInfo* Info_;
  TYPEATTR* Value_ = nullptr;
};

std::string NameOf(ITypeInfo* info) {
  BSTR name = nullptr;
  Check(info->GetDocumentation(MEMBERID_NIL, &name, nullptr, nullptr, nullptr), "GetDocumentation");
  return Take(name);
}

std::string TypeName(ITypeInfo* info, const TYPEDESC& type) {
  static const std::map<VARTYPE, const char*> plain = {
      {VT_UI1, "unsigned char"}, {VT_I2, "short"},          {VT_I4, "long"},
      {VT_R4, "float"},          {VT_R8, "double"},         {VT_BOOL, "VARIANT_BOOL"},
      {VT_BSTR, "BSTR"},         {VT_VARIANT, "VARIANT"},   {VT_DISPATCH, "IDispatch*"},
      {VT_VOID, "void"},         {VT_UNKNOWN, "IUnknown*"}, {VT_HRESULT, "HRESULT"}};
  if (const auto found = plain.find(type.vt); found != plain.end()) return found->second;
  if (type.vt == VT_PTR) return TypeName(info, *type.lptdesc) + "*";
  if (type.vt == VT_SAFEARRAY) return "SAFEARRAY(" + TypeName(info, *type.lptdesc) + ")";
  if (type.vt != VT_USERDEFINED) return Format("type %lu", type.vt);
  ComPtr<ITypeInfo> target;
  Check(info->GetRefTypeInfo(type.hreftype, &target), "GetRefTypeInfo");
  return NameOf(target.Get());
}

/// A number, or a text in quotes.
std::string Literal(VARIANT& value) {
  host::Value text;
  Check(VariantChangeTypeEx(&text, &value, LOCALE_INVARIANT, 0, VT_BSTR), "VariantChangeTypeEx");
  return value.vt == VT_BSTR ? '"' + Narrow(text.bstrVal) + '"' : Narrow(text.bstrVal);
}

std::string Parameter(ITypeInfo* info, const ELEMDESC& element, const std::string& name) {
  const auto& detail = element.paramdesc;
  std::string text = name + ": " + TypeName(info, element.tdesc);
  std::string flags;
  const auto add = [&flags](const char* flag) { flags += (flags.empty() ? "" : ", ") + std::string(flag); };
  if (detail.wParamFlags & PARAMFLAG_FIN) add("in");
  if (detail.wParamFlags & PARAMFLAG_FOUT) add("out");
  if (detail.wParamFlags & PARAMFLAG_FLCID) add("lcid");
  if (detail.wParamFlags & PARAMFLAG_FRETVAL) add("retval");
  if (detail.wParamFlags & PARAMFLAG_FOPT) add("optional");
  if (flags != "in") text += " [" + flags + "]";
  if (detail.wParamFlags & PARAMFLAG_FHASDEFAULT)
    text += " = " + Literal(detail.pparamdescex->varDefaultValue);
  return text;
}

std::string Function(ITypeInfo* info, const FUNCDESC& function) {
  const int firstSlot = 7;  // IUnknown and IDispatch
  std::vector<BSTR> names(static_cast<std::size_t>(function.cParams) + 1);
  UINT count = 0;
  Check(info->GetNames(function.memid, names.data(), static_cast<UINT>(names.size()), &count), "GetNames");

  std::string kind = "method";
  if (function.invkind == INVOKE_PROPERTYGET) kind = "get";
  if (function.invkind == INVOKE_PROPERTYPUT) kind = "put";
  if (function.invkind == INVOKE_PROPERTYPUTREF) kind = "putref";
  const bool small = function.memid >= -9 && function.memid <= 9;
  char head[80];
  std::snprintf(head, sizeof head, "  %2d  %10s  %-6s  ",
                function.oVft / static_cast<int>(sizeof(void*)) - firstSlot + 1,
                small ? std::to_string(function.memid).c_str()
                      : Format("0x%08lx", static_cast<unsigned long>(function.memid)).c_str(),
                kind.c_str());

  std::string parameters;
  std::string result = "nothing";
  for (int i = 0; i < function.cParams; ++i) {
    const ELEMDESC& element = function.lprgelemdescParam[i];
    const auto at = static_cast<UINT>(i) + 1;
    if ((element.paramdesc.wParamFlags & PARAMFLAG_FRETVAL) && element.tdesc.vt == VT_PTR) {
      result = TypeName(info, *element.tdesc.lptdesc);
      if (i + 1 != function.cParams) result += " (not the last parameter)";
      continue;
    }
    // The value of a property put has no name in a type library: the names are those of the get.
    const bool unnamed = at >= count || (function.invkind != INVOKE_FUNC && i + 1 == function.cParams);
    if (!parameters.empty()) parameters += ", ";
    parameters += Parameter(info, element, unnamed ? "value" : Narrow(names[at]));
  }
  std::string text = head + Narrow(names[0]) + "(" + parameters + ") -> " + result;
  if (function.elemdescFunc.tdesc.vt != VT_HRESULT)
    text += " returning " + TypeName(info, function.elemdescFunc.tdesc);
  if (function.callconv != CC_STDCALL) text += Format(" calling convention %lu", function.callconv);
  if (function.wFuncFlags & FUNCFLAG_FHIDDEN) text += " hidden";
  if (function.wFuncFlags & FUNCFLAG_FRESTRICTED) text += " restricted";
  for (UINT i = 0; i < count; ++i) SysFreeString(names[i]);
  return text + "\n";
}

std::string Enumeration(ITypeInfo* info) {
  std::string text = "enum " + NameOf(info) + "\n";
  const Attributes attributes(info);
  for (UINT i = 0; i < attributes->cVars; ++i) {
    VARDESC* variable = nullptr;
    Check(info->GetVarDesc(i, &variable), "GetVarDesc");
    BSTR name = nullptr;
    UINT count = 0;
    Check(info->GetNames(variable->memid, &name, 1, &count), "GetNames");
    text += "  " + Take(name) + " = " + Literal(*variable->lpvarValue) + "\n";
    info->ReleaseVarDesc(variable);
  }
  return text;
}

std::string Interface(ITypeInfo* info) {
  const Attributes attributes(info);
  std::string text = "interface " + NameOf(info) + " " + Braced(attributes->guid);
  ComPtr<ITypeInfo> table;  // the virtual table's view of a dual interface
  HREFTYPE reference = 0;
  if (attributes->typekind == TKIND_DISPATCH && (attributes->wTypeFlags & TYPEFLAG_FDUAL)) {
    Check(info->GetRefTypeOfImplType(static_cast<UINT>(-1), &reference), "GetRefTypeOfImplType");
    Check(info->GetRefTypeInfo(reference, &table), "GetRefTypeInfo");
  } else {
    return text + " is not dual\n";
  }
  ITypeInfo* members = table.Get();
  ComPtr<ITypeInfo> base;
  Check(members->GetRefTypeOfImplType(0, &reference), "GetRefTypeOfImplType");
  Check(members->GetRefTypeInfo(reference, &base), "GetRefTypeInfo");
  text += " : " + NameOf(base.Get()) + " dual";
  const Attributes own(members);
  if (own->wTypeFlags & TYPEFLAG_FOLEAUTOMATION) text += " oleautomation";
  if (attributes->wTypeFlags & TYPEFLAG_FHIDDEN) text += " hidden";
  if (attributes->wTypeFlags & TYPEFLAG_FNONEXTENSIBLE) text += " nonextensible";
  text += "\n";
  for (UINT i = 0; i < own->cFuncs; ++i) {
    FUNCDESC* function = nullptr;
    Check(members->GetFuncDesc(i, &function), "GetFuncDesc");
    text += Function(members, *function);
    members->ReleaseFuncDesc(function);
  }
  return text;
}

std::string Class(ITypeInfo* info) {
  const Attributes attributes(info);
  std::string text = "class " + NameOf(info) + " " + Braced(attributes->guid);
  text += attributes->wTypeFlags & TYPEFLAG_FCANCREATE ? " creatable" : " noncreatable";
  if (attributes->wTypeFlags & TYPEFLAG_FHIDDEN) text += " hidden";
  for (UINT i = 0; i < attributes->cImplTypes; ++i) {
    HREFTYPE reference = 0;
    INT flags = 0;
    ComPtr<ITypeInfo> target;
    Check(info->GetRefTypeOfImplType(i, &reference), "GetRefTypeOfImplType");
    Check(info->GetImplTypeFlags(i, &flags), "GetImplTypeFlags");
    Check(info->GetRefTypeInfo(reference, &target), "GetRefTypeInfo");
    text += (i == 0 ? ": " : ", ") + NameOf(target.Get());
    if (flags & IMPLTYPEFLAG_FDEFAULT) text += " default";
    if (flags & IMPLTYPEFLAG_FSOURCE) text += " source";
    if (flags & IMPLTYPEFLAG_FRESTRICTED) text += " restricted";
  }
  return text + "\n";
}

struct Entry {
  int Rank;
  std::string Name;
  std::string Text;
};

void Print(ITypeLib* library) {
  TLIBATTR* attributes = nullptr;
  BSTR name = nullptr;
  BSTR help = nullptr;
  Check(library->GetLibAttr(&attributes), "GetLibAttr");
  Check(library->GetDocumentation(-1, &name, &help, nullptr, nullptr), "GetDocumentation");
  std::printf("library %s %s version %u.%u \"%s\"\n", Take(name).c_str(), Braced(attributes->guid).c_str(),
              attributes->wMajorVerNum, attributes->wMinorVerNum, Take(help).c_str());
  library->ReleaseTLibAttr(attributes);

  std::vector<Entry> entries;
  for (UINT i = 0; i < library->GetTypeInfoCount(); ++i) {
    ComPtr<ITypeInfo> info;
    TYPEKIND kind{};
    Check(library->GetTypeInfo(i, &info), "GetTypeInfo");
    Check(library->GetTypeInfoType(i, &kind), "GetTypeInfoType");
    ITypeInfo* type = info.Get();
    const std::string typeName = NameOf(type);
    switch (kind) {
      case TKIND_ENUM:
        entries.push_back({0, typeName, Enumeration(type)});
        break;
      case TKIND_INTERFACE:
      case TKIND_DISPATCH:
        entries.push_back({1, typeName, Interface(type)});
        break;
      case TKIND_COCLASS:
        entries.push_back({2, typeName, Class(type)});
        break;
      default:
        entries.push_back(
            {3, typeName, Format("type of kind %lu ", static_cast<unsigned long>(kind)) + typeName + "\n"});
    }
  }
  std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) {
    return a.Rank != b.Rank ? a.Rank < b.Rank : a.Name < b.Name;
  });
  bool wasLong = true;
  for (const Entry& entry : entries) {
    const bool isLong = entry.Text.find('\n') + 1 < entry.Text.size();
    std::printf("%s%s", isLong || wasLong ? "\n" : "", entry.Text.c_str());
    wasLong = isLong;
  }
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) {
    std::fprintf(stderr, "usage: typelib-dump FILE.tlb|FILE.dll\n");
    return 2;
  }
  _setmode(_fileno(stdout), _O_BINARY);
  OLECHAR path[MAX_PATH];
  if (!MultiByteToWideChar(CP_ACP, 0, arguments[1], -1, path, MAX_PATH))
    Fail(arguments[1], HRESULT_FROM_WIN32(GetLastError()));
  Check(OleInitialize(nullptr), "OleInitialize");
  {
    ComPtr<ITypeLib> library;
    const HRESULT code = LoadTypeLibEx(path, REGKIND_NONE, &library);
    if (FAILED(code)) Fail(std::string("cannot load ") + arguments[1], code);
    Print(library.Get());
  }
  OleUninitialize();
  return 0;
}
