#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <ostream>
#include <string>

#include <ptzd/PropertyBag.h>
#include <ptzd/SerialPortPool.h>
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
#include "support/FakeClock.h"

namespace ptzd::test {

/// Where a camera looks: degrees, right and up positive; the rest in the camera's units, more of them for
/// closer, open and far.
struct Pose {
  double Pan = 0, Tilt = 0, Zoom = 0, Iris = 0, Focus = 0;
};

template <class Camera>
Pose Look(const ptzsim::Simulator& simulator) {
  const auto head = static_cast<const Camera&>(simulator).Head();
  Pose pose{static_cast<double>(head.Pan), static_cast<double>(head.Tilt)};
  if constexpr (requires { head.Zoom; }) pose.Zoom = static_cast<double>(head.Zoom);
  if constexpr (requires { head.Iris; }) pose.Iris = head.Iris;
  if constexpr (requires { head.Brightness; }) pose.Iris = head.Brightness;
  if constexpr (requires { head.Focus; }) pose.Focus = head.Focus;
  return pose;
}

/// What counts down towards closer.
inline Pose LookAtGrandeye(const ptzsim::Simulator& simulator) {
  auto pose = Look<ptzsim::Grandeye>(simulator);
  pose.Zoom = -pose.Zoom;
  return pose;
}

/// 14.4 units a degree, and tilt 0 lies 32.5 degrees above the middle.
inline Pose LookAtSony(const ptzsim::Simulator& simulator) {
  const auto pose = Look<ptzsim::Sony>(simulator);
  return {pose.Pan / 14.4, pose.Tilt / 14.4 - 32.5, pose.Zoom};
}

inline Pose LookAtQuorvane(const ptzsim::Simulator& simulator) {
  const auto feed = static_cast<const ptzsim::Quorvane&>(simulator).At("3");
  return {feed.Pan, feed.Tilt, feed.Zoom};
}

inline Pose LookAtSecubest(const ptzsim::Simulator& simulator) {
  const auto unit = static_cast<const ptzsim::Secubest&>(simulator).Unit();
  return {unit.Pan, unit.Tilt, unit.Zoom};
}

#ifndef _WIN32
/// In degrees of a head that turns by one in 10 ms, which is what drivers of this make count on; these
/// receivers do 80 and 40 a second.
inline Pose LookAtPelco(const ptzsim::Simulator& simulator) {
  const auto at = static_cast<const ptzsim::Pelco&>(simulator).Receiver().At;
  return {at.Pan / 0.8, at.Tilt / 0.4, at.Zoom, at.Iris, at.Focus};
}
#endif

/// What of a reply to a move shows a driver that the camera does not do it.
enum class Judged { Nothing, Status, Body };

/// What is peculiar to a driver and its camera.
struct Traits {
  double ZoomStep = 0;  ///< camera units of a step, which is a quarter of the interfaces' 1
  double IrisStep = 0, FocusStep = 0;
  double Widest = 0;           ///< the camera's zoom where the interfaces have 0
  bool FromStart = false;      ///< positions count from where the camera looked on connecting
  bool ReadsZoom = true;       ///< else the driver's zoom is 0 until it has sent one
  bool EightWays = false;      ///< turns straight, or by the same angle on both axes
  bool TurnsDownOnly = false;  ///< by PTZDevice2::Move
  bool ZoomsOutAtHome = false;
  double PanWithin = 0.51, TiltWithin = 0.51;  ///< degrees; most drivers work in whole ones
  const char* Preset = "";                     ///< what the camera calls preset 2; empty where it has none
  Pose MainGate{};                             ///< where the first of the named presets is
  bool Answers = true;                         ///< else a command is sent and not waited for
  Judged Replies = Judged::Nothing;
  bool ReadsAnyBody = false;  ///< its position stands at fixed places of whatever comes
  bool KeepsTarget = false;   ///< as its position, also where the move failed
  const char* Variant = "";   ///< where a driver is tried on several cameras
};

/// A camera that a driver is tried on.
struct Make {
  const char* Class;
  std::function<std::unique_ptr<ptzsim::Simulator>()> Camera;
  Pose (*Look)(const ptzsim::Simulator&);
  Traits Its;

  std::string ProgID() const { return std::string("QVPTZ.") + Class; }
};
inline void PrintTo(const Make& make, std::ostream* out) { *out << make.Class << make.Its.Variant; }

template <class Camera>
Make On(const char* driver, typename Camera::Options options, Traits its,
        Pose (*look)(const ptzsim::Simulator&) = Look<Camera>) {
  options.Clock = ptzsim::ClockKind::Manual;
  return {driver, [options] { return std::make_unique<Camera>(options); }, look, its};
}

inline const Make Makes[] = {
    // A step is a quarter of the magnification that the field angles give.
    On<ptzsim::Axis>(
        "Axis", {},
        {.ZoomStep = 9999 / (623 / 22.0) / 1.1 / 4, .IrisStep = 1000, .FocusStep = 1000, .Widest = 1}),
    On<ptzsim::Axis>("Axis", {.Heads = {ptzsim::AxisHead::Relative}},
                     {.ZoomStep = 101,
                      .IrisStep = 1000,
                      .FocusStep = 1000,
                      .FromStart = true,
                      .Preset = "Quor-vane Preset 2",
                      .Variant = "Relative"}),
    On<ptzsim::Bosch>("Bosch", {}, {.ZoomStep = 0.25, .TurnsDownOnly = true, .KeepsTarget = true}),
    On<ptzsim::Elmo>(
        "Elmo", {.Model = "200"},
        {.ZoomStep = 50, .IrisStep = 50, .FocusStep = 50, .Preset = "3", .Replies = Judged::Body}),
    On<ptzsim::Elmo>(
        "Elmo4", {.Model = "400"},
        {.ZoomStep = 108, .Widest = 64, .ZoomsOutAtHome = true, .Preset = "3", .KeepsTarget = true}),
    On<ptzsim::Elmo>("Elmo402", {.Model = "PTC-402C"},
                     {.ZoomStep = 104.5, .ZoomsOutAtHome = true, .KeepsTarget = true}),
    On<ptzsim::Foscam>("Foscam", {}, {.FromStart = true, .EightWays = true, .Preset = "2"}),
    On<ptzsim::Foscam>("FoscamHD", {.Generation = ptzsim::Foscam::Kind::HD},
                       {.FromStart = true, .EightWays = true, .Preset = "Quorvane preset 3"}),
    On<ptzsim::Grandeye>("Grandeye", {}, {.ZoomStep = 250}, LookAtGrandeye),
    On<ptzsim::MeritLilin>("MeritLilin", {},
                           {.ZoomStep = 1, .IrisStep = 1, .FocusStep = 1, .Widest = 1, .Preset = "2"}),
    On<ptzsim::Panasonic>("Panasonic", {},
                          {.ZoomStep = 50, .IrisStep = 1, .FocusStep = 50, .Replies = Judged::Status}),
    On<ptzsim::PanasoniciPro>("PanasoniciPro", {},
                              {.ZoomStep = 0.25, .Widest = 1, .Replies = Judged::Status}),
    On<ptzsim::Panogenics>("Panogenics", {},
                           {.ZoomStep = 12.5, .Preset = "3", .Replies = Judged::Body, .KeepsTarget = true}),
#ifndef _WIN32  // has no pseudo-terminals
    On<ptzsim::Pelco>("Pelco", {.Line = {.Baud = 2400, .Raw = false}},
                      {.ZoomStep = 50,
                       .IrisStep = 31.25,
                       .FocusStep = 50,
                       .FromStart = true,
                       .EightWays = true,
                       .Preset = "3",
                       .Answers = false},
                      LookAtPelco),
#endif
    On<ptzsim::Quorvane>(
        "Quorvane", {},
        {.ZoomStep = 0.25, .FromStart = true, .MainGate = {-317, 42, 2.5}, .Replies = Judged::Body},
        LookAtQuorvane),
    On<ptzsim::Sanyo>("Sanyo", {.Session = std::chrono::hours(24)},
                      {.ZoomStep = 0.25, .Preset = "3", .ReadsAnyBody = true, .KeepsTarget = true}),
    On<ptzsim::Secubest>(
        "Secubest", {},
        {.ZoomStep = 0.25, .FromStart = true, .EightWays = true, .Answers = false, .KeepsTarget = true},
        LookAtSecubest),
    On<ptzsim::Sony>("Sony", {},
                     {.ZoomStep = 1300, .ReadsZoom = false, .Answers = false, .KeepsTarget = true},
                     LookAtSony),
    // A grid of 7 by 5.4 degrees.
    On<ptzsim::Toshiba>("Toshiba", {.Model = "IK-WB01"}, {.PanWithin = 3.6, .TiltWithin = 2.8}),
    On<ptzsim::Toshiba>("Toshiba2", {.Model = "IK-WB15"}, {.ZoomStep = 50, .KeepsTarget = true}),
    On<ptzsim::Vivotek>("Vivotek", {},
                        {.ZoomStep = 50,
                         .Preset = "Quorvane preset 2",
                         .MainGate = {-52.25, -17, 610},
                         .Replies = Judged::Status}),
};

/// Lets the camera's time pass where a driver waits, once what it sent before has arrived.
class CameraClock : public test::FakeClock {
 public:
  void SleepUntil(TimePoint deadline) override {
    if (Camera == nullptr || deadline <= Now()) return;
    Camera->Log().WaitForRequests(Messages);
    Slept = true;
    Camera->Time().Advance(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Now()));
    FakeClock::SleepUntil(deadline);
  }
  ptzsim::Simulator* Camera = nullptr;
  std::size_t Messages = 1;
  bool Slept = false;
};

/// The options that lead to a make's camera. Where that hangs on a serial line, this thread's ports are
/// replaced by one that leads there.
inline Bytes OptionsFor(const Make& make, const ptzsim::Simulator& camera) {
  PropertyBag options;
#ifndef _WIN32
  if (make.Class == std::string("Pelco")) {
    auto ports = std::make_shared<SharedSerialPorts>();
    ports->MapDevice(1, camera.Addresses()[0]);
    UseSerialPortPool(ports);
    options.WriteProperty("COMPort", 1);
  }
#else
  static_cast<void>(make);
#endif
  options.WriteProperty("Address", camera.Addresses()[0]);
  options.WriteProperty("Feed", std::string("3"));
  return options.Contents();
}

}  // namespace ptzd::test
