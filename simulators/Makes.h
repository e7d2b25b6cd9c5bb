#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "simulators/Bosch.h"
#include "simulators/Panasonic.h"
#include "simulators/engine/Simulator.h"
#include "simulators/engine/Terminal.h"

namespace ptzsim {

/// What the command line says of the camera that it wants.
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

/// All of them, by name.
const std::vector<Make>& Makes();

}  // namespace ptzsim
