#include <gtest/gtest.h>

#include <ptzd/DriverFactory.h>
#include <ptzd/PTZDrivers.h>
#include "platform/DriverAnnouncements.h"
#include "support/Errors.h"

#ifndef _WIN32
#include <filesystem>
#include <fstream>

#include <ptzd/Logging.h>
#include "platform/ConfigurationFolders.h"
#include "support/Environment.h"
#endif

namespace ptzd {
namespace {

using test::ErrorOf;

class Announced final : public DriverAnnouncements {
 public:
  std::vector<Announcement> Machine() override {
    return {{"QVPTZ.Axis", "Axis again"},
            {"qvptzsimple.simple", "skipped"},
            {"QVPTZSimple.Simple", "not the same"}};
  }
  std::vector<Announcement> User() override {
    return {{"Other.Driver", "Other"}, {"qvptzsimple.simple", "skipped"}};
  }
};

/// Hosts show them in this order and keep the classes.
constexpr std::pair<const char*, const char*> BuiltIns[] = {
    {"QVPTZ.ALinking", "A-Linking cameras"},
    {"QVPTZ.ACTi", "ACTi cameras"},
    {"QVPTZ.Axis", "Axis cameras"},
    {"QVPTZ.Bosch", "Bosch cameras"},
    {"QVPTZ.Elmo", "Elmo 200 series cameras"},
    {"QVPTZ.Elmo4", "Elmo 400 series cameras"},
    {"QVPTZ.Elmo402", "Elmo PTC-402C cameras"},
    {"QVPTZ.Etrovision", "Etrovision cameras"},
    {"QVPTZ.Foscam", "Foscam cameras"},
    {"QVPTZ.FoscamHD", "Foscam HD cameras"},
    {"QVPTZ.Genie", "Genie IP cameras"},
    {"QVPTZ.Grandeye", "Grandeye cameras"},
    {"QVPTZ.MeritLilin", "Merit Lilin cameras"},
    {"QVPTZ.Panasonic", "Panasonic cameras"},
    {"QVPTZ.PanasoniciPro", "Panasonic iPro cameras"},
    {"QVPTZ.Panogenics", "Panogenics cameras"},
    {"QVPTZ.Sanyo", "Sanyo cameras"},
    {"QVPTZ.Secubest", "Secubest cameras"},
    {"QVPTZ.Sony", "Sony cameras"},
    {"QVPTZ.Toshiba", "Toshiba IK-WB01 and WB11 cameras"},
    {"QVPTZ.Toshiba2", "Toshiba IK-WB15 and WB21 cameras"},
    {"QVPTZ.Vivotek", "Vivotek & D-Link cameras"},
    {"QVPTZ.Pelco", "Pelco RS485 controller"},
    {"qvptzsimple.simple", "Quorvane simple PTZ driver"},
    {"QVPTZ.Quorvane", "Quorvane system"},
};

TEST(PTZDrivers, ListsBuiltInsThenMachineThenUser) {
  Announced announced;
  const PTZDrivers drivers(announced);
  const auto builtIns = static_cast<std::int32_t>(std::size(BuiltIns));
  ASSERT_EQ(drivers.Count(), builtIns + 3);
  for (std::int32_t i = 0; i < builtIns; ++i) {
    EXPECT_EQ(drivers.Item(i + 1)->Class(), BuiltIns[i].first);
    EXPECT_EQ(drivers.Item(i + 1)->Name(), BuiltIns[i].second);
  }
  EXPECT_EQ(drivers.Item(builtIns + 1)->Name(), "Axis again");
  EXPECT_EQ(drivers.Item(builtIns + 2.4)->Class(), "QVPTZSimple.Simple");
  EXPECT_EQ(drivers.Item(builtIns + 3)->Class(), "Other.Driver");
  drivers.Item(3)->Key("mine");
  EXPECT_EQ(drivers.NewEnum()[2]->Key(), "mine");
  for (const Variant& index : {Variant(0), Variant(builtIns + 4), Variant(-1), Variant(), Variant(1e300),
                               Variant(true), Variant(std::string("1")), Variant(std::string("QVPTZ.Axis"))})
    EXPECT_EQ(ErrorOf([&] { drivers.Item(index); }), "5 Invalid procedure call or argument");
}

TEST(DriverFactory, SaysWhyItCannotCreate) {
  EXPECT_NE(CreateDriver("qvptz.AXIS"), nullptr);
  EXPECT_EQ(ErrorOf([] { CreateDriver("QVPTZ.Genie"); }),
            "429 Component can't create object: QVPTZ.Genie is listed, but its driver is not in this build");
  EXPECT_EQ(ErrorOf([] { CreateDriver("QVPTZ.Nobody"); }),
            "429 Component can't create object: QVPTZ.Nobody is not a driver this library knows");
}

#ifndef _WIN32
TEST(AnnouncementFiles, LieInTheFoldersOfTheMachineAndOfTheUser) {
  EXPECT_EQ(MachineConfigurationFolder(), "/etc/ptzd");
  const char* rows[][3] = {{"/c", "/h", "/c/ptzd"},
                           {nullptr, "/h", "/h/.config/ptzd"},
                           {"c", "/h", "/h/.config/ptzd"},  // a relative one does not count
                           {nullptr, nullptr, ""}};
  for (const auto& [configuration, home, folder] : rows) {
    const test::Environment environment{{"XDG_CONFIG_HOME", configuration}, {"HOME", home}};
    EXPECT_EQ(UserConfigurationFolder(), folder);
  }
}

TEST(AnnouncementFiles, SkipsWhatIsMalformedAndSaysSo) {
  std::string name = std::filesystem::temp_directory_path() / "ptzd-announcements-XXXXXX";
  const std::filesystem::path folder = mkdtemp(name.data());
  const test::Environment environment{{"XDG_CONFIG_HOME", name.c_str()}};
  std::filesystem::create_directory(folder / "ptzd");
  std::ofstream(folder / "ptzd/drivers", std::ios::binary) << "\xEF\xBB\xBF# drivers of this machine\r\n"
                                                              "; another comment\n\n"
                                                              "  Acme.Dome =  Acme = domes \r\n"
                                                              "no sign here\n"
                                                              "= no ProgID\n"
                                                              "Acme.Nameless=\n"
                                                              "Acme.Last=last line without an end";
  std::vector<std::string> log;
  SetLogSink([&](std::string_view message) { log.emplace_back(message); });
  const auto announced = SystemDriverAnnouncements().User();
  SetLogSink({});
  std::filesystem::remove_all(folder);
  EXPECT_TRUE(SystemDriverAnnouncements().User().empty());

  ASSERT_EQ(announced.size(), 3U);
  EXPECT_EQ(announced[0].ProgID, "Acme.Dome");
  EXPECT_EQ(announced[0].Name, "Acme = domes");
  EXPECT_EQ(announced[1].Name, "");
  EXPECT_EQ(announced[2].Name, "last line without an end");
  ASSERT_EQ(log.size(), 2U);
  EXPECT_NE(log[0].find("line 5"), std::string::npos);
}
#endif

}  // namespace
}  // namespace ptzd
