// A host of the registered PTZD.dll that knows of a driver only what its type information tells. The
// environment variable CAMERA is the address of a simulated Quorvane camera, a make that has nearly every
// interface.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

#include "Host.h"

namespace {

using namespace host;

/// A function of a type information.
struct Listed {
  std::wstring Name;
  DISPID Id;
  INVOKEKIND Kind;
  std::vector<std::wstring> Parameters;
  std::vector<Value> Arguments;  ///< some value for each parameter that a call needs
  std::wstring Text;             ///< as a host would show it
};

std::wstring NameOf(ITypeInfo* info, MEMBERID member = MEMBERID_NIL) {
  BSTR name = nullptr;
  EXPECT_EQ(info->GetDocumentation(member, &name, nullptr, nullptr, nullptr), S_OK);
  return Text(name);
}

Value FirstOf(ITypeInfo* enumeration) {
  VARDESC* first = nullptr;
  EXPECT_EQ(enumeration->GetVarDesc(0, &first), S_OK);
  auto value = Value::Long(first->lpvarValue->lVal);
  enumeration->ReleaseVarDesc(first);
  return value;
}

/// A type's name, and a value of it.
std::pair<std::wstring, Value> TypeOf(ITypeInfo* info, const TYPEDESC& type) {
  static const std::map<VARTYPE, std::pair<std::wstring, Value>> plain = {
      {VT_VOID, {L"nothing", {}}},
      {VT_BOOL, {L"Boolean", Value::Boolean(true)}},
      {VT_I4, {L"Long", Value::Long(1)}},
      {VT_R4, {L"Single", Value::Double(2)}},
      {VT_BSTR, {L"Text", Value::Text(L"7")}},
      {VT_VARIANT, {L"Variant", Value::Long(0)}},
      {VT_DISPATCH, {L"Object", {}}},
      {VT_UNKNOWN, {L"Object", {}}},
      {VT_PTR, {L"Reference", {}}},  // only in the type library
      {VT_UI1, {L"Byte", {}}}};
  if (const auto found = plain.find(type.vt); found != plain.end()) return found->second;
  if (type.vt == VT_SAFEARRAY) return {TypeOf(info, *type.lptdesc).first + L"()", {}};
  EXPECT_EQ(type.vt, VT_USERDEFINED) << "a type that no member has";
  ComPtr<ITypeInfo> referred;
  EXPECT_EQ(info->GetRefTypeInfo(type.hreftype, &referred), S_OK);
  EXPECT_EQ(AttributesOf(referred.Get()).typekind, TKIND_ENUM);
  return {NameOf(referred.Get()), FirstOf(referred.Get())};
}

Listed Read(ITypeInfo* info, const FUNCDESC& function) {
  BSTR names[10] = {};
  UINT count = 0;
  EXPECT_EQ(info->GetNames(function.memid, names, 10, &count), S_OK);
  EXPECT_EQ(count, static_cast<UINT>(function.cParams) + 1);
  Listed listed{Text(names[0]), function.memid, function.invkind, {}, {}, {}};
  EXPECT_EQ(NameOf(info, function.memid), listed.Name);
  for (int i = 0; i < function.cParams; ++i) {
    const auto& parameter = function.lprgelemdescParam[i];
    const auto flags = parameter.paramdesc.wParamFlags;
    const auto [type, value] = TypeOf(info, parameter.tdesc);
    listed.Parameters.push_back(Text(names[i + 1]));
    auto text = type + L" " + listed.Parameters.back();
    if (flags & PARAMFLAG_FHASDEFAULT) {
      auto& initial = parameter.paramdesc.pparamdescex->varDefaultValue;
      Value shown;
      EXPECT_EQ(initial.vt, parameter.tdesc.vt);
      EXPECT_EQ(VariantChangeTypeEx(&shown, &initial, LOCALE_INVARIANT, 0, VT_BSTR), S_OK);
      text += L" = " + std::wstring(shown.bstrVal);
    }
    if (flags & PARAMFLAG_FOPT)
      text = L"[" + text + L"]";
    else
      listed.Arguments.push_back(value);
    listed.Text += (i == 0 ? L"" : L", ") + text;
  }
  listed.Text = listed.Name + L"(" + listed.Text + L") " + TypeOf(info, function.elemdescFunc.tdesc).first;
  if (function.invkind == INVOKE_PROPERTYGET) listed.Text = L"get " + listed.Text;
  return listed;
}

std::vector<Listed> Walk(ITypeInfo* info) {
  std::vector<Listed> members;
  const auto attributes = AttributesOf(info);
  EXPECT_EQ(attributes.typekind, TKIND_DISPATCH);
  for (UINT i = 0; i < attributes.cFuncs; ++i) {
    FUNCDESC* function = nullptr;
    EXPECT_EQ(info->GetFuncDesc(i, &function), S_OK);
    if (!function) continue;
    if (!(function->wFuncFlags & FUNCFLAG_FRESTRICTED)) members.push_back(Read(info, *function));
    info->ReleaseFuncDesc(function);
  }
  return members;
}

ComPtr<IDispatch> Create(const CLSID& identifier) {
  ComPtr<IDispatch> object;
  EXPECT_EQ(CoCreateInstance(identifier, nullptr, CLSCTX_INPROC_SERVER, IID_IDispatch, &object), S_OK);
  return object;
}

ComPtr<IDispatch> Create(const wchar_t* className) {
  CLSID identifier{};
  EXPECT_EQ(CLSIDFromProgID((std::wstring(L"QVPTZ.") + className).c_str(), &identifier), S_OK);
  return Create(identifier);
}

ComPtr<ITypeInfo> TypeInfoOf(IDispatch* object) {
  UINT count = 0;
  EXPECT_EQ(object->GetTypeInfoCount(&count), S_OK);
  EXPECT_EQ(count, 1U);
  ComPtr<ITypeInfo> info;
  EXPECT_EQ(object->GetTypeInfo(0, LOCALE_USER_DEFAULT, &info), S_OK);
  return info;
}

class TypeInfoTest : public testing::Test {
 protected:
  TypeInfoTest() { CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED); }
  ~TypeInfoTest() override { CoUninitialize(); }
};

/// The members of a class's interfaces by the type library, which early-bound hosts are built with.
std::map<std::wstring, INVOKEKIND> RecordedMembers(ITypeInfo* coclass) {
  std::map<std::wstring, INVOKEKIND> members;
  for (UINT i = 0; i < AttributesOf(coclass).cImplTypes; ++i) {
    HREFTYPE reference = 0;
    ComPtr<ITypeInfo> implemented;
    coclass->GetRefTypeOfImplType(i, &reference);
    coclass->GetRefTypeInfo(reference, &implemented);
    for (const auto& member : Walk(implemented.Get())) members.emplace(member.Name, member.Kind);
  }
  return members;
}

TEST_F(TypeInfoTest, EveryDriverListsWhatItAnswersByName) {
  const auto library = RegisteredLibrary();
  int drivers = 0;
  for (UINT i = 0; i < library->GetTypeInfoCount(); ++i) {
    ComPtr<ITypeInfo> coclass;
    library->GetTypeInfo(i, &coclass);
    const auto attributes = AttributesOf(coclass.Get());
    if (attributes.typekind != TKIND_COCLASS || attributes.cImplTypes < 2) continue;
    ++drivers;
    const auto className = NameOf(coclass.Get());
    const auto driver = Create(attributes.guid);
    const auto info = TypeInfoOf(driver.Get());
    EXPECT_EQ(NameOf(info.Get()), L"_" + className);
    // Hosts keep what they read under the identifier.
    ComPtr<IUnknown> own;
    EXPECT_EQ(driver->QueryInterface(AttributesOf(info.Get()).guid, &own), S_OK);
    EXPECT_EQ(own.Get(), driver.Get());

    const auto recorded = RecordedMembers(coclass.Get());
    std::map<std::wstring, INVOKEKIND> told;
    std::set<DISPID> ids;
    for (const auto& member : Walk(info.Get())) {
      told.emplace(member.Name, member.Kind);
      EXPECT_TRUE(ids.insert(member.Id).second) << "two members are " << member.Id;
      // The dispatch and its type information know the names by the same numbers.
      std::vector<LPOLESTR> names = {const_cast<LPOLESTR>(member.Name.c_str())};
      std::vector<DISPID> expected = {member.Id};
      for (const auto& parameter : member.Parameters) {
        names.push_back(const_cast<LPOLESTR>(parameter.c_str()));
        expected.push_back(static_cast<DISPID>(expected.size()) - 1);
      }
      std::vector<DISPID> answered(names.size()), byInfo(names.size());
      const auto count = static_cast<UINT>(names.size());
      EXPECT_EQ(driver->GetIDsOfNames(IID_NULL, names.data(), count, 0, answered.data()), S_OK);
      EXPECT_EQ(info->GetIDsOfNames(names.data(), count, byInfo.data()), S_OK);
      EXPECT_EQ(answered, expected);
      EXPECT_EQ(byInfo, expected);
    }
    EXPECT_EQ(told, recorded);
  }
  EXPECT_EQ(drivers, 20);
}

TEST_F(TypeInfoTest, MembersAreCalledAsListed) {
  const auto bag = Create(L"PropertyBag");
  wchar_t address[100] = L"";
  GetEnvironmentVariableW(L"CAMERA", address, 100);
  Call(bag.Get(), L"WriteProperty", {Value::Text(L"Address"), Value::Text(address)});
  Call(bag.Get(), L"WriteProperty", {Value::Text(L"Feed"), Value::Text(L"3")});
  const auto driver = Create(L"Quorvane");
  const auto info = TypeInfoOf(driver.Get());
  auto members = Walk(info.Get());
  std::vector<std::wstring> texts;
  for (const auto& member : members) texts.push_back(member.Text);
  const std::vector<std::wstring> expected = {
      L"get Capabilities() Capabilities",
      L"Connect(Byte() Options) Boolean",
      L"get Connected() Boolean",
      L"get Pan() Single",
      L"get Tilt() Single",
      L"Move(Directions Direction, [Single Angle = 5]) Boolean",
      L"MoveTo(Single Pan, Single Tilt, [Variant Zoom]) Variant",
      L"Zoom(Zooms Direction, [Single Amount = 0.25]) Variant",
      L"Iris(Iris IrisLevel) Boolean",
      L"Focus(Focus FocusLevel) Boolean",
      L"Disconnect() Variant",
      L"MoveBoth(Single PanAngle, Single TiltAngle) Boolean",
      L"PresetCount() Long",
      L"PresetGoto(Long Preset) Boolean",
      L"PresetSave(Long Preset) Boolean",
      L"SetPanTilt(Single Pan, Single Tilt) nothing",
      L"Home() Boolean",
      L"get ZoomLevel() Single",
      L"ZoomTo(Single Zoom) nothing",
      L"ContinuousMove(Single Pan, Single Tilt) nothing",
      L"ContinuousZoom(Single Amount) nothing",
      L"StopContinuous() nothing",
      L"get Item(Variant vntIndexKey) Object",
      L"get Count() Long",
      L"get NewEnum() Object",
      L"GetNamedPresets() Object",
      L"GotoNamedPreset(Text ID) nothing",
  };
  EXPECT_EQ(texts, expected);

  // The last one is Disconnect.
  std::ranges::stable_partition(members, [](const Listed& member) { return member.Name != L"Disconnect"; });
  for (auto& member : members)
    if (member.Name == L"Connect") member.Arguments = {Call(bag.Get(), L"Contents").Result};
  // What is optional is left out, then said to be missing, then given; the last by way of the information.
  for (const auto round : {0, 1, 2}) {
    for (const auto& member : members) {
      auto arguments = member.Arguments;
      while (round > 0 && arguments.size() < member.Parameters.size())
        arguments.push_back(round == 1 ? Value::Missing() : Value::Double(1.5));
      std::vector<VARIANT> given(arguments.rbegin(), arguments.rend());
      DISPPARAMS parameters{given.data(), nullptr, static_cast<UINT>(given.size()), 0};
      Value result;
      const auto kind = static_cast<WORD>(member.Kind);
      EXPECT_EQ(round == 2
                    ? info->Invoke(driver.Get(), member.Id, kind, &parameters, &result, nullptr, nullptr)
                    : driver->Invoke(member.Id, IID_NULL, LOCALE_USER_DEFAULT, kind, &parameters, &result,
                                     nullptr, nullptr),
                S_OK)
          << "member " << member.Id;
    }
  }
}

TEST_F(TypeInfoTest, InformationOutlivesItsDriver) {
  ComPtr<ITypeInfo> info = TypeInfoOf(Create(L"Sanyo").Get());
  CoFreeUnusedLibraries();
  const auto members = Walk(info.Get());
  ASSERT_FALSE(members.empty());
  EXPECT_EQ(members.front().Text, L"SendOpeCmd(Long Command, [Text Parameters = ]) Boolean");
}

}  // namespace
