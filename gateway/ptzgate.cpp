// ptzgate: the cameras of a site for everybody's software, in a browser and over the network.

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <string_view>
#include <system_error>

#include <ptzd/Version.h>
#include "cameras/CameraList.h"
#include "cameras/InputWords.h"
#include "gateway/Program.h"
#include "gateway/core/Logins.h"
#include "manual/ManualPage.h"
#include "platform/StandardInput.h"
#include "platform/Terminal.h"

namespace {

using namespace ptzgate;

constexpr char Footer[] =
    "Examples:\n"
    "  ptzgate\n"
    "      the cameras of `ptzctl cameras`, for this machine alone: http://127.0.0.1:8480/\n"
    "  ptzgate --config /etc/ptzgate/gate.toml --check\n"
    "      says what is wrong with the files, with line and column, and ends\n"
    "  ptzgate password\n"
    "      makes the password_hash of a user from a password that it asks for\n"
    "\n"
    "Files:\n"
    "  /etc/ptzgate/gate.toml       the settings of the service; docs/ptzgate.md has all of them\n"
    "  /var/lib/ptzgate/            of the service: cameras.toml, names of presets, what may be moving\n"
    "  ~/.local/state/ptzgate/      the same, but for the cameras, of whoever runs it by hand\n"
    "  ~/.config/ptzd/cameras.toml  the cameras where the settings name no file, with those of\n"
    "                               /etc/ptzd/cameras.toml\n"
    "\n"
    "Signals:\n"
    "  SIGHUP    reads settings, cameras and certificates again, and listens where they say now; where one\n"
    "            is faulty, or an address is taken, all stays as it was and the log says why\n"
    "  SIGTERM   stops all cameras, for 10 s at most, and ends; SIGINT does the same\n"
    "\n"
    "Environment:\n"
    "  STATE_DIRECTORY    where it keeps what it must know after its end, instead of in ptzgate below\n"
    "                     XDG_STATE_HOME or ~/.local/state\n"
    "  LISTEN_FDS         with LISTEN_PID: sockets that are listened on instead of those of the settings, "
    "as\n"
    "                     systemd passes them\n"
    "  NOTIFY_SOCKET      is told when it listens, reads its files again and ends, and in a line how it is\n"
    "  WATCHDOG_USEC      how often that is told at least while it is not stuck\n"
    "\n"
    "Exit codes:\n"
    "  0    it was ended, and whatever may have been moving took its stop; or what was asked for was done\n"
    "  1    a camera did not take its stop at the end\n"
    "  2    it could not start, and said why\n";

/// Where names of presets and what was in motion are kept.
std::string UsualStateFolder() {
  for (const char* variable : {"STATE_DIRECTORY", "XDG_STATE_HOME"})
    if (const char* folder = std::getenv(variable); folder != nullptr && *folder != '\0')
      return std::string_view(variable) == "STATE_DIRECTORY" ? folder : std::string(folder) + "/ptzgate";
  const char* home = std::getenv("HOME");
  return home == nullptr ? "" : std::string(home) + "/.local/state/ptzgate";
}

/// Twice where somebody types it, who does not see it; else a line of the standard input.
std::string AskPassword() {
  std::string password;
  if (ptzd::InputIsTerminal()) {
    password = ptzd::AskAtTerminal("Password: ", false, {}).value_or("");
    if (!password.empty() && ptzd::AskAtTerminal("Again: ", false, {}) != password)
      throw ptzd::InputError("these are two passwords");
  } else {
    std::getline(std::cin, password);
  }
  if (password.empty()) throw ptzd::InputError("there is no password");
  return password;
}

int Check(const std::string& file) {
  const auto settings = SettingsFrom(file);
  const ptzd::CameraList cameras(settings.CameraFile);
  for (const auto& odd : CheckGate(settings, cameras.All())) std::cerr << "ptzgate: " << odd << '\n';
  // Whether there is a password for each shows only when it is looked for.
  ptzd::SerialLines lines;
  for (const auto& camera : cameras.All()) ptzd::SettingsOf(camera, {}, lines);
  if (!settings.Web.Certificate.empty()) ReadCertificate({settings.Web.Certificate, settings.Web.Key});
  std::cout << cameras.All().size() << " cameras, " << settings.Users.size() << " users\n";
  return 0;
}

int Main(int argc, char** argv) {
  CLI::App app("The cameras of a site for browsers, NVRs and brokers.", "ptzgate");
  app.footer(Footer);
  app.set_version_flag("--version", "ptzgate " PTZD_VERSION);
  Program::Arguments arguments{.StateFolder = UsualStateFolder()};
  bool checks = false, isVerbose = false;
  app.add_option("--config", arguments.File, "The settings, in TOML; without it those of an empty file")
      ->type_name("FILE");
  app.add_option("--state", arguments.StateFolder,
                 "Where it keeps what it must know after its end; \"\" for nowhere")
      ->type_name("FOLDER");
  app.add_flag("--check", checks, "Say whether settings, cameras and certificate are in order, and end");
  app.add_flag("--verbose", isVerbose, "Tell more");
  auto& password = *app.add_subcommand("password", "Make the password_hash of a user");
  auto& man = *app.add_subcommand("man", "Print the manual page")->group("");
  app.require_subcommand(0, 1);
  CLI11_PARSE(app, argc, argv);

  if (man.parsed()) {
    std::cout << manual::Page(app, PTZD_VERSION, "ptzctl(1), ptzsim(1), systemctl(1), journalctl(1)");
    return 0;
  }
  if (password.parsed()) {
    std::cout << HashOf(AskPassword()) << '\n';
    return 0;
  }
  if (checks) return Check(arguments.File);

  if (!arguments.StateFolder.empty()) {
    std::error_code error;
    std::filesystem::create_directories(arguments.StateFolder, error);
    if (error)
      throw ptzd::InputError("the folder " + arguments.StateFolder + " cannot be made: " + error.message());
  }
  Journal journal(isVerbose ? Journal::Level::Debug : Journal::Level::Info);
  auto program = std::make_unique<Program>(std::move(arguments), journal);
  const auto unstopped = program->Run();
  // Threads that still wait for a silent camera are not waited for.
  std::fflush(nullptr);
  std::_Exit(unstopped == 0 ? 0 : 1);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Main(argc, argv);
  } catch (const std::exception& error) {
    std::cerr << "ptzgate: " << error.what() << '\n';
    return 2;
  }
}
