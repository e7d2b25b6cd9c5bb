#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>
#include <boost/asio/steady_timer.hpp>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
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

  /// Until a signal ends it: SIGINT or SIGTERM. SIGHUP reads the files and certificates again, and takes over
  /// all of them or nothing. All cameras were asked to stop
  /// when it returns; how many have not taken that is answered.
  std::size_t Run();

 private:
  struct Faces;

  /// Where each server listens, by camera; the one of all cameras has no name.
  using Places = std::map<std::string, std::vector<ListenAddress>>;

  /// Those of the file, listening where the supervisor does if it does.
  GateSettings ReadSettings() const;
  /// As settings have it. Raises `std::runtime_error` with everything as before.
  void Listen(const GateSettings& settings);
  void Open(const Places& places);
  std::unique_ptr<Server> MakeServer(const std::string& camera);
  /// Tells what changed of where it listens.
  void TellListening(bool isSecure);
  /// Whoever looks for cameras on the network is told where they are. Raises as `Discovery` does.
  void Announce(bool isAnew);
  void AwaitSignal();
  void Reload();
  void TellStatus();
  void KeepWatchdog();

  const Arguments Arguments_;
  const std::vector<Endpoint> Inherited_;  ///< sockets that the supervisor opened
  Journal& Journal_;
  boost::asio::io_context Context_;
  boost::asio::signal_set Signals_;
  boost::asio::steady_timer Watchdog_;
  std::unique_ptr<Gate> Gate_;
  std::unique_ptr<Faces> Faces_;
  std::map<std::string, std::unique_ptr<Server>> Servers_;
  Places Places_;
  std::set<nlohmann::json> Listening_;  ///< as told in the log: addresses, and whose
  std::string Complaint_;               ///< of the last reload; empty: it went well
  std::string Status_;                  ///< as the supervisor was told
};

/// The settings of a file, or those without one.
GateSettings SettingsFrom(const std::string& file);

}  // namespace ptzgate
