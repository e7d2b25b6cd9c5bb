#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "gateway/core/Gate.h"
#include "gateway/core/GateFile.h"
#include "gateway/core/Journal.h"
#include "gateway/web/Server.h"

namespace ptzgate {

/// The gateway while it runs: its cameras, its faces, its signals and whoever supervises it.
class Program {
 public:
  struct Arguments {
    std::string File;                          ///< gate.toml; empty: as settings have it without one
    std::string StateFolder;                   ///< empty: nothing is kept
    std::chrono::milliseconds EndTime{10000};  ///< how long cameras may take to stop at the end
  };

  /// Reads the settings, and listens. Raises `ptzd::InputError` and `std::runtime_error`, which say why not.
  Program(Arguments arguments, Journal& journal);
  ~Program();
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;

  /// Until a signal ends it: SIGINT or SIGTERM. SIGHUP reads the files again. All cameras were asked to stop
  /// when it returns; how many have not taken that is answered.
  std::size_t Run();

 private:
  struct Faces;

  void Listen();
  /// The cameras' own ports, and who is told where they are.
  void ListenForONVIF();
  void AwaitSignal();
  void Reload();
  void TellSupervisor(const char* state);
  void KeepWatchdog();

  const Arguments Arguments_;
  Journal& Journal_;
  boost::asio::io_context Context_;
  boost::asio::signal_set Signals_;
  boost::asio::steady_timer Watchdog_;
  std::unique_ptr<Gate> Gate_;
  std::unique_ptr<Faces> Faces_;
  std::unique_ptr<Server> Server_;
  std::map<std::string, std::unique_ptr<Server>> Ports_;  ///< of cameras that have one of their own
};

/// The settings of a file, or those without one.
GateSettings SettingsFrom(const std::string& file);

}  // namespace ptzgate
