// ptzsim: simulated cameras on loopback sockets and pseudo-terminals, for whoever has no camera at hand.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/signal_set.hpp>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "manual/ManualPage.h"
#include "simulators/Makes.h"
#include "simulators/engine/Announcer.h"
#include "simulators/engine/Message.h"

namespace {

using namespace ptzsim;

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
    "A fault is [after=COUNT,][next=COUNT,][at=TEXT,]NAME[=VALUE]: only once COUNT requests have passed, for "
    "the next\n"
    "COUNT only, only for those whose target contains TEXT. Several add up. Faults (in brackets what is "
    "meant when the value is left out):\n";

constexpr char CommandHelp[] =
    "Read commands from standard input and end when it ends: fault FAULT, clear, state, log";

nlohmann::json Report(Simulator& simulator) {
  nlohmann::json report = simulator.Log().JSON();
  report["addresses"] = simulator.Addresses();
  return report;
}

/// In ASCII, so that no control character of a request reaches a terminal.
std::string Print(const nlohmann::json& json) {
  return json.dump(2, ' ', true, nlohmann::json::error_handler_t::replace);
}

/// The same for text: what is not printable ASCII as "\x1B".
std::string Printable(const std::string& text) {
  std::string printable;
  for (const char c : text)
    printable += c >= ' ' && c < 0x7F ? std::string(1, c) : "\\x" + Hex(std::string(1, c));
  return printable;
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
    std::cerr << "ptzsim: " << Printable(problem.what()) << std::endl;
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

/// A make's options as those of its command.
class CommandShell final : public Shell {
 public:
  explicit CommandShell(CLI::App& command) : Command_(command) {}

  void Flag(const char* name, bool& into, bool value, const std::string& about) override {
    Command_.add_flag_callback(
        name, [&into, value] { into = value; }, about);
  }
  void Number(const char* name, int& into, int least, int most, const std::string& about) override {
    Command_.add_option(name, into, about)->check(CLI::Range(least, most))->capture_default_str();
  }
  void Text(const char* name, std::string& into, const std::string& about) override {
    Command_.add_option(name, into, about)->capture_default_str();
  }
  void Word(const char* name, const std::vector<std::string>& words, Take take,
            const std::string& about) override {
    Add(name, words, std::move(take), about)->expected(1);
  }
  void Words(const char* name, const std::vector<std::string>& words, Take take,
             const std::string& about) override {
    Add(name, words, std::move(take), about)->delimiter(',');
  }

 private:
  CLI::Option* Add(const char* name, const std::vector<std::string>& words, Take take,
                   const std::string& about) {
    auto* option = Command_.add_option_function<std::vector<std::string>>(
        name,
        [take = std::move(take)](const auto& given) { std::for_each(given.begin(), given.end(), take); },
        about);
    return words.empty() ? option : option->check(CLI::IsMember(words));
  }

  CLI::App& Command_;
};

Announcer::Identity IdentityOf(const std::string& name, const Simulator& simulator) {
  const auto make =
      std::find_if(Makes().begin(), Makes().end(), [&](const Make* m) { return m->Name == name; });
  return {(*make)->Maker, simulator.State().value("model", "camera"), simulator.Addresses().front()};
}

int Run(int argc, char** argv) {
  CLI::App app(
      "Simulated cameras on loopback sockets and pseudo-terminals. Prints each address on a line of its own "
      "once it can be reached, and serves until it is interrupted.",
      "ptzsim");
  app.set_version_flag("--version", "ptzsim " PTZSIM_VERSION);
  app.require_subcommand(1);
  app.footer(Footer + FaultHelp(Line::HTTP));
  std::uint16_t port = 0;
  std::vector<std::string> faults;
  std::string user, password, logFile;
  std::string scheme = "digest";
  bool state = false, untilEof = false;
  Announcer::Options announced{.Interface = ""};
  std::vector<std::uint16_t> announcedPorts;
  std::map<std::string, Builder> builders;
  for (const Make* one : Makes()) {
    const Make& make = *one;
    CLI::App* command = app.add_subcommand(make.Name, make.About);
    command->footer(Footer + FaultHelp(make.On));
    if (make.On != Line::Terminal) {
      command->add_option("--port", port, "Port on 127.0.0.1; when 0 or not given, one chosen by the system");
    }
    CommandShell shell(*command);
    builders[make.Name] = make.Declare(shell);
    command->add_option("--fault", faults, "A fault as told below; may be given several times")
        ->allow_extra_args(false);
    if (make.On == Line::HTTP) {
      auto* withUser = command->add_option("--user", user, "Demand this user's credentials");
      command->add_option("--password", password, "Password of that user")->needs(withUser);
      command
          ->add_option("--auth", scheme, "How the credentials are demanded: digest (when not given) or basic")
          ->check(CLI::IsMember({"basic", "digest"}));
      auto* announce = command->add_option("--announce", announced.Interface,
                                           "Announce the camera, by WS-Discovery and UPnP, on the network "
                                           "interface with this address, 127.0.0.1 for example");
      command->add_option("--announce-ports", announcedPorts, "The ports of both; 3702,1900 when not given")
          ->delimiter(',')
          ->expected(2)
          ->needs(announce);
    }
    command->add_flag("--state", state, "Print the state of the camera as JSON at the end");
    command->add_option(
        "--log", logFile,
        "Write connections, requests and violations as JSON to this file at the end; - prints them");
    command->add_flag("--until-eof", untilEof, CommandHelp);
  }
  const auto* man =
      app.add_subcommand("man", "The manual page, in roff")->group("");  // for the build and packagers
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // The parser says only that a make is missing.
    const auto rest = app.remaining(true);
    if (error.get_exit_code() != 0 && app.get_subcommands().empty() && !rest.empty()) {
      std::cerr << "ptzsim: there is no make \"" << Printable(rest.front()) << "\"; ptzsim --help lists them"
                << std::endl;
      return 2;
    }
    return app.exit(error) == 0 ? 0 : 2;
  }

  if (man->parsed()) {
    std::cout << manual::Page(app, PTZSIM_VERSION, "ptzctl(1)");
    return 0;
  }

  std::unique_ptr<Simulator> simulator;
  std::optional<Announcer> announcer;
  std::ofstream log;
  const auto failsToLog = [&](const std::ofstream& file) {
    if (!file)
      std::cerr << "ptzsim: --log: " << logFile << " cannot be written: " << std::strerror(errno)
                << std::endl;
    return !file;
  };
  try {
    const auto name = app.get_subcommands().front()->get_name();
    simulator = builders.at(name)(port);
    if (!user.empty()) simulator->Faults().Set(scheme + "=" + user + ":" + password);
    for (const auto& fault : faults) simulator->Faults().Set(fault);
    if (announcedPorts.size() == 2)
      announced.DiscoveryPort = announcedPorts[0], announced.SearchPort = announcedPorts[1];
    if (!announced.Interface.empty()) announcer.emplace(IdentityOf(name, *simulator), announced);
  } catch (const std::exception& error) {
    std::cerr << "ptzsim: " << error.what() << std::endl;
    return 2;
  }
  if (!logFile.empty() && logFile != "-") {
    log.open(logFile);
    if (failsToLog(log)) return 2;
  }
  Serve(*simulator, untilEof);
  announcer.reset();

  if (state) std::cout << Print(simulator->State()) << std::endl;
  if (logFile == "-") {
    std::cout << Print(Report(*simulator)) << std::endl;
  } else if (!logFile.empty()) {
    log << Print(Report(*simulator)) << std::endl;
    if (failsToLog(log)) return 2;
  }
  const auto violations = simulator->Log().Violations();
  for (const auto& violation : violations)
    std::cerr << "ptzsim: violation: " << Printable(violation) << std::endl;
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
