// The adaptors and the collection, over a device that implements every interface. No driver does.

#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <stdexcept>

#include <ptzd/DriverFactory.h>
#include "com/ClassTable.h"
#include "com/Collection.h"
#include "com/Driver.h"
#include "com/Host.h"
#include "com/Module.h"
#include "drivers/kit/DeviceBridge.h"

namespace {

using namespace host;
using ptzd::Error;

std::string Told;  // what the device was last asked to do

class Device final : public ptzd::PTZDeviceBridge,
                     public ptzd::PTZDevice2Bridge,
                     public ptzd::PTZContinuousControl,
                     public ptzd::PTZNamedPresets,
                     public ptzd::PTZMoveInImage {
 public:
  bool Zoom(ptzd::Zooms level) override {
    Told = "Zoom " + std::to_string(level);
    return true;
  }
  void Zoom(ptzd::Zooms direction, float amount) override {
    Told = "Zoom2 " + std::to_string(direction) + " " + std::to_string(amount);
  }
  bool Iris(ptzd::Iris) override { throw std::bad_alloc(); }
  bool Focus(ptzd::Focus) override { throw std::runtime_error("lost"); }
  bool PresetGoto(std::int32_t) override { throw Error(13106, "Broken", ""); }
  bool PresetSave(std::int32_t) override {
    throw Error(static_cast<std::int32_t>(0x80072EE7), "Unknown host", "HTTPClient");
  }
  std::vector<ptzd::PTZNamedPreset> GetNamedPresets() override {
    return {{7, "d7", "Door"}, {3, "D7", "Gate"}, {5, "yard", "Yard \xC3\xA4"}};
  }
  void GotoNamedPreset(const std::string& id) override { Told = "Goto " + id; }
  void MoveInImage(std::int32_t x, std::int32_t y, std::int32_t width, std::int32_t height) override {
    Told = std::to_string(x) + "," + std::to_string(y) + " of " + std::to_string(width) + "x" +
           std::to_string(height);
  }

 private:
  bool DeviceMove(ptzd::Directions direction, float angle) override {
    Told = "Move " + std::to_string(direction) + " " + std::to_string(angle);
    return true;
  }
  bool DeviceMoveBoth(float, float) override { return true; }
  ptzd::Variant DeviceDisconnect() override { return {}; }
  void Device2Move(ptzd::Directions direction, float angle) override { DeviceMove(direction, angle); }
  void Device2MoveBoth(float, float) override {}
  void Device2Disconnect() override {}
};

class Objects : public testing::Test {
 protected:
  Objects() {
    CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
    Create();
  }
  ~Objects() override {
    Device_ = nullptr;
    EXPECT_FALSE(ptzd::com::IsHeld()) << "an object was not released";
    CoUninitialize();
  }
  void Create() {
    auto* driver = new ptzd::com::Driver("Test", __uuidof(::_Axis), &ptzd::com::EmptyInterface<::_Axis>,
                                         std::make_unique<Device>());
    driver->QueryInterface(IID_IDispatch, &Device_);
    Told.clear();
  }

  ComPtr<IDispatch> Device_;
};

TEST_F(Objects, CallsGoToTheInterfaceWhoseMemberTakesTheArguments) {
  const struct {
    const wchar_t* Member;
    std::vector<Value> Arguments;
    std::vector<Named> NamedArguments;
    HRESULT Status;
    std::string Expected;
  } rows[] = {
      {L"Zoom", {Value::Long(1)}, {}, S_OK, "Zoom 1"},
      {L"zoom", {Value::Long(2), Value::Double(0.5)}, {}, S_OK, "Zoom2 2 0.500000"},
      {L"Zoom", {}, {{L"Direction", Value::Long(2)}}, S_OK, "Zoom2 2 0.250000"},
      {L"Zoom", {}, {{L"ZoomLevel", Value::Long(2)}}, S_OK, "Zoom 2"},
      {L"Zoom", {Value::Long(1), Value::Missing()}, {}, S_OK, "Zoom2 1 0.250000"},
      {L"Zoom", {Value::Long(1), Value::Long(1), Value::Long(1)}, {}, DISP_E_BADPARAMCOUNT, ""},
      {L"Zoom", {Value::Long(1)}, {{L"ZoomLevel", Value::Long(1)}}, DISP_E_BADPARAMCOUNT, ""},
      {L"Move", {Value::Long(77)}, {}, S_OK, "Move 77 5.000000"},  // no direction has that number
      {L"Move", {}, {{L"Angle", Value::Long(3)}, {L"Direction", Value::Long(4)}}, S_OK, "Move 4 3.000000"},
      {L"MoveInImage", {Value::Long(10), Value::Long(20)}, {}, S_OK, "10,20 of 0x0"},
      {L"MoveInImage", {Value::Long(1), Value::Long(2)}, {{L"Height", Value::Long(9)}}, S_OK, "1,2 of 0x9"},
      {L"MoveInImage", {Value::Long(1)}, {}, DISP_E_PARAMNOTOPTIONAL, ""},
      {L"GotoNamedPreset", {Value::Text(L"d7")}, {}, S_OK, "Goto d7"},
  };
  for (const auto& row : rows) {
    Told.clear();
    EXPECT_EQ(Call(Device_.Get(), row.Member, row.Arguments, row.NamedArguments).Status, row.Status)
        << row.Expected;
    EXPECT_EQ(Told, row.Expected);
  }
}

TEST_F(Objects, ExceptionsBecomeErrors) {
  const struct {
    const wchar_t* Member;
    HRESULT Number;
    std::wstring Source, Description;
  } rows[] = {
      {L"Iris", E_OUTOFMEMORY, L"", L""},
      {L"Focus", host::Number(51), L"QVPTZ.Test", L"Internal error: lost"},
      {L"PresetGoto", host::Number(13106), L"", L"Broken"},  // its own source, empty as it is
      {L"PresetSave", static_cast<HRESULT>(0x80072EE7), L"HTTPClient", L"Unknown host"},
  };
  for (const auto& row : rows) {
    const auto outcome = Call(Device_.Get(), row.Member, {Value::Long(1)});
    EXPECT_EQ(outcome.Status, DISP_E_EXCEPTION);
    EXPECT_EQ(outcome.Number, row.Number);
    EXPECT_EQ(outcome.Source, row.Source);
    EXPECT_EQ(outcome.Description, row.Description);
  }
}

TEST_F(Objects, NamedPresetsOutliveTheDevice) {
  ComPtr<IDispatch> presets;
  {
    const auto answer = Call(Device_.Get(), L"GetNamedPresets");
    ASSERT_EQ(answer.Result.vt, VT_DISPATCH);
    answer.Result.pdispVal->QueryInterface(IID_IDispatch, &presets);
  }
  Device_ = nullptr;
  EXPECT_EQ(Call(presets.Get(), L"Count").Result.lVal, 3);
  const struct {
    Value Index;
    std::wstring Name;  // empty: error 5
  } rows[] = {
      {Value::Long(1), L"Door"},
      {Value::Double(2.5), L"Gate"},
      {Value::Long(3), L"Yard \u00E4"},
      {Value::Text(L"D7"), L"Gate"},
      {Value::Text(L"YARD"), L"Yard \u00E4"},
      {Value::Long(0), L""},
      {Value::Long(4), L""},
      {Value::Text(L"1"), L""},
      {Value::Text(L""), L""},
  };
  for (const auto& row : rows) {
    const auto item = Call(presets.Get(), L"Item", {row.Index});
    if (row.Name.empty()) {
      EXPECT_EQ(item.Number, host::Number(5));
    } else {
      ASSERT_EQ(item.Status, S_OK);
      EXPECT_EQ(Call(item.Result.pdispVal, L"Name").Result.bstrVal, row.Name);
    }
  }

  // Two enumerations at once, one cloned under way; the items outlive all of it.
  const auto enumerate = [&] {
    const auto unknown = Call(presets.Get(), L"_NewEnum");
    ComPtr<IEnumVARIANT> result;
    unknown.Result.punkVal->QueryInterface(IID_IEnumVARIANT, &result);
    return result;
  };
  auto first = enumerate(), second = enumerate();
  presets = nullptr;
  Value items[4];
  ULONG fetched = 9;
  EXPECT_EQ(first->Next(2, items, &fetched), S_OK);
  EXPECT_EQ(fetched, 2U);
  ComPtr<IEnumVARIANT> clone;
  EXPECT_EQ(first->Clone(&clone), S_OK);
  EXPECT_EQ(second->Skip(1), S_OK);
  EXPECT_EQ(first->Next(2, &items[2], &fetched), S_FALSE);
  EXPECT_EQ(fetched, 1U);
  Value gate, yard;
  EXPECT_EQ(second->Next(1, &gate, nullptr), S_OK);
  EXPECT_EQ(clone->Next(1, &yard, nullptr), S_OK);
  EXPECT_EQ(clone->Next(2, &items[3], nullptr), E_POINTER);
  EXPECT_EQ(second->Skip(2), S_FALSE);
  first = nullptr, second = nullptr, clone = nullptr;
  EXPECT_EQ(Call(items[0].pdispVal, L"ID").Result.bstrVal, std::wstring(L"d7"));
  EXPECT_EQ(Call(gate.pdispVal, L"Index").Result.lVal, 3);
  EXPECT_EQ(gate.pdispVal, items[1].pdispVal);
  EXPECT_EQ(yard.pdispVal, items[2].pdispVal);
}

/// A driver is added in the driver table, in the contract and in the class table; the last two are easily
/// forgotten.
TEST(Classes, EveryDriverOfTheBuildIsAClass) {
  for (const auto& driver : ptzd::DriverClasses()) {
    const auto classes = ptzd::com::CreatableClasses();
    EXPECT_TRUE(std::ranges::any_of(classes, [&](const auto& row) { return row.ProgID() == driver.ProgID; }))
        << driver.ProgID << " cannot be created through COM";
  }
}

}  // namespace
