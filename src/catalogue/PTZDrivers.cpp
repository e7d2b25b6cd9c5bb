#include <ptzd/PTZDrivers.h>

#include <cmath>

#include <ptzd/Error.h>
#include "common/Numbers.h"

namespace ptzd {

namespace {

struct BuiltIn {
  const char* Class;
  const char* Name;
};

// A separate library's driver, listed whether it is installed or not.
constexpr const char* SimpleDriver = "qvptzsimple.simple";

// By name, then the serial line, the separate library's driver and the product's own remote system.
constexpr BuiltIn BuiltIns[] = {
    {"QVPTZ.ALinking", "A-Linking cameras"},
    {"QVPTZ.ACTi", "ACTi cameras"},
    {"QVPTZ.Axis", "Axis cameras"},
    {"QVPTZ.Bosch", "Bosch cameras"},
    {"QVPTZ.Elmo", "Elmo 200 series cameras"},
    {"QVPTZ.Elmo4", "Elmo 400 series cameras"},
    {"QVPTZ.Elmo402", "Elmo PTC-402C cameras"},
    {"QVPTZ.Etrovision", "Etrovision cameras"},
    {"QVPTZ.Foscam", "Foscam cameras"},
    {"QVPTZ.FoscamHD", "Foscam HD cameras"},
    {"QVPTZ.Genie", "Genie IP cameras"},
    {"QVPTZ.Grandeye", "Grandeye cameras"},
    {"QVPTZ.MeritLilin", "Merit Lilin cameras"},
    {"QVPTZ.Panasonic", "Panasonic cameras"},
    {"QVPTZ.PanasoniciPro", "Panasonic iPro cameras"},
    {"QVPTZ.Panogenics", "Panogenics cameras"},
    {"QVPTZ.Sanyo", "Sanyo cameras"},
    {"QVPTZ.Secubest", "Secubest cameras"},
    {"QVPTZ.Sony", "Sony cameras"},
    {"QVPTZ.Toshiba", "Toshiba IK-WB01 and WB11 cameras"},
    {"QVPTZ.Toshiba2", "Toshiba IK-WB15 and WB21 cameras"},
    {"QVPTZ.Vivotek", "Vivotek & D-Link cameras"},
    {"QVPTZ.Pelco", "Pelco RS485 controller"},
    {SimpleDriver, "Quorvane simple PTZ driver"},
    {"QVPTZ.Quorvane", "Quorvane system"},
};

}  // namespace

PTZDrivers::PTZDrivers(DriverAnnouncements& announcements) {
  for (const auto& [progID, name] : BuiltIns) Entries_.push_back(std::make_shared<PTZDriver>(name, progID));
  Add(announcements.Machine());
  Add(announcements.User());
}

void PTZDrivers::Add(const std::vector<Announcement>& announcements) {
  for (const auto& [progID, name] : announcements)
    if (progID != SimpleDriver) Entries_.push_back(std::make_shared<PTZDriver>(name, progID));
}

std::shared_ptr<PTZDriver> PTZDrivers::Item(const Variant& indexKey) const {
  // No entry has a key, so no text finds one, not even that of a number.
  if (std::holds_alternative<std::string>(indexKey) || std::holds_alternative<Bytes>(indexKey))
    Raise(ErrorInvalidCall);
  const double position = std::nearbyint(ToDouble(indexKey));
  if (!(position >= 1 && position <= Count())) Raise(ErrorInvalidCall);
  return Entries_[static_cast<std::size_t>(position) - 1];
}

}  // namespace ptzd
