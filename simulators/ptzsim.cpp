// ptzsim: simulated cameras on loopback sockets and pseudo-terminals, for whoever has no camera at hand.

#include <CLI/CLI.hpp>
#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "simulators/Axis.h"
#include "simulators/Bosch.h"
#include "simulators/Elmo.h"
#include "simulators/Foscam.h"
#include "simulators/Grandeye.h"
#include "simulators/MeritLilin.h"
#include "simulators/Panogenics.h"
#include "simulators/Panasonic.h"
#include "simulators/PanasoniciPro.h"
#include "simulators/Pelco.h"
#include "simulators/Quorvane.h"
#include "simulators/Sanyo.h"
#include "simulators/Secubest.h"
#include "simulators/Sony.h"
#include "simulators/Toshiba.h"
#include "simulators/Vivotek.h"

namespace {

using namespace ptzsim;

struct Settings {
  std::string Head;
  std::uint16_t Port = 0;
  std::vector<std::string> Feeds;
  bool BadXML = false;
  Bosch::Replies Replies{};
  int Session = 300;
  std::vector<std::string> Without;
  std::string Numbers = "remarked";
  int Count = 0;  // of views or cameras; 0: the usual number
  std::string QueryUser, QueryPassword;
  bool Plain = false;
  std::vector<int> Addresses = {1};
  std::string Protocol = "both";
  Terminal::Options SerialLine{};
  std::string Firmware = Panasonic::Options().Firmware;
  std::string Mount = "untold";
  int Channels = 1;
};

/// A make at the shell: one line each.
struct Make {
  const char* Name;
  const char* About;
  std::vector<std::string> Heads;  ///< the first is the one meant when none is asked for; none: one kind only
  std::function<std::unique_ptr<Simulator>(const Settings&)> Create;
  Line On = Line::HTTP;
  const char* HeadOption = "--head";  ///< what the kinds are called
  void (*AddOptions)(CLI::App&, Settings&) = nullptr;
};

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

const std::vector<Make> Makes = {
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
    {"pelco", "Pelco receivers on one line (Pelco-D and Pelco-P, serial)", {}, CreatePelco, Line::Terminal},
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

constexpr char Footer[] =
    "Examples:\n"
    "  ptzsim axis\n"
    "      a camera with everything; its address is printed, Ctrl-C ends it\n"
    "  ptzsim axis --head multi --port 8080 --log - --state\n"
    "      four cameras behind one address (camera=1 to 4); what came in is told as JSON at the end\n"
    "  ptzsim axis --fault next=2,at=query=position,delay=7000 --fault split=1\n"
    "      the next two position queries are answered late, and all replies leave byte by byte\n"
    "  ptzsim pelco --addresses 1,2 --baud 2400 --line pelco-line\n"
    "      two receivers on one line, to be opened as the serial port ./pelco-line\n"
    "\n"
    "Exit code: 0, or 1 when a request came that no such camera knows, or 2 when it could not start.\n"
    "\n"
    "A fault is [next=COUNT,][at=TEXT,]NAME[=VALUE]: for the next COUNT requests only, only for requests "
    "whose\n"
    "target contains TEXT. Several add up. Faults (in brackets what is meant when the value is left out):\n";

constexpr char CommandHelp[] =
    "Read commands from standard input and end when it ends: fault FAULT, clear, state, log";

nlohmann::json Report(Simulator& simulator) {
  nlohmann::json report = simulator.Log().JSON();
  report["addresses"] = simulator.Addresses();
  return report;
}

std::string Print(const nlohmann::json& json) {
  return json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
}

void Obey(Simulator& simulator, const std::string& command) {
  if (command.rfind("fault ", 0) == 0) {
    simulator.Faults().Set(command.substr(6));
  } else if (command == "clear") {
    simulator.Faults().Clear();
  } else if (command == "state") {
    std::cout << Print(simulator.State()) << std::endl;
  } else if (command == "log") {
    std::cout << Print(Report(simulator)) << std::endl;
  } else if (!command.empty()) {
    throw std::invalid_argument("no command is called \"" + command + "\" (fault FAULT, clear, state, log)");
  }
}

void ObeyOrTell(Simulator& simulator, const std::string& command) {
  try {
    Obey(simulator, command);
  } catch (const std::exception& problem) {
    std::cerr << "ptzsim: " << problem.what() << std::endl;
  }
}

/// Whether a thread still waits for input. Nothing can end it, so the process cannot end in the ordinary way.
std::atomic<bool> WaitingForInput = false;

/// Serves until a signal, or the end of standard input when its commands are to be read.
void Serve(Simulator& simulator, bool untilEof) {
  const auto loop = std::make_shared<boost::asio::io_context>();
  boost::asio::signal_set signals(*loop, SIGINT, SIGTERM);
  signals.async_wait([&](auto, int) { loop->stop(); });
  if (untilEof) {
    // Not every system can wait for standard input as for a socket.
    WaitingForInput = true;
    std::thread([loop, &simulator] {
      for (std::string line; std::getline(std::cin, line);)
        boost::asio::post(*loop, [&simulator, line] { ObeyOrTell(simulator, line); });
      WaitingForInput = false;
      boost::asio::post(*loop, [&context = *loop] { context.stop(); });
    }).detach();
  }
  for (const auto& address : simulator.Addresses()) std::cout << address << std::endl;
  loop->run();
}

void AddTerminalOptions(CLI::App& command, Settings& settings) {
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

int Run(int argc, char** argv) {
  CLI::App app(
      "Simulated cameras on loopback sockets and pseudo-terminals. Prints each address on a line of its own "
      "once it can be reached, and serves until it is interrupted.");
  app.require_subcommand(1);
  app.footer(Footer + FaultHelp(Line::HTTP));
  Settings settings;
  std::vector<std::string> faults;
  std::string user, password, logFile;
  std::string scheme = "digest";
  bool state = false, untilEof = false;
  for (const Make& make : Makes) {
    CLI::App* command = app.add_subcommand(make.Name, make.About);
    command->footer(Footer + FaultHelp(make.On));
    if (!make.Heads.empty()) {
      command
          ->add_option(make.HeadOption, settings.Head,
                       "Kind of camera; " + make.Heads.front() + " when not given")
          ->check(CLI::IsMember(make.Heads));
    }
    if (make.On != Line::Terminal) {
      command->add_option("--port", settings.Port,
                          "Port on 127.0.0.1; when 0 or not given, one chosen by the system");
    } else {
      AddTerminalOptions(*command, settings);
    }
    if (make.AddOptions) make.AddOptions(*command, settings);
    command->add_option("--fault", faults, "A fault as told below; may be given several times")
        ->allow_extra_args(false);
    if (make.On == Line::HTTP) {
      auto* withUser = command->add_option("--user", user, "Demand this user's credentials");
      command->add_option("--password", password, "Password of that user")->needs(withUser);
      command
          ->add_option("--auth", scheme, "How the credentials are demanded: digest (when not given) or basic")
          ->check(CLI::IsMember({"basic", "digest"}));
    }
    command->add_flag("--state", state, "Print the state of the camera as JSON at the end");
    command->add_option(
        "--log", logFile,
        "Write connections, requests and violations as JSON to this file at the end; - prints them");
    command->add_flag("--until-eof", untilEof, CommandHelp);
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }

  const std::string chosen = app.get_subcommands().front()->get_name();
  const auto make = std::find_if(Makes.begin(), Makes.end(), [&](const Make& m) { return chosen == m.Name; });
  if (settings.Head.empty() && !make->Heads.empty()) settings.Head = make->Heads.front();
  std::unique_ptr<Simulator> simulator;
  try {
    simulator = make->Create(settings);
    if (!user.empty()) simulator->Faults().Set(scheme + "=" + user + ":" + password);
    for (const auto& fault : faults) simulator->Faults().Set(fault);
  } catch (const std::exception& error) {
    std::cerr << "ptzsim: " << error.what() << std::endl;
    return 2;
  }
  Serve(*simulator, untilEof);

  if (state) std::cout << Print(simulator->State()) << std::endl;
  if (logFile == "-") {
    std::cout << Print(Report(*simulator)) << std::endl;
  } else if (!logFile.empty()) {
    std::ofstream file(logFile);
    file << Print(Report(*simulator)) << '\n';
    if (!file.flush()) {
      std::cerr << "ptzsim: " << logFile << " cannot be written" << std::endl;
      return 2;
    }
  }
  const auto violations = simulator->Log().Violations();
  for (const auto& violation : violations) std::cerr << "ptzsim: violation: " << violation << std::endl;
  return violations.empty() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  int code = 2;
  try {
    code = Run(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "ptzsim: " << error.what() << std::endl;
  }
  if (!WaitingForInput) return code;
  std::cout.flush();
  std::_Exit(code);
}
