#include "simulators/Secubest.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>

#include "simulators/engine/Make.h"

namespace ptzsim {
namespace {

using namespace std::string_view_literals;

// "STRT" 0, three digits, 0, parameters, "_END" 0.
constexpr auto Begin = "STRT\0"sv;
constexpr auto End = "_END\0"sv;
constexpr std::size_t HeadLength = 9;
constexpr std::size_t LongestFrame = 256;
// What a PTZ message has between head and end: the text, the code and the two bytes of the speed.
constexpr auto Ptz = "PTZ\0"sv;
constexpr std::size_t PtzLength = 7;

struct Command {
  unsigned Code;
  const char* Name;
  int Pan, Tilt, Zoom;  // directions
};
constexpr Command Commands[] = {
    {20, "up", 0, 1, 0},          {21, "down", 0, -1, 0},    {22, "left", -1, 0, 0},
    {23, "right", 1, 0, 0},       {33, "up-right", 1, 1, 0}, {34, "down-right", 1, -1, 0},
    {35, "down-left", -1, -1, 0}, {36, "up-left", -1, 1, 0}, {24, "zoom in", 0, 0, 1},
    {25, "zoom out", 0, 0, -1},   {41, "stop", 0, 0, 0},     {45, "stop zoom", 0, 0, 0},
};
constexpr unsigned StopPanTilt = 41;

constexpr unsigned FastestPanTilt = 2000, FastestZoom = 255, TimedSpeed = 200;
constexpr double PerSecond = 1.0 / 8;  // degrees, or units of zoom, per second and unit of speed
constexpr double Diagonal = 0.75;      // the share of the speed that each axis has on a diagonal

unsigned Byte(std::string_view bytes, std::size_t at) { return static_cast<unsigned char>(bytes.at(at)); }

}  // namespace

Secubest::Secubest(Options options)
    : Simulator(options.Clock),
      Pan_(Time(), 23.75, {-180, 180}, 0),
      Tilt_(Time(), -14.5, {-90, 90}, 0),
      Zoom_(Time(), 421, {0, 1000}, 0),
      Server_([this](std::string& received) { return Take(received); }, {.Port = options.Port}, Log(),
              Faults()) {}

std::optional<Message> Secubest::Take(std::string& received) {
  const auto spoilt = [&](std::size_t count, const std::string& why) {
    Message message{.Raw = received.substr(0, count), .Meaning = "garbage"};
    message.Violation = why + ": " + Hex(message.Raw);
    received.erase(0, count);
    return message;
  };
  // Where a frame begins, though perhaps only its first bytes have come.
  const auto begins = [&](std::size_t at) {
    return received.compare(at, Begin.size(), Begin.substr(0, received.size() - at)) == 0;
  };
  std::size_t start = 0;
  while (start < received.size() && !begins(start)) ++start;
  if (start > 0) return spoilt(start, "no frame begins with");

  const auto end = received.find(End, HeadLength);
  const auto next = received.find(Begin, 1);
  if (next < end) return spoilt(next, "a frame without an end");
  if (end == received.npos) {
    if (received.size() < LongestFrame) return std::nullopt;
    return spoilt(received.size(), "a frame without an end");
  }

  Message message{.Raw = received.substr(0, end + End.size()), .Meaning = "unknown message"};
  received.erase(0, message.Raw.size());
  const std::lock_guard lock(Mutex_);
  const std::string wrong = Obey(message.Raw, message.Meaning);
  if (!wrong.empty()) message.Violation = wrong + ": " + Hex(message.Raw);
  return message;
}

std::string Secubest::Obey(const std::string& frame, std::string& meaning) {
  const std::string_view type = std::string_view(frame).substr(Begin.size(), 3);
  const std::string_view body =
      std::string_view(frame).substr(HeadLength, frame.size() - HeadLength - End.size());
  if (type.find_first_not_of("0123456789") != type.npos || Byte(frame, HeadLength - 1) != 0)
    return "the type is not three digits and a 0 byte";
  if (type != "007") return "unknown type " + std::string(type);
  if (body.substr(0, Ptz.size()) != Ptz || body.size() != PtzLength)
    return "type 7 takes \"PTZ\", a code and a speed";

  const unsigned code = Byte(body, Ptz.size());
  const unsigned first = Byte(body, Ptz.size() + 1), second = Byte(body, Ptz.size() + 2);
  const unsigned lowFirst = second << 8 | first, highFirst = first << 8 | second;
  const auto command = std::find_if(std::begin(Commands), std::end(Commands),
                                    [&](const Command& c) { return c.Code == code; });
  if (command == std::end(Commands)) return "unknown code " + std::to_string(code);

  const bool zooms = command->Zoom != 0;
  const unsigned speed = !zooms || lowFirst == TimedSpeed ? lowFirst : highFirst;
  meaning = command->Name + (" " + std::to_string(speed));
  if (command->Pan == 0 && command->Tilt == 0 && !zooms) {
    if (speed != 0) return "a stop with a speed";
    meaning = command->Name;
    if (code == StopPanTilt) {
      Pan_.Stop(), Tilt_.Stop();
    } else {
      Zoom_.Stop();
    }
    return {};
  }
  const unsigned fastest = zooms ? FastestZoom : FastestPanTilt;
  if (speed > fastest)
    return "speed " + std::to_string(speed) + " is above " + std::to_string(fastest) +
           ", or in the wrong byte order";
  const double velocity = speed * PerSecond * (command->Pan && command->Tilt ? Diagonal : 1);
  if (zooms) {
    Zoom_.Run(command->Zoom * velocity);
  } else {
    Pan_.Run(command->Pan * velocity), Tilt_.Run(command->Tilt * velocity);
  }
  return {};
}

Secubest::UnitState Secubest::Unit() const {
  const std::lock_guard lock(Mutex_);
  return {Pan_.Position(), Tilt_.Position(), Zoom_.Position(),
          Pan_.Moving() || Tilt_.Moving() || Zoom_.Moving()};
}

nlohmann::json Secubest::State() const {
  const UnitState unit = Unit();
  return {{"pan", unit.Pan}, {"tilt", unit.Tilt}, {"zoom", unit.Zoom}, {"moving", unit.Moving}};
}

const Make Secubest::AtShell = {"secubest", "Secubest unit (framed messages over raw TCP)", Plainly<Secubest>,
                                Line::TCP};

}  // namespace ptzsim
