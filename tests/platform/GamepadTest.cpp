#include "platform/Gamepad.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/input.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>

namespace ptzd {
namespace {

namespace fs = std::filesystem;

/// A machine's input devices: pipes that are written what a kernel would tell.
class GamepadTest : public testing::Test {
 protected:
  GamepadTest() {
    char name[] = "/tmp/gamepad-XXXXXX";
    Root_ = mkdtemp(name);
    fs::create_directories(Root_ / "devices");
  }
  void TearDown() override {
    if (Writer_ >= 0) close(Writer_);
    fs::remove_all(Root_);
  }

  void Describe(const std::string& name, const char* keys, const char* axes) {
    const auto folder = Root_ / "class" / name / "device" / "capabilities";
    fs::create_directories(folder);
    std::ofstream(folder / "key") << keys << "\n";
    std::ofstream(folder / "abs") << axes << "\n";
  }
  void Plug(const std::string& name) { mkfifo((Root_ / "devices" / name).c_str(), 0600); }
  GamepadPlaces Places() const { return {Root_ / "devices", Root_ / "class"}; }

  void Write(unsigned short type, unsigned short code, int value) {
    if (Writer_ < 0) Writer_ = open((Root_ / "devices" / "event7").c_str(), O_WRONLY | O_NONBLOCK);
    const input_event event{.time = {}, .type = type, .code = code, .value = value};
    ASSERT_EQ(write(Writer_, &event, sizeof(event)), static_cast<ssize_t>(sizeof(event)));
  }
  void Report() { Write(EV_SYN, SYN_REPORT, 0); }

  fs::path Root_;
  int Writer_ = -1;
};

constexpr char PadKeys[] = "7cdb000000000000 0 0 0 0", PadAxes[] = "3001b";
constexpr char KeyboardKeys[] = "1 2 fffffffffffffffe", NoAxes[] = "0";

TEST_F(GamepadTest, IsFoundAmongOtherDevicesAndReadByReports) {
  Describe("event0", KeyboardKeys, NoAxes);
  Describe("event3", "70000 0 0 0 0", PadAxes);  // a mouse
  Describe("event7", PadKeys, PadAxes);
  Plug("event0");
  Plug("event3");
  Plug("event7");
  Gamepad pad(Places());
  pad.Poll();
  ASSERT_TRUE(pad.IsThere()) << pad.Problem();
  EXPECT_EQ(pad.Sticks().CrossX, 0);

  Write(EV_ABS, ABS_Y, 32767);
  Write(EV_ABS, ABS_X, 32767);
  Write(EV_KEY, BTN_B, 1);
  pad.Poll();
  EXPECT_EQ(pad.Sticks().LeftX, 0);  // the report is not over
  EXPECT_EQ(pad.Sticks().LeftY, 0);
  Report();
  Write(EV_ABS, ABS_X, 3000);  // a stick at rest is never quite in the middle
  Write(EV_ABS, ABS_Y, -18841);
  Write(EV_ABS, ABS_HAT0X, -1);
  Write(EV_ABS, ABS_HAT0Y, -7);  // some count further than one
  Write(EV_KEY, BTN_B, 2);
  Report();
  pad.Poll();
  EXPECT_EQ(pad.Sticks().LeftX, 0);
  EXPECT_NEAR(pad.Sticks().LeftY, 0.5F, 0.001F);  // counted from the dead zone on
  EXPECT_EQ(pad.Sticks().CrossX, -1);
  EXPECT_EQ(pad.Sticks().CrossY, 1);
  EXPECT_EQ(pad.TakePressed(), std::vector{GamepadButton::B});
  EXPECT_TRUE(pad.TakePressed().empty());

  Write(EV_ABS, ABS_HAT0X, 0);
  Write(EV_ABS, ABS_HAT0Y, 0);
  for (const auto& [button, x, y] : {std::tuple{BTN_DPAD_LEFT, -1, 0},
                                     {BTN_DPAD_RIGHT, 1, 0},
                                     {BTN_DPAD_DOWN, 0, -1},
                                     {BTN_DPAD_UP, 0, 1}}) {
    Write(EV_KEY, static_cast<unsigned short>(button), 1);
    Report();
    pad.Poll();
    EXPECT_EQ(pad.Sticks().CrossX, x) << button;
    EXPECT_EQ(pad.Sticks().CrossY, y) << button;
    Write(EV_KEY, static_cast<unsigned short>(button), 0);
  }

  Write(EV_SYN, SYN_DROPPED, 0);
  Write(EV_ABS, ABS_X, 32767);  // of what was lost in part nothing counts
  Report();
  pad.Poll();
  EXPECT_EQ(pad.Sticks().LeftX, 0);

  Write(EV_ABS, ABS_X, -32767);
  Report();
  pad.Poll();
  EXPECT_EQ(pad.Sticks().LeftX, -1);
  close(std::exchange(Writer_, -1));
  pad.Poll();
  EXPECT_EQ(pad.Sticks().LeftX, 0);  // nobody holds it any more
}

TEST_F(GamepadTest, TellsWhyOneThatSeemsToBeThereIsNot) {
  Describe("event0", KeyboardKeys, NoAxes);  // is not there either, but no gamepad
  Gamepad none(Places());
  none.Poll();
  EXPECT_FALSE(none.IsThere());
  EXPECT_EQ(none.Problem(), "");
  Describe("event7", PadKeys, PadAxes);
  Gamepad gone(Places());
  gone.Poll();
  EXPECT_FALSE(gone.IsThere());
  EXPECT_NE(gone.Problem().find("event7: No such file"), std::string::npos) << gone.Problem();
}

}  // namespace
}  // namespace ptzd
