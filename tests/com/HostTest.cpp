// A host of the registered PTZD.dll that knows nothing but its type library. The environment variable
// CAMERA is the address of a simulated Axis camera.

// clang-format off
#include <winsock2.h>
// clang-format on

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <thread>

#include "Host.h"

// clang-format off
#include <QVPTZ.h>
// clang-format on

namespace {

using namespace host;

HMODULE Library() { return GetModuleHandleW(L"PTZD.dll"); }

HRESULT CanUnload() {
  const auto function = GetProcAddress(Library(), "DllCanUnloadNow");
  return reinterpret_cast<HRESULT(WINAPI*)()>(reinterpret_cast<void*>(function))();
}

template <class Interface>
ComPtr<Interface> Create(REFCLSID identifier) {
  ComPtr<Interface> object;
  EXPECT_EQ(CoCreateInstance(identifier, nullptr, CLSCTX_INPROC_SERVER, __uuidof(Interface), &object), S_OK);
  return object;
}

std::wstring Camera() {
  wchar_t address[100] = L"";
  GetEnvironmentVariableW(L"CAMERA", address, 100);
  return address;
}

/// The contents of a bag with an address and, if given, one more value.
Value Contents(const std::wstring& address, const wchar_t* name = nullptr, Value value = {}) {
  const auto bag = Create<_PropertyBag>(__uuidof(PropertyBag));
  const auto write = [&](const wchar_t* key, const Value& written) {
    auto text = Value::Text(key);
    EXPECT_EQ(bag->WriteProperty(text.bstrVal, written), S_OK);
  };
  write(L"Address", Value::Text(address.c_str()));
  if (name) write(name, value);
  Value contents;
  EXPECT_EQ(bag->get_Contents(&contents), S_OK);
  return contents;
}

/// A value that the enumeration has no name for, as any host may hand in.
template <class Enumeration>
Enumeration NoName() {
  volatile LONG number = 64;
  return static_cast<Enumeration>(number);
}

class HostTest : public testing::Test {
 protected:
  HostTest() { CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED); }
  ~HostTest() override {
    SetErrorInfo(0, nullptr);
    EXPECT_EQ(CanUnload(), S_OK) << "an object was not released";
    CoUninitialize();
  }
  static ComPtr<_PTZDevice> ConnectedAxis() {
    auto device = Create<_PTZDevice>(__uuidof(Axis));
    auto options = Contents(Camera());
    VARIANT_BOOL connected = VARIANT_FALSE;
    EXPECT_EQ(device->Connect(&options.parray, &connected), S_OK);
    EXPECT_EQ(connected, VARIANT_TRUE);
    return device;
  }
};

TEST_F(HostTest, IdentityRules) {
  const auto axis = Create<IUnknown>(__uuidof(Axis));
  const IID interfaces[] = {IID_IDispatch,         __uuidof(_Axis),       __uuidof(_PTZDevice),
                            __uuidof(_PTZDevice2), __uuidof(_PTZOptions), __uuidof(_PTZContinuousControl),
                            IID_ISupportErrorInfo, IID_IUnknown};
  for (const auto& from : interfaces) {
    ComPtr<IUnknown> first, again;
    ASSERT_EQ(axis->QueryInterface(from, &first), S_OK);
    axis->QueryInterface(from, &again);
    EXPECT_EQ(first.Get(), again.Get());
    for (const auto& to : interfaces) {
      ComPtr<IUnknown> second;
      EXPECT_EQ(first->QueryInterface(to, &second), S_OK);
    }
    EXPECT_EQ(As<IUnknown>(first).Get(), axis.Get());
  }
  const IID others[] = {__uuidof(_PTZNamedPresets), __uuidof(_PTZMoveInImage), __uuidof(_PTZOption),
                        IID_IObjectWithSite};
  for (const auto& iid : others) {
    void* object = this;
    EXPECT_EQ(axis->QueryInterface(iid, &object), E_NOINTERFACE);
    EXPECT_EQ(object, nullptr);
  }
  EXPECT_EQ(axis->QueryInterface(IID_IUnknown, nullptr), E_POINTER);
  const auto errors = As<ISupportErrorInfo>(axis);
  EXPECT_EQ(errors->InterfaceSupportsErrorInfo(__uuidof(_PTZDevice2)), S_OK);
  EXPECT_EQ(errors->InterfaceSupportsErrorInfo(__uuidof(_PTZOption)), S_FALSE);

  axis->AddRef();
  EXPECT_EQ(axis->Release(), 2U);  // this one and the one of `errors`
}

TEST_F(HostTest, OnlyTheCreatableClassesAreCreated) {
  const auto keep = Create<IUnknown>(__uuidof(PTZDrivers));
  const auto getClassObject = reinterpret_cast<HRESULT(WINAPI*)(REFCLSID, REFIID, void**)>(
      reinterpret_cast<void*>(GetProcAddress(Library(), "DllGetClassObject")));
  int classes = 0;
  const auto library = RegisteredLibrary();
  for (UINT i = 0; i < library->GetTypeInfoCount(); ++i) {
    ComPtr<ITypeInfo> info;
    library->GetTypeInfo(i, &info);
    const auto attributes = AttributesOf(info.Get());
    if (attributes.typekind != TKIND_COCLASS) continue;
    ++classes;
    const bool creatable = (attributes.wTypeFlags & TYPEFLAG_FCANCREATE) != 0;
    ComPtr<IUnknown> object;
    ComPtr<IClassFactory> factory;
    const auto created =
        CoCreateInstance(attributes.guid, nullptr, CLSCTX_INPROC_SERVER, IID_IUnknown, &object);
    const auto found = getClassObject(attributes.guid, IID_IClassFactory, &factory);
    EXPECT_EQ(created, creatable ? S_OK : REGDB_E_CLASSNOTREG);
    EXPECT_EQ(found, creatable ? S_OK : CLASS_E_CLASSNOTAVAILABLE);
    if (!factory) continue;
    void* refused = this;
    EXPECT_EQ(factory->CreateInstance(keep.Get(), IID_IUnknown, &refused), CLASS_E_NOAGGREGATION);
    EXPECT_EQ(refused, nullptr);
    EXPECT_EQ(factory->CreateInstance(nullptr, IID_IClassFactory, &refused), E_NOINTERFACE);
    EXPECT_EQ(refused, nullptr);
  }
  EXPECT_EQ(classes, 33);
}

TEST_F(HostTest, StaysLoadedWhileHeld) {
  {
    const auto option = Create<_PTZOption>(__uuidof(PTZOption));
    EXPECT_EQ(CanUnload(), S_FALSE);
  }
  EXPECT_EQ(CanUnload(), S_OK);
  ComPtr<IClassFactory> factory;
  CoGetClassObject(__uuidof(Axis), CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory, &factory);
  EXPECT_EQ(CanUnload(), S_FALSE);
  factory->LockServer(TRUE);
  auto* raw = factory.Get();
  factory = nullptr;
  EXPECT_EQ(CanUnload(), S_FALSE);
  CoGetClassObject(__uuidof(Axis), CLSCTX_INPROC_SERVER, nullptr, IID_IClassFactory, &factory);
  factory->LockServer(FALSE);
  (void)raw;
}

// Each member by its slot is in the contract suite, which runs over COM too.
TEST_F(HostTest, BothInterfacesShareOneState) {
  const auto device = Create<_PTZDevice>(__uuidof(Axis));
  const auto device2 = As<_PTZDevice2>(device);
  auto contents = Contents(Camera());
  VARIANT_BOOL truth = 7;
  EXPECT_EQ(device2->get_Connected(&truth), S_OK);
  EXPECT_EQ(truth, VARIANT_FALSE);
  EXPECT_EQ(device2->Connect(&contents.parray, &truth), S_OK);
  EXPECT_EQ(truth, VARIANT_TRUE);
  EXPECT_EQ(device->get_Connected(&truth), S_OK);
  EXPECT_EQ(truth, VARIANT_TRUE);
  EXPECT_EQ(device2->MoveTo(30, 40, 3), S_OK);
  for (const auto& [move, answer, pan] :
       {std::tuple(NoName<enum Directions>(), VARIANT_TRUE, 30.0F), {DirectionRight, VARIANT_TRUE, 39.0F}}) {
    float at = 0;
    EXPECT_EQ(device->Move(move, 9, &truth), S_OK);
    EXPECT_EQ(truth, answer);
    EXPECT_EQ(device->get_Pan(&at), S_OK);
    EXPECT_EQ(at, pan);
  }
  EXPECT_EQ(device->Iris(NoName<enum Iris>(), &truth), S_OK);
  EXPECT_EQ(truth, VARIANT_FALSE);
  ComPtr<_PTZOption> nameless;
  EXPECT_EQ(As<_PTZOptions>(device)->get_Item(Value::OfType(VT_NULL), &nameless), S_OK);

  const auto alone = Create<_PTZContinuousControl>(__uuidof(PTZContinuousControl));
  EXPECT_EQ(alone->ContinuousMove(1, 2), S_OK);
  EXPECT_EQ(alone->ContinuousZoom(3), S_OK);
  EXPECT_EQ(alone->StopContinuous(), S_OK);
}

TEST_F(HostTest, NullPointersAreRefused) {
  const auto device = Create<_PTZDevice>(__uuidof(Axis));
  const auto device2 = As<_PTZDevice2>(device);
  const auto options = As<_PTZOptions>(device);
  const auto option = Create<_PTZOption>(__uuidof(PTZOption));
  const auto drivers = Create<_PTZDrivers>(__uuidof(PTZDrivers));
  const auto bag = Create<_PropertyBag>(__uuidof(PropertyBag));
  auto key = Value::Long(1);
  ComPtr<_PTZDriver> driver, unused;
  drivers->get_Item(&key, &driver);
  VARIANT_BOOL truth;
  SAFEARRAY* none = nullptr;
  const std::function<HRESULT()> calls[] = {
      [&] { return device->get_Capabilities(nullptr); },
      [&] { return device->Connect(nullptr, &truth); },
      [&] { return device->Connect(&none, nullptr); },
      [&] { return device->get_Connected(nullptr); },
      [&] { return device->get_Pan(nullptr); },
      [&] { return device->get_Tilt(nullptr); },
      [&] { return device->Move(DirectionUp, 1, nullptr); },
      [&] { return device->MoveTo(1, 1, nullptr); },
      [&] { return device->Zoom(ZoomIn, nullptr); },
      [&] { return device->Iris(IrisAuto, nullptr); },
      [&] { return device->Focus(FocusAuto, nullptr); },
      [&] { return device->Disconnect(nullptr); },
      [&] { return device->MoveBoth(1, 1, nullptr); },
      [&] { return device->PresetCount(nullptr); },
      [&] { return device->PresetGoto(1, nullptr); },
      [&] { return device->PresetSave(1, nullptr); },
      [&] { return device->Home(nullptr); },
      [&] { return device2->get_Capabilities(nullptr); },
      [&] { return device2->Connect(nullptr, &truth); },
      [&] { return device2->Connect(&none, nullptr); },
      [&] { return device2->get_Connected(nullptr); },
      [&] { return device2->get_Pan(nullptr); },
      [&] { return device2->get_Tilt(nullptr); },
      [&] { return device2->get_ZoomLevel(nullptr); },
      [&] { return options->get_Item(key, nullptr); },
      [&] { return options->get_Count(nullptr); },
      [&] { return options->get_NewEnum(nullptr); },
      [&] { return option->get_Name(nullptr); },
      [&] { return option->get_Description(nullptr); },
      [&] { return option->get_OType(nullptr); },
      [&] { return option->get_Values(nullptr); },
      [&] { return option->get_Default(nullptr); },
      [&] { return drivers->get_Item(nullptr, &unused); },
      [&] { return drivers->get_Item(&key, nullptr); },
      [&] { return drivers->get_Count(nullptr); },
      [&] { return drivers->get_NewEnum(nullptr); },
      [&] { return driver->get_Key(nullptr); },
      [&] { return driver->get_Class(nullptr); },
      [&] { return driver->get_Name(nullptr); },
      [&] { return bag->ReadProperty(nullptr, key, nullptr); },
      [&] { return bag->get_Contents(nullptr); },
      [&] { return device->GetTypeInfoCount(nullptr); },
      [&] { return device->GetTypeInfo(0, 0, nullptr); },
      [&] { return device->Invoke(0, IID_NULL, 0, DISPATCH_METHOD, nullptr, nullptr, nullptr, nullptr); },
  };
  int row = 0;
  for (const auto& call : calls) EXPECT_EQ(call(), E_POINTER) << "row " << row++;
}

TEST_F(HostTest, ErrorsCrossWithNumberTextAndSource) {
  const auto device = Create<_PTZDevice>(__uuidof(Axis));
  VARIANT_BOOL truth = VARIANT_TRUE;
  const struct {
    Value Options;
    HRESULT Result;
    std::wstring Description;
  } rows[] = {
      {Contents(L""), Number(17003), L"No address specified"},
      {Contents(L"127.0.0.1:1"), Number(17001), L"Unable to connect to the device"},
      {Contents(L"x", L"Port", Value::Text(L"abc")), Number(13), L"Type mismatch: option Port"},
      {Contents(L"x", L"Port", Value::Double(1e10)), Number(6), L"Overflow: option Port"},
      {Value::Bytes({'n', 'o', 't', ' ', 'a', ' ', 'b', 'a', 'g'}), Number(5),
       L"The connection options cannot be read: they do not begin as the contents of a property bag do"},
      {Value::Bytes({}), Number(5),
       L"The connection options cannot be read: they do not begin as the contents of a property bag do"},
  };
  for (const auto& row : rows) {
    auto options = row.Options;
    EXPECT_EQ(device->Connect(&options.parray, &truth), row.Result);
    EXPECT_EQ(truth, VARIANT_FALSE);
    const ErrorTold told;
    EXPECT_EQ(told.Source, L"QVPTZ.Axis");
    EXPECT_EQ(told.Description, row.Description);
  }
  const auto connected = ConnectedAxis();
  EXPECT_EQ(connected->MoveTo(1e30F, 0, &truth), Number(6));  // no camera has such degrees
}

TEST_F(HostTest, LateBoundArguments) {
  const auto axis = As<IDispatch>(ConnectedAxis());
  auto null = Value::OfType(VT_NULL);
  auto variable = Value::Long(3);
  const struct {
    const wchar_t* Member;
    std::vector<Value> Arguments;
    std::vector<Named> NamedArguments;
    HRESULT Status;
  } rows[] = {
      {L"Move", {Value::Long(1)}, {}, S_OK},
      {L"MOVE", {Value::Text(L"2"), Value::Text(L"2.5")}, {}, S_OK},
      {L"Move", {Value::Long(1), Value::Boolean(true)}, {}, S_OK},  // True is -1
      {L"Move", {Value::Reference(variable, VT_VARIANT)}, {}, S_OK},
      {L"Move", {Value()}, {}, S_OK},  // Empty is 0, which is no direction
      {L"Move", {}, {{L"Angle", Value::Long(2)}}, DISP_E_PARAMNOTOPTIONAL},
      {L"Move", {Value::Missing()}, {}, DISP_E_PARAMNOTOPTIONAL},
      {L"Move", {}, {}, DISP_E_PARAMNOTOPTIONAL},
      {L"Move", {Value::Long(1), Value::Long(1), Value::Long(1)}, {}, DISP_E_BADPARAMCOUNT},
      {L"Move", {Value::Long(1)}, {{L"Direction", Value::Long(1)}}, DISP_E_PARAMNOTFOUND},
      {L"Move", {Value::Long(1)}, {{L"Speed", Value::Long(1)}}, DISP_E_UNKNOWNNAME},
      {L"Move", {Value::Long(1), Value::Text(L"abc")}, {}, DISP_E_TYPEMISMATCH},
      {L"Move", {Value::Long(1), null}, {}, DISP_E_TYPEMISMATCH},
      {L"Move", {Value::Long(1), Value::Object(axis.Get())}, {}, DISP_E_TYPEMISMATCH},
      {L"Move", {Value::Long(1), Value::Double(1e39)}, {}, DISP_E_OVERFLOW},
      {L"Move", {Value::Double(1e10)}, {}, DISP_E_OVERFLOW},
      {L"Wriggle", {}, {}, DISP_E_UNKNOWNNAME},
      {L"Pan", {Value::Long(1)}, {}, DISP_E_BADPARAMCOUNT},
  };
  for (const auto& row : rows) {
    const auto outcome = Call(axis.Get(), row.Member, row.Arguments, row.NamedArguments);
    EXPECT_EQ(outcome.Status, row.Status) << "row " << &row - rows;
    if (row.Status == DISP_E_TYPEMISMATCH) {
      EXPECT_EQ(outcome.WrongArgument, 0U);
    }
  }
  EXPECT_EQ(Call(axis.Get(), L"Home", DISPATCH_PROPERTYGET, {}).Status, DISP_E_MEMBERNOTFOUND);
  EXPECT_EQ(Call(axis.Get(), L"Pan", DISPATCH_PROPERTYPUT, {Value::Long(1)}).Status, DISP_E_MEMBERNOTFOUND);
  EXPECT_EQ(axis->Invoke(4711, IID_NULL, 0, DISPATCH_METHOD, nullptr, nullptr, nullptr, nullptr), E_POINTER);
  DISPPARAMS nothing{};
  EXPECT_EQ(axis->Invoke(4711, IID_NULL, 0, DISPATCH_METHOD, &nothing, nullptr, nullptr, nullptr),
            DISP_E_MEMBERNOTFOUND);
  EXPECT_EQ(
      axis->Invoke(DISPID_VALUE, IID_IDispatch, 0, DISPATCH_METHOD, &nothing, nullptr, nullptr, nullptr),
      DISP_E_UNKNOWNINTERFACE);
  Value enumerator;
  EXPECT_EQ(axis->Invoke(DISPID_NEWENUM, IID_NULL, 0, DISPATCH_PROPERTYGET, &nothing, &enumerator, nullptr,
                         nullptr),
            S_OK);
  EXPECT_EQ(enumerator.vt, VT_UNKNOWN);
  // The typed interface keeps the DISPIDs of the contract.
  const auto typed = As<_PTZDevice2>(axis);
  Value tilt;
  EXPECT_EQ(typed->Invoke(0x68030001, IID_NULL, 0, DISPATCH_PROPERTYGET, &nothing, &tilt, nullptr, nullptr),
            S_OK);
  EXPECT_EQ(tilt.vt, VT_R4);
}

TEST_F(HostTest, ConnectTakesByteArraysOfAllKinds) {
  auto bytes = Contents(Camera());
  auto variants =
      Value::Array(SafeArrayCreateVector(VT_VARIANT, 0, bytes.parray->rgsabound[0].cElements), VT_VARIANT);
  for (LONG i = 0; i < static_cast<LONG>(bytes.parray->rgsabound[0].cElements); ++i) {
    auto element = Value::Long(static_cast<BYTE*>(bytes.parray->pvData)[i]);
    SafeArrayPutElement(variants.parray, &i, &element);
  }
  auto tooLarge = Value::Array(SafeArrayCreateVector(VT_VARIANT, 0, 1), VT_VARIANT);
  auto element = Value::Long(256);
  LONG first = 0;
  SafeArrayPutElement(tooLarge.parray, &first, &element);
  auto longs = Value::Array(SafeArrayCreateVector(VT_I4, 0, 2), VT_I4);
  auto byReference = Value::Reference(bytes, VT_ARRAY | VT_UI1);
  auto never = Value::Array(nullptr, VT_UI1);
  const std::wstring must = L"Type mismatch: The argument Options must be a byte array, not ";
  const struct {
    Value Options;
    HRESULT Number;
    std::wstring Description;
  } rows[] = {
      {bytes, 0, L""},
      {byReference, 0, L""},
      {Value::Reference(bytes, VT_VARIANT), 0, L""},
      {Value::Reference(byReference, VT_VARIANT), 0, L""},
      {variants, 0, L""},
      {Value::Reference(variants, VT_VARIANT), 0, L""},
      {Value::Reference(never, VT_ARRAY | VT_UI1), Number(5),
       L"The connection options cannot be read: they do not begin as the contents of a property bag do"},
      {tooLarge, Number(6),
       L"Overflow: an element of The argument Options is not in the range from 0 to 255"},
      {longs, Number(13), must + L"an array of another kind"},
      {Value::Text(L"camera"), Number(13), must + L"a text"},
      {Value::Long(5), Number(13), must + L"a number"},
      {Value::OfType(VT_NULL), Number(13), must + L"Null"},
      {Value(), Number(13), must + L"Empty"},
      {Value::Object(nullptr), Number(13), must + L"an object"},
  };
  for (const auto iid : {IID_IDispatch, __uuidof(_PTZDevice), __uuidof(_PTZDevice2)}) {
    const auto axis = Create<IUnknown>(__uuidof(Axis));
    ComPtr<IDispatch> object;
    axis->QueryInterface(iid, &object);
    for (const auto& row : rows) {
      const auto outcome = Call(object.Get(), L"Connect", {row.Options});
      EXPECT_EQ(outcome.Status, row.Number ? DISP_E_EXCEPTION : S_OK) << "row " << &row - rows;
      EXPECT_EQ(outcome.Number, row.Number) << "row " << &row - rows;
      EXPECT_EQ(outcome.Description, row.Description);
      EXPECT_TRUE(row.Number || outcome.Result.boolVal == VARIANT_TRUE);
    }
  }
}

TEST_F(HostTest, OptionsAndCatalogueAndBag) {
  const auto option = Create<_PTZOption>(__uuidof(PTZOption));
  auto name = Value::Text(L"Speed"), description = Value::Text(L"How fast"), other = Value::Text(L"Other");
  auto* numbers = SafeArrayCreateVector(VT_I2, 1, 2);
  for (LONG i = 1; i <= 2; ++i) {
    short number = static_cast<short>(i * 10);
    SafeArrayPutElement(numbers, &i, &number);
  }
  const auto values = Value::Array(numbers, VT_I2);
  auto date = Value::OfType(VT_DATE);
  date.date = 40000.5;
  EXPECT_EQ(option->Init(name.bstrVal, description.bstrVal, 2, Value::Long(3), date), Number(13));
  EXPECT_EQ(option->Init(name.bstrVal, description.bstrVal, 2, values, date), S_OK);
  EXPECT_EQ(option->Init(other.bstrVal, description.bstrVal, 8, values, date), Number(5));
  EXPECT_EQ(ErrorTold().Source, L"QVPTZ.PTZOption");
  BSTR text = nullptr;
  LONG number = 0;
  SAFEARRAY* array = nullptr;
  Value value;
  option->get_Name(&text);
  EXPECT_EQ(Text(text), L"Speed");
  option->get_Description(&text);
  EXPECT_EQ(Text(text), L"How fast");
  option->get_OType(&number);
  EXPECT_EQ(number, 2);
  option->get_Default(&value);
  EXPECT_EQ(value.vt, VT_DATE);  // kept as the host gave it
  ASSERT_EQ(option->get_Values(&array), S_OK);
  LONG second = 2;
  Value element;
  EXPECT_EQ(SafeArrayGetElement(array, &second, &element), S_OK);
  EXPECT_EQ(element.vt, VT_I2);
  EXPECT_EQ(element.iVal, 20);
  SafeArrayDestroy(array);

  const auto drivers = Create<_PTZDrivers>(__uuidof(PTZDrivers));
  const struct {
    Value Index;
    std::wstring Class;
  } rows[] = {{Value::Long(1), L"QVPTZ.ALinking"},
              {Value::Double(25), L"QVPTZ.Quorvane"},
              {Value::Long(0), L""},
              {Value::Long(10000), L""},
              {Value::Text(L"1"), L""},
              {Value::Text(L"QVPTZ.Axis"), L""}};
  for (const auto& row : rows) {
    auto index = row.Index;
    ComPtr<_PTZDriver> driver, again;
    const auto result = drivers->get_Item(&index, &driver);
    if (row.Class.empty()) {
      EXPECT_EQ(result, Number(5));
      EXPECT_FALSE(driver);
      continue;
    }
    drivers->get_Item(&index, &again);
    EXPECT_EQ(driver.Get(), again.Get());
    driver->get_Class(&text);
    EXPECT_EQ(Text(text), row.Class);
    EXPECT_EQ(driver->put_Key(other.bstrVal), S_OK);
    again->get_Key(&text);
    EXPECT_EQ(Text(text), L"Other");
    EXPECT_EQ(driver->get_Name(&text), S_OK);
    EXPECT_FALSE(Text(text).empty());
  }

  const auto bag = Create<_PropertyBag>(__uuidof(PropertyBag));
  EXPECT_EQ(bag->WriteProperty(name.bstrVal, Value::Text(L"\u00E4 & \u4E2D")), S_OK);
  EXPECT_EQ(bag->WriteProperty(name.bstrVal, Value::Object(As<IDispatch>(bag).Get())), Number(13));
  Value contents;
  bag->get_Contents(&contents);
  const auto copy = Create<_PropertyBag>(__uuidof(PropertyBag));
  EXPECT_EQ(copy->put_Contents(contents), S_OK);
  EXPECT_EQ(copy->ReadProperty(name.bstrVal, Value::Missing(), &value), S_OK);
  EXPECT_EQ(std::wstring(value.bstrVal), L"\u00E4 & \u4E2D");
  EXPECT_EQ(copy->ReadProperty(other.bstrVal, date, &value), S_OK);
  EXPECT_EQ(value.vt, VT_DATE);
  EXPECT_EQ(copy->ReadProperty(other.bstrVal, Value::Missing(), &value), S_OK);
  EXPECT_EQ(value.vt, VT_EMPTY);
  EXPECT_EQ(copy->put_Contents(Value::Long(1)), Number(13));
}

/// A value that is the receiver's from now on.
VARIANT Give(Value value) {
  VARIANT given = value;
  VariantInit(&value);
  return given;
}

/// What a host's objects have in common: late-bound members by name, in the order of their numbers from 1.
class ScriptObject : public IDispatch {
 public:
  explicit ScriptObject(std::vector<std::wstring> members) : Members_(std::move(members)) {}
  virtual ~ScriptObject() = default;

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    const bool known = IsEqualIID(iid, IID_IDispatch) || IsEqualIID(iid, IID_IUnknown);
    *object = known ? this : nullptr;
    if (known) AddRef();
    return known ? S_OK : E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++References; }
  ULONG STDMETHODCALLTYPE Release() override { return --References; }
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT*) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT, LCID, ITypeInfo**) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID, LPOLESTR* names, UINT, LCID, DISPID* ids) override {
    for (std::size_t i = 0; i < Members_.size(); ++i)
      if (Members_[i] == names[0]) return *ids = static_cast<DISPID>(i + 1), S_OK;
    return *ids = DISPID_UNKNOWN, DISP_E_UNKNOWNNAME;
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID id, REFIID, LCID, WORD kind, DISPPARAMS* arguments, VARIANT* result,
                                   EXCEPINFO* error, UINT*) override {
    return Call(Members_.at(static_cast<std::size_t>(id) - 1), kind, *arguments, result, error);
  }

  ULONG References = 1;

 protected:
  static HRESULT Raise(EXCEPINFO* error, int number, const wchar_t* description, const wchar_t* source) {
    error->scode = Number(number);
    error->bstrDescription = SysAllocString(description);
    error->bstrSource = SysAllocString(source);
    return DISP_E_EXCEPTION;
  }

 private:
  virtual HRESULT Call(const std::wstring& name, WORD kind, const DISPPARAMS& arguments, VARIANT* result,
                       EXCEPINFO* error) = 0;

  std::vector<std::wstring> Members_;
};

/// Stands in for the property bag of a component run time, which reads its own bytes.
class RunTimeBag final : public ScriptObject, public IClassFactory {
 public:
  RunTimeBag() : ScriptObject({L"Contents", L"ReadProperty"}) {}
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override {
    if (!IsEqualIID(iid, IID_IClassFactory)) return ScriptObject::QueryInterface(iid, object);
    *object = static_cast<IClassFactory*>(this);
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ScriptObject::AddRef(); }
  ULONG STDMETHODCALLTYPE Release() override { return ScriptObject::Release(); }
  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID iid, void** object) override {
    return QueryInterface(iid, object);
  }
  HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }

  bool Opened = false, HoldsObject = false;

 private:
  HRESULT Call(const std::wstring& name, WORD, const DISPPARAMS& arguments, VARIANT* result,
               EXCEPINFO* error) override {
    if (name == L"Contents") {
      const auto& bytes = arguments.rgvarg[0];
      Opened = bytes.vt == (VT_ARRAY | VT_UI1) && bytes.parray->rgsabound[0].cElements == 4 &&
               std::memcmp(bytes.parray->pvData, "bag1", 4) == 0;
      return Opened ? S_OK : Raise(error, 327, L"No such data", L"RunTime");
    }
    const std::wstring key = arguments.rgvarg[1].bstrVal;
    if (key == L"Address")
      *result = Give(Value::Text(Camera().c_str()));
    else if (key == L"Port" && HoldsObject)
      *result = Give(Value::Object(this));
    else
      return VariantCopy(result, &arguments.rgvarg[0]);
    return S_OK;
  }
};

TEST_F(HostTest, ReadsTheBagOfTheRunTimeWhereItIsInstalled) {
  static constexpr CLSID runTimePropertyBag = {
      0xD5DE8D20, 0x5BB8, 0x11D1, {0xA1, 0xE3, 0x00, 0xA0, 0xC9, 0x0F, 0x27, 0x31}};
  const auto device = Create<_PTZDevice>(__uuidof(Axis));
  auto options = Value::Bytes({'b', 'a', 'g', '1'}), wrong = Value::Bytes({'b', 'a', 'g', '2'});
  VARIANT_BOOL connected = VARIANT_TRUE;
  EXPECT_EQ(device->Connect(&options.parray, &connected), Number(5));  // not installed

  RunTimeBag bag;
  DWORD registered = 0;
  ASSERT_EQ(CoRegisterClassObject(runTimePropertyBag, static_cast<IClassFactory*>(&bag), CLSCTX_INPROC_SERVER,
                                  REGCLS_MULTIPLEUSE, &registered),
            S_OK);
  EXPECT_EQ(device->Connect(&options.parray, &connected), S_OK);
  EXPECT_EQ(connected, VARIANT_TRUE);
  EXPECT_EQ(device->Connect(&wrong.parray, &connected), Number(327));  // as the class raised it
  const ErrorTold told;
  EXPECT_EQ(told.Source, L"RunTime");
  EXPECT_EQ(told.Description, L"No such data");
  bag.HoldsObject = true;
  EXPECT_EQ(device->Connect(&options.parray, &connected), Number(13));
  auto ours = Contents(Camera());
  bag.Opened = false;
  EXPECT_EQ(device->Connect(&ours.parray, &connected), S_OK);  // the class is not asked about our own bytes
  EXPECT_FALSE(bag.Opened);
  CoRevokeClassObject(registered);
}

class HostPort final : public ScriptObject {
 public:
  HostPort() : ScriptObject({L"CommPort", L"Settings", L"PortOpen", L"Output"}) {}

  bool Open = false, Broken = false;
  std::wstring Settings;
  std::vector<std::vector<BYTE>> Frames;

 private:
  HRESULT Call(const std::wstring& name, WORD kind, const DISPPARAMS& arguments, VARIANT* result,
               EXCEPINFO* error) override {
    if (kind == DISPATCH_PROPERTYGET && name == L"CommPort") return *result = Give(Value::Long(7)), S_OK;
    if (kind == DISPATCH_PROPERTYGET && name == L"PortOpen")
      return *result = Give(Value::Boolean(Open)), S_OK;
    if (kind != DISPATCH_PROPERTYPUT) return DISP_E_MEMBERNOTFOUND;
    const auto& argument = arguments.rgvarg[0];
    if (name == L"Settings" && argument.vt == VT_BSTR) return Settings = argument.bstrVal, S_OK;
    if (name == L"PortOpen" && argument.vt == VT_BOOL) return Open = argument.boolVal != VARIANT_FALSE, S_OK;
    if (name != L"Output" || argument.vt != (VT_ARRAY | VT_UI1)) return DISP_E_TYPEMISMATCH;
    if (Broken) return Raise(error, 8020, L"Error reading comm device", L"HostPort");
    const auto* bytes = static_cast<BYTE*>(argument.parray->pvData);
    Frames.emplace_back(bytes, bytes + argument.parray->rgsabound[0].cElements);
    return S_OK;
  }
};

class HostPool final : public ScriptObject {
 public:
  HostPool() : ScriptObject({L"AcquirePort", L"ReleasePort"}) {}

  HostPort Port;
  int Users = 0;

 private:
  HRESULT Call(const std::wstring& name, WORD kind, const DISPPARAMS& arguments, VARIANT* result,
               EXCEPINFO*) override {
    const auto& argument = arguments.rgvarg[0];
    if (kind != DISPATCH_METHOD || argument.vt != VT_I4) return DISP_E_MEMBERNOTFOUND;
    if (name == L"AcquirePort") {
      const bool there = argument.lVal == 7;
      Users += there;
      return *result = Give(Value::Object(there ? &Port : nullptr)), S_OK;
    }
    return *result = Give(Value::Boolean(--Users == 0)), S_OK;
  }
};

TEST_F(HostTest, DriversUseTheHostsSerialPorts) {
  HostPool pool;
  const auto contents = [](LONG port) {
    const auto bag = Create<_PropertyBag>(__uuidof(PropertyBag));
    auto name = Value::Text(L"COMPort");
    bag->WriteProperty(name.bstrVal, Value::Long(port));
    Value bytes;
    bag->get_Contents(&bytes);
    return bytes;
  };
  {
    const auto ports = Create<_SerialPorts>(__uuidof(SerialPorts));
    const auto first = Create<IDispatch>(__uuidof(Pelco)), second = Create<IDispatch>(__uuidof(Pelco));
    EXPECT_EQ(ports->UsePool(&pool), S_OK);
    const auto connected = [&](const ComPtr<IDispatch>& driver, LONG port) {
      return Call(driver.Get(), L"Connect", {contents(port)}).Result.boolVal != VARIANT_FALSE;
    };
    EXPECT_FALSE(connected(first, 8));  // the host has no such port
    EXPECT_TRUE(connected(first, 7));
    EXPECT_EQ(pool.Port.Settings, L"2400,n,8,1");
    EXPECT_TRUE(pool.Port.Open);
    pool.Port.Settings.clear();
    EXPECT_TRUE(connected(second, 7));
    EXPECT_EQ(pool.Port.Settings, L"") << "the port was open already";
    EXPECT_EQ(pool.Users, 2);

    EXPECT_EQ(Call(first.Get(), L"PresetGoto", {Value::Long(2)}).Status, S_OK);
    const std::vector<std::vector<BYTE>> frames = {{0xFF, 0x01, 0x00, 0x07, 0x00, 0x03, 0x0B}};
    EXPECT_EQ(pool.Port.Frames, frames);
    pool.Port.Broken = true;
    const auto failed = Call(first.Get(), L"PresetGoto", {Value::Long(2)});
    EXPECT_EQ(failed.Number, Number(8020));  // as the host raised it
    EXPECT_EQ(failed.Description, L"Error reading comm device");
    EXPECT_EQ(failed.Source, L"HostPort");

    Call(first.Get(), L"Disconnect");
    EXPECT_TRUE(pool.Port.Open) << "the second driver still uses it";
    // Connected drivers stay with the pool that their port is from.
    EXPECT_EQ(Call(ports.Get(), L"UsePool", {Value::Object(nullptr)}).Status, S_OK);
    Call(second.Get(), L"Disconnect");
    EXPECT_FALSE(pool.Port.Open);
    EXPECT_EQ(pool.Users, 0);
    EXPECT_FALSE(connected(second, 7)) << "the library's own ports are not back";

    EXPECT_EQ(Call(ports.Get(), L"UsePool", {Value::Text(L"pool")}).Status, DISP_E_TYPEMISMATCH);
    EXPECT_EQ(ports->UsePool(&pool.Port), S_OK);
    EXPECT_FALSE(connected(first, 7)) << "the object has no member AcquirePort";
    EXPECT_EQ(ports->UsePool(&pool), S_OK);
    EXPECT_TRUE(connected(first, 7));
  }
  EXPECT_EQ(pool.Users, 0);
  EXPECT_EQ(pool.References, 1U) << "the host's pool is held";
  EXPECT_EQ(pool.Port.References, 1U);
  const auto after = Create<IDispatch>(__uuidof(Pelco));
  EXPECT_EQ(Call(after.Get(), L"Connect", {contents(7)}).Result.boolVal, VARIANT_FALSE)
      << "the pool outlived its SerialPorts object";
}

/// A Sony camera that answers inquiries and never a command. It closes every connection but a command's.
class SilentCamera {
 public:
  SilentCamera() {
    WSADATA data;
    WSAStartup(MAKEWORD(2, 2), &data);
    Listener_ = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    Address_.sin_family = AF_INET;
    Address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int size = sizeof Address_;
    EXPECT_EQ(bind(Listener_, reinterpret_cast<sockaddr*>(&Address_), size), 0);
    getsockname(Listener_, reinterpret_cast<sockaddr*>(&Address_), &size);
    listen(Listener_, 8);
    CommandCame_ = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    Thread_ = std::thread([this] { Serve(); });
  }
  ~SilentCamera() {
    HangUp();
    closesocket(Listener_);
    CloseHandle(CommandCame_);
    WSACleanup();
  }

  std::wstring Address() const { return L"127.0.0.1:" + std::to_wstring(ntohs(Address_.sin_port)); }
  bool HasCommand() { return WaitForSingleObject(CommandCame_, 30000) == WAIT_OBJECT_0; }
  void HangUp() {
    if (!Thread_.joinable()) return;
    Ended_ = true;
    const auto wake = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    connect(wake, reinterpret_cast<sockaddr*>(&Address_), sizeof Address_);
    Thread_.join();
    closesocket(wake);
    for (const auto held : Commands_) closesocket(held);
    Commands_.clear();
  }

 private:
  void Serve() {
    for (;;) {
      const auto connection = accept(Listener_, nullptr, nullptr);
      if (Ended_) {
        closesocket(connection);
        return;
      }
      std::string request;
      char bytes[1000];
      for (int count = 1; count > 0 && request.find("\r\n\r\n") == request.npos;) {
        count = recv(connection, bytes, sizeof bytes, 0);
        if (count > 0) request.append(bytes, static_cast<std::size_t>(count));
      }
      const auto path = request.substr(0, request.find(" HTTP"));
      std::string reply;
      if (path.starts_with("GET /command/inquiry.cgi"))
        reply =
            "HTTP/1.1 200 OK\r\nConnection: close\r\n\r\n"
            "CGIVersion=1.00&ModelName=SNC-P5&PanTiltFunc=1&PanTiltMaxVelocity=24";
      else if (path.starts_with("GET /command/visca-inquiry.cgi"))
        reply = "HTTP/1.1 404 Not Found\r\nConnection: close\r\nContent-Length: 0\r\n\r\n";
      if (reply.empty()) {
        Commands_.push_back(connection);
        SetEvent(CommandCame_);
      } else {
        send(connection, reply.data(), static_cast<int>(reply.size()), 0);
        closesocket(connection);
      }
    }
  }

  SOCKET Listener_;
  sockaddr_in Address_{};
  HANDLE CommandCame_;
  std::atomic<bool> Ended_ = false;
  std::vector<SOCKET> Commands_;
  std::thread Thread_;
};

TEST_F(HostTest, StaysLoadedWhileACommandIsUnderWay) {
  SilentCamera camera;
  {
    const auto device = Create<_PTZDevice>(__uuidof(Sony));
    auto options = Contents(camera.Address());
    VARIANT_BOOL truth = VARIANT_FALSE;
    ASSERT_EQ(device->Connect(&options.parray, &truth), S_OK);
    EXPECT_EQ(device->MoveTo(10, 5, &truth), S_OK);  // returns though the camera never answers
    EXPECT_EQ(truth, VARIANT_TRUE);
    EXPECT_TRUE(camera.HasCommand());
  }
  EXPECT_EQ(CanUnload(), S_FALSE);
  camera.HangUp();
  // A thread of the system tells the end.
  const auto deadline = GetTickCount64() + 30000;
  while (CanUnload() != S_OK && GetTickCount64() < deadline) SwitchToThread();
}

/// Runs work on a thread of the other apartment while this one answers its calls.
void OnOtherApartment(const std::function<void()>& work) {
  const HANDLE done = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  std::thread thread([&] {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    work();
    CoUninitialize();
    SetEvent(done);
  });
  for (;;) {
    const auto woken = MsgWaitForMultipleObjects(1, &done, FALSE, 30000, QS_ALLINPUT);
    if (woken != WAIT_OBJECT_0 + 1) {
      EXPECT_EQ(woken, WAIT_OBJECT_0);
      break;
    }
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) DispatchMessageW(&message);
  }
  thread.join();
  CloseHandle(done);
}

TEST_F(HostTest, TwoApartments) {
  auto device = ConnectedAxis();
  VARIANT_BOOL truth;
  device->MoveTo(11, 22, &truth);
  IStream* stream = nullptr;
  ASSERT_EQ(CoMarshalInterThreadInterfaceInStream(__uuidof(_PTZDevice), device.Get(), &stream), S_OK);
  OnOtherApartment([&] {
    ComPtr<_PTZDevice> proxy;
    ASSERT_EQ(CoGetInterfaceAndReleaseStream(stream, __uuidof(_PTZDevice), &proxy), S_OK);
    EXPECT_NE(proxy.Get(), device.Get());
    float pan = 0;
    EXPECT_EQ(proxy->get_Pan(&pan), S_OK);
    EXPECT_EQ(pan, 11);
    VARIANT_BOOL moved = VARIANT_FALSE;
    EXPECT_EQ(proxy->Move(DirectionRight, 4, &moved), S_OK);
    EXPECT_EQ(moved, VARIANT_TRUE);
  });
  float pan = 0;
  device->get_Pan(&pan);
  EXPECT_EQ(pan, 15);

  // The last reference dropped where it was never used.
  device->AddRef();
  auto* raw = device.Get();
  device = nullptr;
  EXPECT_EQ(CanUnload(), S_FALSE);
  OnOtherApartment([raw] { EXPECT_EQ(raw->Release(), 0U); });
}

/// Blocks in use on all heaps of the process.
std::size_t BlocksInUse() {
  HANDLE heaps[64];
  const auto count = GetProcessHeaps(64, heaps);
  std::size_t blocks = 0;
  for (DWORD i = 0; i < count; ++i) {
    PROCESS_HEAP_ENTRY entry{};
    while (HeapWalk(heaps[i], &entry))
      if (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) ++blocks;
  }
  return blocks;
}

TEST_F(HostTest, CyclesLeakNothing) {
  const auto contents = Contents(L"");
  const auto cycle = [&] {
    const auto axis = Create<IDispatch>(__uuidof(Axis));
    Call(axis.Get(), L"Connect", {contents});  // fails for want of an address
    const auto item = Call(axis.Get(), L"Item", {Value::Long(0)});
    ComPtr<IUnknown> enumerator;
    As<_PTZOptions>(axis)->get_NewEnum(&enumerator);
    Value value;
    As<IEnumVARIANT>(enumerator)->Next(1, &value, nullptr);
  };
  for (int i = 0; i < 200; ++i) cycle();
  const auto blocks = BlocksInUse();
  DWORD handles = 0, handlesAfter = 0;
  GetProcessHandleCount(GetCurrentProcess(), &handles);
  constexpr std::size_t cycles = 10000;
  for (std::size_t i = 0; i < cycles; ++i) cycle();
  GetProcessHandleCount(GetCurrentProcess(), &handlesAfter);
  EXPECT_LE(BlocksInUse(),
            blocks + cycles / 100);  // one block or handle a cycle would be a hundred times that
  EXPECT_LE(handlesAfter, handles + cycles / 100);
}

}  // namespace
