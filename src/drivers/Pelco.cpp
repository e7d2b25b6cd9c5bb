// Pelco receivers: frames of 7 bytes (Pelco-D) or 8 (Pelco-P) written to a serial line, never answered. Both
// protocols carry two command and two data bytes; most commands are the same in both. Every receiver on the
// line reads every frame and acts on those with its address.

#include "drivers/Pelco.h"

#include <algorithm>
#include <array>
#include <cmath>

#include <ptzd/Error.h>
#include <ptzd/Logging.h>
#include "common/Numbers.h"
#include "drivers/kit/LineExchange.h"
#include "drivers/kit/TimedMove.h"

namespace ptzd {

namespace {

enum Protocols : std::int32_t { PelcoD = 0, PelcoP = 1 };

// Bits of command 2.
enum Motion : std::uint8_t { Right = 0x02, Left = 0x04, Up = 0x08, Down = 0x10, Tele = 0x20, Wide = 0x40 };

constexpr std::uint8_t SyncD = 0xFF;
constexpr std::uint8_t StartP = 0xA0, EndP = 0xAF;

constexpr std::int32_t TurboSpeed = 64;  // a pan speed only
constexpr std::int32_t FullSpeed = 63;
constexpr std::int32_t LensInterval = 250;  // milliseconds of an iris or focus step
constexpr double DegreesPerInterval = 5;
constexpr float MinPan = -180, MaxPan = 180, MinTilt = -90, MaxTilt = 90;  // degrees

// The counts are those of the other protocol's receivers, on purpose.
constexpr std::int32_t PresetsOfPelcoD = 32, PresetsOfPelcoP = 255;

std::uint8_t MotionBits(double pan, double tilt) {
  const int panBit = pan < 0 ? Left : pan > 0 ? Right : 0;
  const int tiltBit = tilt < 0 ? Down : tilt > 0 ? Up : 0;
  return static_cast<std::uint8_t>(panBit | tiltBit);
}

/// Receivers count presets from 1. Raises 6 outside 0 to 254.
std::uint8_t PresetByte(std::int32_t preset) {
  if (preset < 0) Raise(ErrorOverflow);
  return ToByte(preset + 1.0);
}

/// The same angle between -180 and 180 degrees. Raises 6 beyond 32 bits.
float NormalisePan(float pan) {
  ToInt32(pan);
  double angle = pan;
  if (angle < MinPan) angle += 360 * std::ceil((MinPan - angle) / 360);
  if (angle > MaxPan) angle -= 360 * std::ceil((angle - MaxPan) / 360);
  return ToSingle(angle);
}

constexpr std::string_view Bauds[] = {"2400", "4800", "9600"};
constexpr std::string_view ProtocolNames[] = {"Pelco D", "Pelco P"};  // by `Protocols`

/// 0, which no settings page offers, is none; the descriptor's default is the first port.
constexpr TypedOption<std::int32_t> PortNumberOption{{.Name = "COMPort",
                                                      .Description = "COM Port",
                                                      .OType = OptionInteger,
                                                      .Default = 1,
                                                      .Least = 1,
                                                      .Greatest = 4}};
constexpr TypedOption<std::string> BaudOption{{.Name = "Baud",
                                               .Description = "Port speed",
                                               .OType = OptionChoiceText,
                                               .Default = Bauds[0],
                                               .Choices = Bauds}};
constexpr TypedOption<std::int32_t> ProtocolOption{{.Name = "Protocol",
                                                    .Description = "Protocol",
                                                    .OType = OptionChoiceIndex,
                                                    .Default = PelcoD,
                                                    .Choices = ProtocolNames}};
constexpr TypedOption<std::int32_t> MoveIntervalOption{{.Name = "MoveInterval",
                                                        .Description = "Move interval",
                                                        .OType = OptionInteger,
                                                        .Default = 50,
                                                        .Greatest = 10000}};
constexpr TypedOption<std::int32_t> MoveSpeedOption{{.Name = "MoveSpeed",
                                                     .Description = "Move speed",
                                                     .OType = OptionInteger,
                                                     .Default = FullSpeed,
                                                     .Greatest = TurboSpeed}};
constexpr TypedOption<std::int32_t> ZoomIntervalOption{{.Name = "ZoomInterval",
                                                        .Description = "Zoom interval",
                                                        .OType = OptionInteger,
                                                        .Default = 200,
                                                        .Greatest = 10000}};
constexpr const DriverOption* Options[] = {&LineAddressOption, &ResetOption,       &PortNumberOption,
                                           &BaudOption,        &ProtocolOption,    &MoveIntervalOption,
                                           &MoveSpeedOption,   &ZoomIntervalOption};

constexpr Evidence Signs[] = {
    {.Place = Evidence::Places::Line, .Strength = Evidence::Strengths::Allows},  // never answers
};
constexpr std::string_view MakeNames[] = {"Pelco"};

}  // namespace

struct Pelco::Command {
  std::uint8_t Command1 = 0, Command2 = 0, Data1 = 0, Data2 = 0;
};

struct Pelco::Frame {
  std::array<std::uint8_t, 8> Bytes{};
  std::size_t Size = 0;
};

/// What `Iris` or `Focus` sends: first the automatic mode on or off, then the motor's command, which is not
/// the same in both protocols.
template <typename Mode>
struct Pelco::ModeRow {
  Mode Value;
  Command Automatic;
  Command MotorD, MotorP;
};

struct Pelco::Tables {
  static constexpr Command Stop{};
  static constexpr Command ZoomTele{.Command2 = Tele}, ZoomWide{.Command2 = Wide};
  static constexpr std::uint8_t SetPreset = 0x03, GotoPreset = 0x07;  // command 2
  static constexpr Command AutoIrisOn{.Command2 = 0x2D}, AutoIrisOff{.Command2 = 0x2D, .Data2 = 2};
  static constexpr Command AutoFocusOn{.Command2 = 0x2B}, AutoFocusOff{.Command2 = 0x2B, .Data2 = 2};

  static constexpr ModeRow<ptzd::Iris> Iris[] = {
      {IrisAuto, AutoIrisOn, AutoIrisOn, AutoIrisOn},
      {IrisOpen, AutoIrisOff, {.Command1 = 0x02}, {.Command1 = 0x04}},
      {IrisClose, AutoIrisOff, {.Command1 = 0x04}, {.Command1 = 0x08}},
  };
  static constexpr ModeRow<ptzd::Focus> Focus[] = {
      {FocusAuto, AutoFocusOn, AutoFocusOn, AutoFocusOn},
      {FocusNear, AutoFocusOff, {.Command1 = 0x01}, {.Command1 = 0x02}},
      {FocusFar, AutoFocusOff, {.Command2 = 0x80}, {.Command1 = 0x01}},
  };
};

const DriverData Pelco::Data = {
    .Class = "QVPTZ.Pelco",
    .Capabilities = CapabilityPan | CapabilityTilt | CapabilityZoom | CapabilityIris | CapabilityFocus |
                    CapabilityPreset | CapabilityAutoIris | CapabilityAutoFocus2 | CapabilityMultiport |
                    CapabilityContinuousMove | CapabilityExtendedOptions | CapabilityNoAddress |
                    CapabilitySimpleControl | CapabilityContinuousZoom,
    .PresetCount = PresetsOfPelcoD,  // until told the other protocol
    .Move = MemberRule::SucceedsIfConnected,
    .MoveTo = MemberRule::SucceedsIfConnected,
    .MoveBoth = MemberRule::SucceedsIfConnected,
    .Zoom = MemberRule::FailsIfConnected,  // on purpose, also though it was driven
    .Iris = MemberRule::SucceedsIfConnected,
    .Focus = MemberRule::SucceedsIfConnected,
    .PresetGoto = MemberRule::Succeeds,
    .PresetSave = MemberRule::Succeeds,
    .SetPanTilt = PlaceRule::TakenIfConnected,
    .PanRange = ValueRange{MinPan, MaxPan, "degrees", Beyond::GoesAround},
    .TiltRange = ValueRange{MinTilt, MaxTilt, "degrees", Beyond::Limited},
    .PanSpeed = ValueRange{-TurboSpeed, TurboSpeed, "camera speeds, the last one turbo"},
    .TiltSpeed = ValueRange{-FullSpeed, FullSpeed, "camera speeds"},
    .ZoomSpeed = ValueRange{.Ends = Beyond::SignOnly},
    .AsksToConnect = false,
    .NeedsLine = true,
    .Options = Options,
    .Evidence = Signs,
    .MakeNames = MakeNames,
};

Pelco::Pelco(const Platform& platform)
    : Driver(Data, platform), ContinuousDriver(Data), DescribedOptions(Data) {}

Pelco::~Pelco() { GiveBackQuietly(); }

bool Pelco::Open() {
  const auto portNumber = Options_.Long(PortNumberOption.Name, 0);
  if (portNumber == 0) return false;

  try {
    OpenPort(portNumber);
    Connected_ = true;  // and stays so where an option below raises
  } catch (const std::exception& error) {
    LogMessage(std::string("The serial port could not be opened. ") + error.what(), LogLevel::Error);
    TellNotOpened(error);
    GiveBackQuietly();
  }

  Protocol_ = ProtocolOption.In(Options_);
  MoveInterval_ = MoveIntervalOption.In(Options_);
  MoveSpeed_ = MoveSpeedOption.In(Options_);
  ZoomInterval_ = ZoomIntervalOption.In(Options_);
  if (ResetOption.In(Options_)) GoTo({});
  return Connected_;
}

void Pelco::TellNotOpened(const std::exception& error) const {
  const auto told = Teller_.Begin(ExchangeLink::Serial);
  if (!told) return;
  const auto* known = dynamic_cast<const Error*>(&error);
  told->Told().Where = Subject_.Address;
  told->Fail(known != nullptr ? known->Number() : SerialErrorDevice, error.what());
  told->TakeFailure(LinkFailure::NotConnected);
  told->TellEnded();
}

void Pelco::OpenPort(std::int32_t portNumber) {
  Subject_.Address = "COM" + Text(portNumber);
  Pool_ = ThreadSerialPortPool();
  Port_ = Pool_->Acquire(portNumber);
  if (!Port_) Raise(ErrorObjectNotSet);
  Acquired_ = true;
  if (Port_->PortOpen()) return;  // with the settings of whoever opened it
  Port_->Settings(BaudOption.In(Options_) + ",n,8,1");
  Port_->PortOpen(true);
}

/// Once for every acquisition. True where this was the last user, who closes the port.
bool Pelco::GiveBackPort() {
  if (!Acquired_) return false;
  const auto portNumber = Port_->CommPort();
  Acquired_ = false;
  if (!Pool_->Release(portNumber)) return false;
  Port_->PortOpen(false);
  return true;
}

void Pelco::GiveBackQuietly() {
  try {
    GiveBackPort();
  } catch (const std::exception& error) {
    LogMessage(std::string("The serial port could not be given back. ") + error.what(), LogLevel::Warning);
  }
}

void Pelco::LetGo() {
  GiveBackQuietly();
  Port_.reset();
}

void Pelco::Release() {
  if (!Port_) Raise(ErrorObjectNotSet);
  Connected_ = false;
  // While others use the port the driver keeps hold of it, and can still write to it.
  if (GiveBackPort()) Port_.reset();
}

bool Pelco::GoTo(HeadPosition target) {
  const auto pan = ToSingle(target.Pan), tilt = ToSingle(target.Tilt);
  const float panAway = ToSingle(pan - Current_.Pan);
  const float tiltAway = ToSingle(tilt - Current_.Tilt);
  const float distance = ToSingle(static_cast<double>(std::fabs(tiltAway)) + std::fabs(panAway));
  // Both motors run at once, so a diagonal takes the mean of both ways.
  const int motors = panAway != 0 && tiltAway != 0 ? 2 : 1;
  const auto degrees = ToInt32(static_cast<double>(distance) / motors);
  const auto wait = ToInt32(MoveInterval_ / DegreesPerInterval * degrees);
  const float newPan = NormalisePan(pan);
  ToInt32(tilt);

  Drive({.Command2 = MotionBits(panAway, tiltAway),
         .Data1 = ToByte(MoveSpeed_),
         .Data2 = ToByte(MoveSpeed_ == TurboSpeed ? FullSpeed : MoveSpeed_)},
        wait);
  Current_ = {newPan, std::clamp(tilt, MinTilt, MaxTilt)};
  return true;
}

bool Pelco::ZoomBy(Zooms direction, float) {
  Drive(direction == ZoomIn ? Tables::ZoomTele : Tables::ZoomWide, ZoomInterval_);
  return true;
}

bool Pelco::SetIris(ptzd::Iris level) {
  return DriveMode(std::span<const ModeRow<ptzd::Iris>>(Tables::Iris), level);
}

bool Pelco::SetFocus(ptzd::Focus level) {
  return DriveMode(std::span<const ModeRow<ptzd::Focus>>(Tables::Focus), level);
}

std::int32_t Pelco::PresetCount() { return Protocol_ == PelcoD ? PresetsOfPelcoD : PresetsOfPelcoP; }

bool Pelco::SavePreset(std::int32_t preset) {
  return SendCommand({.Command2 = Tables::SetPreset, .Data2 = PresetByte(preset)});
}

bool Pelco::GoToPreset(std::int32_t preset) {
  return SendCommand({.Command2 = Tables::GotoPreset, .Data2 = PresetByte(preset)});
}

void Pelco::ContinuousMove(float pan, float tilt) {
  SendCommand(
      {.Command2 = MotionBits(pan, tilt), .Data1 = ToByte(std::fabs(pan)), .Data2 = ToByte(std::fabs(tilt))});
}

void Pelco::ContinuousZoom(float amount) {
  ToSingle(amount);  // no speed that is no number passes for a stop
  SendCommand(amount > 0 ? Tables::ZoomTele : amount < 0 ? Tables::ZoomWide : Tables::Stop);
}

/// Only the old tilt is clamped, which the new one replaces at once: a host may set any tilt, on purpose.
void Pelco::TakePlace(float pan, float tilt) { Current_ = {NormalisePan(pan), ToSingle(tilt)}; }

void Pelco::Drive(const Command& command, std::int32_t wait) {
  const auto frame = BuildFrame(command), stop = BuildFrame(Tables::Stop);
  DriveFor(
      *Platform_.Clock, wait, [&] { Output(frame); }, [&] { Output(stop); });
}

template <typename Mode>
bool Pelco::DriveMode(std::span<const ModeRow<Mode>> table, Mode mode) {
  const auto row = std::ranges::find(table, mode, &ModeRow<Mode>::Value);
  if (row == table.end()) return false;
  const auto automatic = BuildFrame(row->Automatic);
  const auto motor = BuildFrame(Protocol_ == PelcoP ? row->MotorP : row->MotorD);
  const auto stop = BuildFrame(Tables::Stop);
  DriveFor(
      *Platform_.Clock, LensInterval,
      [&] {
        Output(automatic);
        Output(motor);
      },
      [&] { Output(stop); });
  return true;
}

Pelco::Frame Pelco::BuildFrame(const Command& command) const {
  const auto option = LineAddressOption.In(Options_);
  if (option < 0 || option > 255)
    throw Error(ErrorOverflow, RunTimeErrorText(ErrorOverflow) + ": option Port");
  const auto address = static_cast<std::uint8_t>(std::max(option, 1));
  const auto& [command1, command2, data1, data2] = command;

  if (Protocol_ == PelcoD) {
    // The protocol's sum is modulo 256. A sum beyond a byte is refused all the same, on purpose.
    const auto checksum = ToByte(address + command1 + command2 + data1 + data2);
    return {{SyncD, address, command1, command2, data1, data2, checksum}, 7};
  }
  if (Protocol_ == PelcoP) {
    const auto line = static_cast<std::uint8_t>(address - 1);
    const auto checksum =
        static_cast<std::uint8_t>(StartP ^ line ^ command1 ^ command2 ^ data1 ^ data2 ^ EndP);
    return {{StartP, line, command1, command2, data1, data2, EndP, checksum}, 8};
  }
  return {};  // an unknown protocol has empty frames
}

bool Pelco::SendCommand(const Command& command) {
  Output(BuildFrame(command));
  return true;
}

void Pelco::Output(const Frame& frame) {
  if (!Port_) Raise(ErrorObjectNotSet);
  const auto bytes = std::span(frame.Bytes).first(frame.Size);
  const auto write = [&] {
    Port_->Output(bytes);
    return 0;
  };
  if (bytes.empty())
    write();
  else
    TellLine(Teller_, ExchangeLink::Serial, Subject_.Address, bytes, write);
}

}  // namespace ptzd
