#include <gtest/gtest.h>

#include <ptzd/DriverFactory.h>
#include <ptzd/PTZDrivers.h>
#include "catalogue/Catalogue.h"
#include "platform/DriverAnnouncements.h"
#include "support/Errors.h"

#ifndef _WIN32
#include <filesystem>
#include <fstream>

#include <ptzd/Logging.h>
#include "platform/posix/AnnouncementFiles.h"
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

TEST(PTZDrivers, ListsBuiltInsThenMachineThenUser) {
  Announced announced;
  const PTZDrivers drivers(announced);
  const auto builtIns = static_cast<std::int32_t>(Catalogue().size());
  ASSERT_EQ(drivers.Count(), builtIns + 3);
  EXPECT_EQ(drivers.Item(1)->Class(), "QVPTZ.ALinking");
  EXPECT_EQ(drivers.Item(22)->Name(), "Vivotek & D-Link cameras");
  EXPECT_EQ(drivers.Item(24)->Class(), "qvptzsimple.simple");
  EXPECT_EQ(drivers.Item(25)->Name(), "Quorvane system");
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
TEST(AnnouncementFiles, SkipsWhatIsMalformedAndSaysSo) {
  std::string name = std::filesystem::temp_directory_path() / "ptzd-announcements-XXXXXX";
  const std::filesystem::path folder = mkdtemp(name.data());
  const auto file = folder / "drivers";
  std::ofstream(file, std::ios::binary) << "\xEF\xBB\xBF# drivers of this machine\r\n"
                                           "; another comment\n\n"
                                           "  Acme.Dome =  Acme = domes \r\n"
                                           "no sign here\n"
                                           "= no ProgID\n"
                                           "Acme.Nameless=\n"
                                           "Acme.Last=last line without an end";
  std::vector<std::string> log;
  SetLogSink([&](std::string_view message) { log.emplace_back(message); });
  AnnouncementFiles files(file, folder / "absent");
  const auto machine = files.Machine();
  EXPECT_TRUE(files.User().empty());
  SetLogSink({});
  std::filesystem::remove_all(folder);

  ASSERT_EQ(machine.size(), 3U);
  EXPECT_EQ(machine[0].ProgID, "Acme.Dome");
  EXPECT_EQ(machine[0].Name, "Acme = domes");
  EXPECT_EQ(machine[1].Name, "");
  EXPECT_EQ(machine[2].Name, "last line without an end");
  ASSERT_EQ(log.size(), 2U);
  EXPECT_NE(log[0].find("line 5"), std::string::npos);
}
#endif

}  // namespace
}  // namespace ptzd
