#include "cameras/CameraFile.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <system_error>

#include <ptzd/PropertyBag.h>
#include "cameras/Glide.h"
#include "cameras/InputWords.h"
#include "common/Nearest.h"
#include "platform/ConfigurationFolders.h"
#include "platform/PrivateFile.h"

namespace ptzd {
namespace {

namespace fs = std::filesystem;

std::string Told(const std::string& text, const std::string& openness = {}) {
  try {
    ReadCameras(text, "c.toml", openness);
  } catch (const InputError& error) {
    return error.what();
  }
  return "accepted";
}

/// A table of a camera that lacks nothing, with more lines.
std::string Gate(const std::string& lines) {
  return "[camera.gate]\ndriver = \"Axis\"\naddress = \"10.0.0.5:80\"\n" + lines + "\n";
}

TEST(CameraFile, IsReadWhole) {
  const auto cameras = ReadCameras(Gate("user = \"operator\"\n"
                                        "password_file = \"secrets/gate\"\n"
                                        "options = { Port = 2, Reset = true }\n"
                                        "invert_tilt = true\n"
                                        "pan_limits = [-90, 45.5]\n"
                                        "presets = { door = 1, \"far yard\" = 20 }") +
                                       "[camera.dome]\ndriver = \"pelco\"\nline = \"/dev/ttyUSB0\"\n",
                                   "/etc/site/c.toml");
  ASSERT_EQ(cameras.size(), 2U);
  const auto& dome = cameras[0];
  EXPECT_EQ(dome.Settings.Driver, "QVPTZ.Pelco");
  EXPECT_EQ(dome.Line, "/dev/ttyUSB0");
  const auto& gate = cameras[1];
  EXPECT_EQ(gate.Address, "10.0.0.5:80");
  EXPECT_EQ(gate.User, "operator");
  EXPECT_EQ(gate.Password.Text(), "file " + TextOf(PathOf("/etc/site") / PathOf("secrets/gate")));
  EXPECT_FALSE(gate.Settings.InvertPan);
  EXPECT_TRUE(gate.Settings.InvertTilt);
  EXPECT_EQ(gate.Settings.PanLimits->Least, -90);
  EXPECT_EQ(gate.Settings.PanLimits->Greatest, 45.5F);
  EXPECT_FALSE(gate.Settings.TiltLimits);
  EXPECT_EQ(gate.Settings.Presets, (std::map<std::string, std::int32_t>{{"door", 1}, {"far yard", 20}}));
  PropertyBag options;
  options.Contents(gate.Settings.Options);
  EXPECT_EQ(options.Long("Port", 0), 2);
  EXPECT_TRUE(options.Boolean("Reset", false));
}

TEST(CameraFile, TellsWhereItIsWrong) {
  const struct {
    std::string Text, Told;
  } rows[] = {
      {"[camera.gate\n", "c.toml:1:13: "},
      {Gate("password = hunter2"),
       "c.toml:4:12: expected a key, \"=\" and a text in quotes"},  // and not "hunter2"
      {Gate("user = \"a\"\nuser = \"b\""), "c.toml:5:"},
      {Gate("") + Gate(""), "c.toml:5:"},
      {Gate("") + "[camera.GATE]\ndriver = \"Axis\"\naddress = \"a\"\n",
       "c.toml:1:9: camera gate: expected another name, since there is GATE"},
      {"[gate]\n", "c.toml:1:2: expected cameras as [camera.NAME], not \"gate\""},
      {"camera = 3\n", "c.toml:1:10: camera: expected a table, not a whole number"},
      {"[camera.\"front gate\"]\n", "c.toml:1:9: \"front gate\" is no name for a camera"},
      {"[camera.\"\\u001B[2J\"]\n", "c.toml:1:9: \"\\x1B[2J\" is no name for a camera"},
      {"[camera.gate]\n", "c.toml:1:1: camera gate: expected a driver"},
      {"[camera.gate]\ndriver = \"Axis\"\n", "c.toml:1:1: camera gate: expected an address"},
      {"[camera.gate]\ndriver = \"Axs\"\n",
       "c.toml:2:10: camera gate: there is no driver \"Axs\"; do you mean Axis?"},
      {"[camera.gate]\ndriver = 5\n",
       "c.toml:2:10: camera gate, driver: expected a text in quotes, not a whole number"},
      {Gate("pan_limit = [1, 2]"),
       "c.toml:4:1: camera gate: the key \"pan_limit\" is not known; do you mean pan_limits?"},
      {Gate("pan_limits = [1, 2, 3]"),
       "c.toml:4:14: camera gate, pan_limits: expected a list of two numbers"},
      {Gate("pan_limits = [90, -90]"),
       "c.toml:4:14: camera gate, pan_limits: expected the lesser number first"},
      {Gate("pan_limits = [-inf, 90]"), "c.toml:4:15: camera gate, pan_limits: the number is too large"},
      {Gate("invert_pan = 1"),
       "c.toml:4:14: camera gate, invert_pan: expected true or false, not a whole number"},
      {Gate("presets = { 2nd = 1 }"),
       "c.toml:4:13: camera gate, presets: expected a name that begins as no number"},
      {Gate("presets = { door = -1 }"), "presets door: presets are counted from 0"},
      {Gate("options = { Prt = 2 }"),
       "c.toml:4:13: the option of the driver QVPTZ.Axis \"Prt\" is not known; do you mean Port?"},
      {Gate("options = { Port = \"2\" }"), "options Port: expected a whole number, not a text"},
      {Gate("options = { ZoomStep = 10001 }"), "c.toml:4:24: ZoomStep: 10001 is not between"},
      {Gate("options = { Address = \"x\" }"), "expected this as address of the camera"},
      {Gate("line = \"COM1\""), "c.toml:4:1: camera gate, line: the driver QVPTZ.Axis uses no serial line"},
      {"[camera.gate]\ndriver = \"Axis\"\naddress = \"http://10.0.0.5\"\n",
       "c.toml:3:11: camera gate, address: HOST"},
      {"[camera.gate]\ndriver = \"Axis\"\naddress = \"10.0.0.5:80:x\"\n",
       "c.toml:3:11: camera gate, address: \"10.0.0.5:80:x\": behind the colon a port"},
      {"[camera.gate]\ndriver = \"Axis\"\naddress = \"a:hunter2@10.0.0.5\"\n",
       "c.toml:3:11: camera gate, address: expected HOST or HOST:PORT; a user"},
      {Gate("password_env = \"X\""), "c.toml:4:1: camera gate: expected a user beside password_env"},
      {Gate("user = \"a\"\npassword = 5"),
       "c.toml:5:12: camera gate, password: expected a text in quotes, not a whole number"},
      {Gate("user = \"a\"\npassword_env = \"X\"\npassword_prompt = true"),
       "expected one source of the password"},
  };
  for (const auto& row : rows) {
    const auto told = Told(row.Text);
    EXPECT_NE(told.find(row.Told), std::string::npos) << row.Text << "was told: " << told;
    EXPECT_EQ(told.find("hunter2"), std::string::npos) << told;
  }
  for (const std::string key : {"driver", "address", "line", "options", "user", "password", "password_env",
                                "password_file", "password_keyring", "password_prompt", "invert_pan",
                                "invert_tilt", "pan_limits", "tilt_limits", "zoom_limits", "presets"})
    EXPECT_NE(Told(Gate(key + "x = 1")).find("do you mean " + key + "?"), std::string::npos) << key;
  EXPECT_EQ(Told(Gate("user = \"a\"\npassword = \"hunter2\"")), "accepted");
  EXPECT_EQ(Told(Gate("user = \"a\"\npassword = \"hunter2\""), "others may"),
            "c.toml:5:12: camera gate, password: no password may stand in this file: others may");
}

TEST(CameraFile, TakesWhatItIsGivenWhole) {
  const std::string gate =
      "[camera.\"front.gate\"]\ndriver = \"Axis\"\naddress = \"10.0.0.5\"\nuser = \"me\"\n"
      "password = \"a\\\"b\\\\\"\noptions = { Port = 2, Reset = true }\ninvert_pan = true\ninvert_tilt = "
      "true\n"
      "pan_limits = [-90, 45.5]\ntilt_limits = [0, 1]\nzoom_limits = [1, 2]\n"
      "presets = { \"door\" = 1, \"far yard\" = 20 }\n";
  const std::string line = "[camera.dome]\ndriver = \"Pelco\"\nline = \"/dev/ttyUSB0\"\n";
  const fs::path file = testing::TempDir() + "camera-file-test.toml";
  fs::remove(file);
  for (const auto& text : {line, gate}) StoreCamera(TextOf(file), ReadCameras(text, "c.toml").at(0), false);
  EXPECT_EQ(ReadWholeFile(file, 1000).Text, line + "\n" + gate);
  RemoveCamera(TextOf(file), "front.gate");
  EXPECT_EQ(ReadWholeFile(file, 1000).Text, line + "\n");
  fs::remove(file);
}

TEST(Glide, ComesNearOnBothAxesTogether) {
  Glide glide(10, -20, 5);
  const struct {
    float Pan, Tilt;
    bool IsTurned;
    float PanSpeed, TiltSpeed;
  } rows[] = {{0, 0, true, 2.5, -5},
              {8.5, -5, false, 0.5, -5},
              {9, -10, true, 0, -5},
              {7, -17, false, 0, -5},  // what is near stays so
              {7, -22, true, 0, 0}};
  for (const auto& row : rows) {
    EXPECT_EQ(glide.Aim({.Pan = row.Pan, .Tilt = row.Tilt}), row.IsTurned);
    EXPECT_EQ(glide.Speeds().Pan, row.PanSpeed);
    EXPECT_EQ(glide.Speeds().Tilt, row.TiltSpeed);
    EXPECT_EQ(glide.IsOver(), row.TiltSpeed == 0);
  }
}

TEST(PrivateFile, IsReplacedWholeAndLeavesNothingOpen) {
  const auto descriptors = [] {
    std::error_code none;  // Windows has no such folder
    return std::distance(fs::directory_iterator("/proc/self/fd", none), fs::directory_iterator());
  };
  const auto before = descriptors();
  const fs::path folder = testing::TempDir() + "private-file-test";
  const auto path = folder / "new" / "cameras.toml";
  {
    const auto held = HoldFile(path);
    for (const auto* text : {"longer than after", "after"}) WriteWholeFile(path, text, true);
  }
  EXPECT_EQ(std::distance(fs::directory_iterator(path.parent_path()), fs::directory_iterator()), 1);
  EXPECT_EQ(ReadWholeFile(path, 5).Text, "after");
  EXPECT_EQ(ReadWholeFile(path, 5).Openness, "");
  EXPECT_THROW(ReadWholeFile(path, 4), std::system_error);
  EXPECT_THROW(ReadWholeFile(folder, 5), std::system_error);
  EXPECT_EQ(descriptors(), before);
  fs::remove_all(folder);
}

TEST(NamedCamera, IsAlikeInEverySetting) {
  const auto read = [](const std::string& lines, const std::string& file = "c.toml") {
    return ReadCameras(Gate("user = \"a\"\n" + lines), file).at(0);
  };
  EXPECT_TRUE(AreAlike(read("pan_limits = [-1, 1]\npassword_env = \"A\""),
                       read("password_env = \"A\"\npan_limits = [-1.0, 1]", "moved.toml")));
  const auto before = read("");
  for (const auto* lines : {"password_env = \"A\"", "password = \"a\"", "options = { Port = 2 }",
                            "invert_tilt = true", "zoom_limits = [0, 1]", "presets = { door = 1 }"})
    EXPECT_FALSE(AreAlike(before, read(lines))) << lines;
  EXPECT_FALSE(AreAlike(read("password = \"a\""), read("password = \"b\"")));
  EXPECT_FALSE(AreAlike(read("tilt_limits = [0, 1]"), read("tilt_limits = [0, 2]")));
}

TEST(SerialLines, AreSharedWhateverTheyAreCalled) {
  SerialLines lines;
  const auto use = [&](const std::string& line) {
    PropertyBag bag;
    const auto ports = lines.Use(bag, line);
    return std::pair(ports, bag.Long("COMPort", 0));
  };
  const auto first = use("/dev/null");
  EXPECT_EQ(use("/dev/../dev/null"), first);
  EXPECT_EQ(use("/dev/zero").first, first.first);
  EXPECT_NE(use("/dev/zero").second, first.second);
}

TEST(InputWords, MeanWhatTheySay) {
  for (const auto* word : {"true", "yes", "ON", "1"}) EXPECT_TRUE(ReadBoolean("it", word)) << word;
  for (const auto* word : {"False", "no", "off", "0"}) EXPECT_FALSE(ReadBoolean("it", word)) << word;
  for (const auto& [word, milliseconds] : {std::pair("2s", 2000),
                                           {"500ms", 500},
                                           {"1.5", 1500},
                                           {"+2m", 120000},
                                           {"1ms", 1},
                                           {"86400", 86400000}})
    EXPECT_EQ(ReadDuration("it", word).count(), milliseconds) << word;
  for (const auto& [word, number] :
       {std::pair("2147483647", 2147483647), {"-2147483648", INT32_MIN}, {"+1e3", 1000}})
    EXPECT_EQ(ReadWholeNumber("it", word), number) << word;
  EXPECT_EQ(ReadNumber("it", "-3.4e38"), -3.4e38F);

  const auto boolean = [](const char* word) { ReadBoolean("it", word); };
  const auto duration = [](const char* word) { ReadDuration("it", word); };
  const auto whole = [](const char* word) { ReadWholeNumber("it", word); };
  const auto number = [](const char* word) { ReadNumber("it", word); };
  const struct {
    void (*Read)(const char*);
    const char *Word, *Told;
  } rows[] = {
      {boolean, "2", "is none of true, false, yes, no, on, off, 1, 0"},
      {duration, "0.4ms", "is not between 1ms and a day"},
      {duration, "86401", "is not between 1ms and a day"},
      {duration, "2h", "is not a time such as 2s, 500ms or 1.5"},
      {whole, "2147483648", "is too large a number"},
      {whole, "-2147483649", "is too large a number"},
      {whole, "1e999", "is too large a number"},
      {whole, "nan", "is not a whole number"},
      {whole, "1.5", "is not a whole number"},
      {whole, "+-1", "is not a whole number"},
      {number, "1e39", "is too large a number"},
      {number, "nan", "is not a number"},
      {number, "1x", "is not a number"},
  };
  for (const auto& [read, word, told] : rows) {
    try {
      read(word);
      ADD_FAILURE() << word;
    } catch (const InputError& error) {
      EXPECT_EQ(error.what(), "it: \"" + std::string(word) + "\" " + told);
    }
  }
}

TEST(Address, HoldsAnyLogin) {
  EXPECT_EQ(AddressFor("10.0.0.5:80", {"azAZ09@-._~", "p:/?#%&+ \"é"}),
            "azAZ09%40-._~:p%3A%2F%3F%23%25%26%2B%20%22é@10.0.0.5:80");
  EXPECT_NO_THROW(AddressFor("10.0.0.5", {"a", std::string(127, 'p')}));
  for (const auto& password : {std::string("日本"), std::string("a\0b", 3), std::string("a\nb"),
                               std::string(128, 'p'), std::string(43, '%')})
    EXPECT_THROW(AddressFor("10.0.0.5", {"a", password}), InputError) << password;
}

TEST(Nearest, IsWhatSomebodyMistyped) {
  const std::vector<std::string> names{"Axis", "Bosch", "Panasonic", "PanasoniciPro"};
  EXPECT_EQ(Nearest("axsi", names), "Axis");
  EXPECT_EQ(Nearest("Panasonicpro", names), "PanasoniciPro");
  EXPECT_EQ(Nearest("bo", names), "Bosch");
  EXPECT_EQ(Nearest("Vivotek", names), "");
  EXPECT_EQ(Nearest("ax", {"ya"}), "") << "one letter moved and another changed";
  EXPECT_EQ(Nearest("ya", {"ax"}), "");
  EXPECT_EQ(Nearest(std::string(65, 'a'), {std::string(66, 'a')}), "") << "would take too long";
}

}  // namespace
}  // namespace ptzd
