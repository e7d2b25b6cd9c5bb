// The simulated makes as the shell knows them: a row each, with what their cameras can be told.

#include "simulators/Makes.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <stdexcept>

#include "simulators/Axis.h"
#include "simulators/Bosch.h"
#include "simulators/Elmo.h"
#include "simulators/Foscam.h"
#include "simulators/Grandeye.h"
#include "simulators/MeritLilin.h"
#include "simulators/Panasonic.h"
#include "simulators/PanasoniciPro.h"
#include "simulators/Panogenics.h"
#include "simulators/Pelco.h"
#include "simulators/Quorvane.h"
#include "simulators/Sanyo.h"
#include "simulators/Secubest.h"
#include "simulators/Sony.h"
#include "simulators/Toshiba.h"
#include "simulators/Vivotek.h"

namespace ptzsim {

namespace {

std::unique_ptr<Simulator> CreateAxis(const Settings& settings) {
  using enum AxisHead;
  static const std::map<std::string, std::vector<AxisHead>> heads = {
      {"mechanical", {Mechanical}},
      {"digital", {Digital}},
      {"relative", {Relative}},
      {"none", {None}},
      {"multi", {Mechanical, Digital, Relative, None}}};
  return std::make_unique<Axis>(Axis::Options{.Heads = heads.at(settings.Head), .Port = settings.Port});
}

const std::map<std::string, Bosch::Support> BoschSupport = {
    {"full", Bosch::Support::Full}, {"empty", Bosch::Support::Silent}, {"error", Bosch::Support::Refusing}};

std::unique_ptr<Simulator> CreateBosch(const Settings& settings) {
  Bosch::Replies form = settings.Replies;
  form.Of = BoschSupport.at(settings.Head);
  return std::make_unique<Bosch>(Bosch::Options{.Form = form, .Port = settings.Port});
}

void AddBoschOptions(CLI::App& command, Settings& settings) {
  command.add_flag("--upper-case", settings.Replies.UpperCase, "Answer with digits A to F, not a to f");
  command.add_flag("--padded", settings.Replies.Padded, "Answer with line ends and blanks around the bytes");
  command.add_flag("--longer", settings.Replies.Longer, "Answer with two bytes more than were asked for");
}

const std::map<std::string, ElmoNumbers> ElmoNumberForms = {{"plain", ElmoNumbers::Plain},
                                                            {"remarked", ElmoNumbers::Remarked},
                                                            {"bracketed", ElmoNumbers::Bracketed}};

std::unique_ptr<Simulator> CreateElmo(const Settings& settings) {
  return std::make_unique<Elmo>(Elmo::Options{
      .Model = settings.Head, .Numbers = ElmoNumberForms.at(settings.Numbers), .Port = settings.Port});
}

void AddElmoOptions(CLI::App& command, Settings& settings) {
  command
      .add_option("--numbers", settings.Numbers,
                  "How a PTC-402C writes its position: plain, remarked (when not given) or bracketed")
      ->check(CLI::IsMember(ElmoNumberForms));
}

std::unique_ptr<Simulator> CreateFoscam(const Settings& settings) {
  return std::make_unique<Foscam>(Foscam::Options{.Port = settings.Port});
}

std::unique_ptr<Simulator> CreateFoscamHD(const Settings& settings) {
  return std::make_unique<Foscam>(Foscam::Options{.Generation = Foscam::Kind::HD,
                                                  .User = settings.QueryUser,
                                                  .Password = settings.QueryPassword,
                                                  .Port = settings.Port});
}

void AddFoscamHDOptions(CLI::App& command, Settings& settings) {
  auto* withUser = command.add_option("--usr", settings.QueryUser,
                                      "Demand this user in the query, as usr=... and pwd=...");
  command.add_option("--pwd", settings.QueryPassword, "Password of that user")->needs(withUser);
}

std::unique_ptr<Simulator> CreateGrandeye(const Settings& settings) {
  Grandeye::Options options{.Port = settings.Port};
  if (settings.Count) options.Views = settings.Count;
  return std::make_unique<Grandeye>(options);
}

void AddGrandeyeOptions(CLI::App& command, Settings& settings) {
  command.add_option("--views", settings.Count, "How many views the camera has; 3 when not given")
      ->check(CLI::Range(1, 4));
}

std::unique_ptr<Simulator> CreateMeritLilin(const Settings& settings) {
  MeritLilin::Options options{.Port = settings.Port};
  if (settings.Count) options.Cameras = settings.Count;
  return std::make_unique<MeritLilin>(options);
}

void AddMeritLilinOptions(CLI::App& command, Settings& settings) {
  command.add_option("--cameras", settings.Count, "How many cameras it serves; 2 when not given")
      ->check(CLI::Range(1, 4));
}

std::unique_ptr<Simulator> CreatePanogenics(const Settings& settings) {
  return std::make_unique<Panogenics>(Panogenics::Options{.Wrapped = !settings.Plain, .Port = settings.Port});
}

void AddPanogenicsOptions(CLI::App& command, Settings& settings) {
  command.add_flag("--plain", settings.Plain, "Answer with bare text in place of HTML pages");
}

const std::map<std::string, Panasonic::Mount> PanasonicMounts = {{"untold", Panasonic::Mount::NotTold},
                                                                 {"desk", Panasonic::Mount::Desk},
                                                                 {"ceiling", Panasonic::Mount::Ceiling}};

std::unique_ptr<Simulator> CreatePanasonic(const Settings& settings) {
  return std::make_unique<Panasonic>(Panasonic::Options{.Model = settings.Head,
                                                        .Firmware = settings.Firmware,
                                                        .Mounted = PanasonicMounts.at(settings.Mount),
                                                        .Port = settings.Port});
}

void AddPanasonicOptions(CLI::App& command, Settings& settings) {
  command.add_option(
      "--firmware", settings.Firmware,
      "Version of the firmware, up to 1.22 without angles; " + settings.Firmware + " when not given");
  command.add_option("--mount", settings.Mount, "Where it tells that it is mounted; untold when not given")
      ->check(CLI::IsMember(PanasonicMounts));
}

std::unique_ptr<Simulator> CreatePanasoniciPro(const Settings& settings) {
  return std::make_unique<PanasoniciPro>(
      PanasoniciPro::Options{.Model = settings.Head, .Channels = settings.Channels, .Port = settings.Port});
}

void AddPanasoniciProOptions(CLI::App& command, Settings& settings) {
  command
      .add_option("--channels", settings.Channels, "How many channels with a head it has; 1 when not given")
      ->check(CLI::Range(1, PanasoniciPro::MostChannels));
}

const std::map<std::string, PelcoProtocol> PelcoProtocols = {
    {"d", PelcoProtocol::D}, {"p", PelcoProtocol::P}, {"both", PelcoProtocol::Both}};

#ifndef _WIN32  // has no pseudo-terminals
std::unique_ptr<Simulator> CreatePelco(const Settings& settings) {
  return std::make_unique<Pelco>(Pelco::Options{.Addresses = settings.Addresses,
                                                .Protocol = PelcoProtocols.at(settings.Protocol),
                                                .Line = settings.SerialLine});
}

void AddPelcoOptions(CLI::App& command, Settings& settings) {
  command.add_option("--addresses", settings.Addresses, "Addresses of the receivers; 1 when not given")
      ->delimiter(',')
      ->check(CLI::Range(1, 255));
  command.add_option("--protocol", settings.Protocol, "Protocol they understand; both when not given")
      ->check(CLI::IsMember(PelcoProtocols));
  command
      .add_option("--baud", settings.SerialLine.Baud,
                  "Speed they listen at; bytes at another one are a violation. When not given any will do")
      ->check(CLI::IsMember({1200, 2400, 4800, 9600, 19200, 38400}));
  command.add_option("--line", settings.SerialLine.Path,
                     "Path of the symbolic link to the terminal; when not given one is made up");
  command
      .add_option("--paced", settings.SerialLine.PacedBaud, "Read no faster than bytes travel at this speed")
      ->check(CLI::Range(1, 1000000));
  command.add_flag("!--cooked", settings.SerialLine.Raw,
                   "Begin with echo, line editing and translated line ends, as terminals are found");
}
#endif

std::unique_ptr<Simulator> CreateSanyo(const Settings& settings) {
  const auto without = [&](const char* what) {
    return std::find(settings.Without.begin(), settings.Without.end(), what) != settings.Without.end();
  };
  return std::make_unique<Sanyo>(
      Sanyo::Options{.Session = std::chrono::seconds(settings.Session),
                     .Told = {.PanTilt = !without("pan-tilt"), .Zoom = !without("zoom")},
                     .Port = settings.Port});
}

void AddSanyoOptions(CLI::App& command, Settings& settings) {
  command
      .add_option("--session", settings.Session,
                  "Seconds that a session lasts unless it is kept alive; 300 when not given")
      ->check(CLI::Range(1, 86400));
  command.add_option("--without", settings.Without, "What its status does not tell: pan-tilt, zoom, or both")
      ->delimiter(',')
      ->check(CLI::IsMember({"pan-tilt", "zoom"}));
}

std::unique_ptr<Simulator> CreateSecubest(const Settings& settings) {
  return std::make_unique<Secubest>(Secubest::Options{.Port = settings.Port});
}

std::unique_ptr<Simulator> CreateSony(const Settings& settings) {
  return std::make_unique<Sony>(Sony::Options{.Model = settings.Head, .Port = settings.Port});
}

std::unique_ptr<Simulator> CreateToshiba(const Settings& settings) {
  return std::make_unique<Toshiba>(Toshiba::Options{.Model = settings.Head, .Port = settings.Port});
}

std::unique_ptr<Simulator> CreateVivotek(const Settings& settings) {
  const char* model = settings.Head == "old" ? "PT7135" : "PZ7132";
  return std::make_unique<Vivotek>(Vivotek::Options{.Model = model, .Port = settings.Port});
}

std::unique_ptr<Simulator> CreateQuorvane(const Settings& settings) {
  Quorvane::Options options{.BadXML = settings.BadXML, .Port = settings.Port};
  if (!settings.Feeds.empty()) options.Feeds.clear();
  for (const auto& feed : settings.Feeds) {
    const auto equals = feed.find('=');
    if (equals == feed.npos) throw std::invalid_argument("--feeds " + feed + ": is not ID=NAME");
    options.Feeds.push_back(
        {feed.substr(0, equals), feed.substr(equals + 1), Quorvane::SomeFeeds()[0].Presets});
  }
  return std::make_unique<Quorvane>(std::move(options));
}

void AddQuorvaneOptions(CLI::App& command, Settings& settings) {
  command
      .add_option(
          "--feeds", settings.Feeds,
          "The feeds as ID=NAME, with commas between them; when not given \"3=Front Door\" and another")
      ->delimiter(',');
  command.add_flag("--bad-xml", settings.BadXML, "Break off the lists of feeds and presets in mid-element");
}

const std::vector<Make> Table = {
    {"axis",
     "Axis camera or video server (HTTP)",
     {"mechanical", "digital", "relative", "none", "multi"},
     CreateAxis},
    {"bosch",
     "Bosch dome (HTTP, messages in hexadecimal)",
     {"full", "empty", "error"},
     CreateBosch,
     Line::HTTP,
     "--support",
     AddBoschOptions},
    {"elmo", "Elmo 200 or 400 series or PTC-402C camera (HTTP)", Elmo::Models(), CreateElmo, Line::HTTP,
     "--model", AddElmoOptions},
    {"foscam", "Foscam camera with numbered commands (HTTP)", {}, CreateFoscam},
    {"foscamhd", "Foscam HD camera (HTTP)", {}, CreateFoscamHD, Line::HTTP, "", AddFoscamHDOptions},
    {"grandeye",
     "Grandeye camera with several views (HTTP)",
     {},
     CreateGrandeye,
     Line::HTTP,
     "",
     AddGrandeyeOptions},
    {"meritlilin",
     "Merit Lilin dome or video server (HTTP)",
     {},
     CreateMeritLilin,
     Line::HTTP,
     "",
     AddMeritLilinOptions},
    {"panogenics",
     "Panogenics camera with eight views (HTTP)",
     {},
     CreatePanogenics,
     Line::HTTP,
     "",
     AddPanogenicsOptions},
    {"panasonic", "Panasonic BL-C, BB-HCM or BB-HCE camera (HTTP)", Panasonic::Models(), CreatePanasonic,
     Line::HTTP, "--model", AddPanasonicOptions},
    {"panasonicipro", "Panasonic i-Pro camera or encoder (HTTP)", PanasoniciPro::Models(),
     CreatePanasoniciPro, Line::HTTP, "--model", AddPanasoniciProOptions},
#ifndef _WIN32
    {"pelco",
     "Pelco receivers on one line (Pelco-D and Pelco-P, serial)",
     {},
     CreatePelco,
     Line::Terminal,
     "",
     AddPelcoOptions},
#endif
    {"quorvane",
     "Another installation of the surveillance system (HTTP)",
     {},
     CreateQuorvane,
     Line::HTTP,
     "",
     AddQuorvaneOptions},
    {"sanyo", "Sanyo camera (HTTP with a session)", {}, CreateSanyo, Line::HTTP, "", AddSanyoOptions},
    {"secubest", "Secubest unit (framed messages over raw TCP)", {}, CreateSecubest, Line::TCP},
    {"sony", "Sony SNC camera (HTTP)", Sony::Models(), CreateSony, Line::HTTP, "--model"},
    {"toshiba", "Toshiba IK-WB camera (HTTP)", Toshiba::Models(), CreateToshiba, Line::HTTP, "--model"},
    {"vivotek", "Vivotek or D-Link camera (HTTP)", {"new", "old"}, CreateVivotek, Line::HTTP, "--generation"},
};

}  // namespace

const std::vector<Make>& Makes() { return Table; }

}  // namespace ptzsim
