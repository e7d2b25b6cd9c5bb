#include "simulators/Pelco.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <numeric>
#include <stdexcept>
#include <utility>

#include "simulators/engine/Make.h"
#include "simulators/engine/Motion.h"
#include "simulators/engine/Query.h"

namespace ptzsim {
namespace {

constexpr unsigned SyncD = 0xFF, SyncP = 0xA0, EndP = 0xAF;
constexpr unsigned FullSpeed = 0x3F, Turbo = 0x40;

constexpr double PanSpeed = 80, TurboSpeed = 150, TiltSpeed = 40;     // degrees per second
constexpr double PresetSpeed = 250;                                   // degrees per second
constexpr double ZoomSpeed = 250, FocusSpeed = 200, IrisSpeed = 125;  // units per second
constexpr Motion::Range TiltRange{-90, 90}, LensRange{0, 1000};

constexpr unsigned Extended = 1;  // the lowest bit of the second command byte
constexpr unsigned SetPreset = 0x03, ClearPreset = 0x05, GotoPreset = 0x07, AutoFocus = 0x2B, AutoIris = 0x2D;

unsigned Byte(const std::string& bytes, std::size_t at) { return static_cast<unsigned char>(bytes.at(at)); }

}  // namespace

struct Pelco::Head {
  Head(const Clock& clock, int address)
      : Pan(clock, Wrapped(-37.5 + 16 * address, -180), Motion::Endless, PresetSpeed),
        Tilt(clock, -11.25 + (address % 32), TiltRange, PresetSpeed),
        Zoom(clock, 345 + address, LensRange, ZoomSpeed),
        Focus(clock, 612 - address, LensRange, FocusSpeed),
        Iris(clock, 478 - address, LensRange, IrisSpeed) {}

  Pose At() const {
    return {Wrapped(Pan.Position(), -180), Tilt.Position(), Zoom.Position(), Focus.Position(),
            Iris.Position()};
  }

  void Goto(const Pose& pose) {
    Pan.TurnTo(pose.Pan);
    Tilt.MoveTo(pose.Tilt), Zoom.MoveTo(pose.Zoom), Focus.MoveTo(pose.Focus), Iris.MoveTo(pose.Iris);
  }

  Motion Pan, Tilt, Zoom, Focus, Iris;
  int AutoFocusMode = 1, AutoIrisMode = 1;
  std::map<int, Pose> Presets;
};

struct Pelco::Frame {
  bool IsP;
  int Address;       // as people count it, from 1
  unsigned Command;  // both command bytes, the first in the upper half
  unsigned Data1, Data2;
};

struct Pelco::Drive {
  const char *Forward, *Backward;
  unsigned D[2], P[2];  // the command bits of both directions
  Motion Head::*Part;
  double Speed;  // full speed for pan and tilt, the only one for the lens
};

// A standard command tells all drives at once: those whose bits are clear stop.
const Pelco::Drive Pelco::Drives[] = {
    {"right", "left", {0x0002, 0x0004}, {0x0002, 0x0004}, &Head::Pan, PanSpeed},
    {"up", "down", {0x0008, 0x0010}, {0x0008, 0x0010}, &Head::Tilt, TiltSpeed},
    {"tele", "wide", {0x0020, 0x0040}, {0x0020, 0x0040}, &Head::Zoom, ZoomSpeed},
    {"focus far", "focus near", {0x0080, 0x0100}, {0x0100, 0x0200}, &Head::Focus, FocusSpeed},
    {"iris open", "iris close", {0x0200, 0x0400}, {0x0400, 0x0800}, &Head::Iris, IrisSpeed},
};

Pelco::Pelco(const Options& options)
    : Simulator(options.Clock),
      Protocol_(options.Protocol),
      Heads_(MakeHeads(Time(), options.Addresses)),
      Line_([this](std::string& received) { return Take(received); }, options.Line, Log(), Faults()) {}

Pelco::~Pelco() = default;

std::map<int, Pelco::Head> Pelco::MakeHeads(const Clock& clock, const std::vector<int>& addresses) {
  std::map<int, Head> heads;
  for (const int address : addresses) {
    if (address < 1 || address > 255)
      throw std::invalid_argument("address " + std::to_string(address) + ": must be 1 to 255");
    if (!heads.try_emplace(address, clock, address).second)
      throw std::invalid_argument("address " + std::to_string(address) + ": given twice");
  }
  return heads;
}

std::optional<Message> Pelco::Take(std::string& received) {
  const auto begins = [&](char c) {
    const unsigned byte = static_cast<unsigned char>(c);
    return (byte == SyncD && Protocol_ != PelcoProtocol::P) ||
           (byte == SyncP && Protocol_ != PelcoProtocol::D);
  };
  const auto take = [&](std::size_t count) {
    std::string bytes = received.substr(0, count);
    received.erase(0, count);
    return bytes;
  };
  const auto start = std::find_if(received.begin(), received.end(), begins) - received.begin();
  if (start > 0) {
    Message garbage{.Raw = take(static_cast<std::size_t>(start)), .Meaning = "garbage"};
    garbage.Violation = "no frame begins with " + Hex(garbage.Raw);
    return garbage;
  }

  const bool isP = Byte(received, 0) == SyncP;
  const std::size_t length = isP ? 8 : 7;
  if (received.size() < length) return std::nullopt;
  Message message{.Raw = received.substr(0, length), .Meaning = "broken frame"};
  const std::string& raw = message.Raw;

  unsigned sum = 0;
  for (std::size_t i = isP ? 0 : 1; i + 1 < length; ++i) {
    sum = isP ? sum ^ Byte(raw, i) : (sum + Byte(raw, i)) & 0xFF;
  }
  if (isP && Byte(raw, 6) != EndP) {
    message.Violation = "the seventh byte is not AF: " + Hex(raw);
  } else if (Byte(raw, length - 1) != sum) {
    message.Violation = "the checksum is not " + Hex({static_cast<char>(sum)}) + ": " + Hex(raw);
  }
  if (!message.Violation.empty()) {
    // The next frame may begin within a broken one.
    const auto next = std::find_if(raw.begin() + 1, raw.end(), begins) - raw.begin();
    message.Raw = take(static_cast<std::size_t>(next));
    return message;
  }

  take(length);
  const Frame frame{.IsP = isP,
                    .Address = static_cast<int>(Byte(raw, 1)) + (isP ? 1 : 0),
                    .Command = Byte(raw, 2) << 8 | Byte(raw, 3),
                    .Data1 = Byte(raw, 4),
                    .Data2 = Byte(raw, 5)};
  message.Meaning = std::to_string(frame.Address) + ":";
  const std::lock_guard lock(Mutex_);
  const std::string wrong = Obey(frame, message.Meaning);
  if (!wrong.empty()) message.Violation = wrong + ": " + Hex(raw);
  return message;
}

std::string Pelco::Obey(const Frame& frame, std::string& meaning) {
  const auto found = Heads_.find(frame.Address);
  if (found == Heads_.end()) return "nobody has the address " + std::to_string(frame.Address);
  Head& head = found->second;
  if (frame.Command & Extended) return ObeyExtended(head, frame, meaning);

  // Controllers leave the speed of a drive that does not move as it is, so both must always be in range.
  if (frame.Data1 > Turbo) return "pan speed " + std::to_string(frame.Data1) + " is above 64";
  if (frame.Data2 > FullSpeed) return "tilt speed " + std::to_string(frame.Data2) + " is above 63";
  unsigned unknown = frame.Command;
  for (const Drive& drive : Drives) {
    const auto& bits = frame.IsP ? drive.P : drive.D;
    if ((frame.Command & bits[0]) && (frame.Command & bits[1]))
      return std::string(drive.Forward) + " and " + drive.Backward + " at once";
    unknown &= ~(bits[0] | bits[1]);
  }
  // These are reserved, or they switch what these receivers do not have: camera power and scanning.
  if (unknown) return "unknown command bits";

  for (const Drive& drive : Drives) {
    const auto& bits = frame.IsP ? drive.P : drive.D;
    const bool forward = frame.Command & bits[0], backward = frame.Command & bits[1];
    double speed = drive.Speed;
    std::string told;
    if (drive.Part == &Head::Pan) {
      speed = frame.Data1 == Turbo ? TurboSpeed : speed * frame.Data1 / FullSpeed;
      told = " " + std::to_string(frame.Data1);
    } else if (drive.Part == &Head::Tilt) {
      speed = speed * frame.Data2 / FullSpeed;
      told = " " + std::to_string(frame.Data2);
    }
    (head.*drive.Part).Run(forward ? speed : backward ? -speed : 0);
    if (forward || backward) meaning += " " + std::string(forward ? drive.Forward : drive.Backward) + told;
  }
  if (frame.Command == 0) meaning += " stop";
  return {};
}

std::string Pelco::ObeyExtended(Head& head, const Frame& frame, std::string& meaning) {
  const int number = static_cast<int>(frame.Data2);
  const std::string told = " " + std::to_string(number);
  switch (frame.Command) {
    case SetPreset:
    case ClearPreset:
    case GotoPreset:
      meaning += (frame.Command == SetPreset     ? " set preset"
                  : frame.Command == ClearPreset ? " clear preset"
                                                 : " go to preset") +
                 told;
      if (frame.Data1 != 0 || number == 0) return "presets are 00 01 to 00 FF";
      if (frame.Command == SetPreset) head.Presets[number] = head.At();
      if (frame.Command == ClearPreset) head.Presets.erase(number);
      if (frame.Command == GotoPreset && head.Presets.count(number)) head.Goto(head.Presets[number]);
      return {};
    case AutoFocus:
    case AutoIris:
      meaning += (frame.Command == AutoFocus ? " auto focus" : " auto iris") + told;
      if (frame.Data1 != 0 || number > 2) return "automatic is 00 00, on 00 01, off 00 02";
      (frame.Command == AutoFocus ? head.AutoFocusMode : head.AutoIrisMode) = number;
      return {};
    default:
      return "unknown extended command";
  }
}

Pelco::ReceiverState Pelco::Receiver(int address) const {
  const std::lock_guard lock(Mutex_);
  const Head& head = Heads_.at(address);
  const bool moving = std::any_of(std::begin(Drives), std::end(Drives),
                                  [&](const Drive& drive) { return (head.*drive.Part).Moving(); });
  return {head.At(), moving, head.AutoFocusMode, head.AutoIrisMode, head.Presets};
}

nlohmann::json Pelco::State() const {
  const auto json = [](const Pose& pose) -> nlohmann::json {
    return {{"pan", pose.Pan},
            {"tilt", pose.Tilt},
            {"zoom", pose.Zoom},
            {"focus", pose.Focus},
            {"iris", pose.Iris}};
  };
  nlohmann::json receivers = nlohmann::json::array();
  for (const auto& [address, head] : Heads_) {
    const ReceiverState state = Receiver(address);
    nlohmann::json receiver = json(state.At);
    receiver.update({{"address", address},
                     {"moving", state.Moving},
                     {"autofocus", state.AutoFocus},
                     {"autoiris", state.AutoIris},
                     {"presets", nlohmann::json::object()}});
    for (const auto& [number, pose] : state.Presets) receiver["presets"][std::to_string(number)] = json(pose);
    receivers.push_back(std::move(receiver));
  }
  return {{"line", Line_.State()}, {"receivers", std::move(receivers)}};
}

const Make Pelco::AtShell = {
    "pelco", "Pelco receivers on one line (Pelco-D and Pelco-P, serial)",
    [](Shell& shell) {
      const auto options = std::make_shared<Options>();
      auto& line = options->Line;
      shell.Words(
          "--addresses", {},
          [options, first = true](const std::string& address) mutable {
            if (std::exchange(first, false)) options->Addresses.clear();
            const auto number = WholeNumber(address);
            if (!number) throw std::invalid_argument("--addresses " + address + ": is not a number");
            options->Addresses.push_back(static_cast<int>(std::clamp(*number, 0LL, 256LL)));
          },
          "Addresses of the receivers, 1 to 255; 1 when not given");
      shell.Choice("--protocol", options->Protocol,
                   {{"d", PelcoProtocol::D}, {"p", PelcoProtocol::P}, {"both", PelcoProtocol::Both}},
                   "Protocol they understand; both when not given");
      shell.Word(
          "--baud", {"1200", "2400", "4800", "9600", "19200", "38400"},
          [&line](const std::string& baud) { line.Baud = std::stoi(baud); },
          "Speed they listen at; bytes at another one are a violation. When not given any will do");
      shell.Text("--line", line.Path,
                 "Path of the symbolic link to the terminal; when not given one is made up");
      shell.Number("--paced", line.PacedBaud, 0, 1000000, "Read no faster than bytes travel at this speed");
      shell.Flag("--cooked", line.Raw, false,
                 "Begin with echo, line editing and translated line ends, as terminals are found");
      return From<Pelco>(options);
    },
    ptzsim::Line::Terminal};

}  // namespace ptzsim
