#include <ptzd/PTZDrivers.h>

#include <cmath>

#include <ptzd/Error.h>
#include "catalogue/Catalogue.h"
#include "common/Numbers.h"
#include "platform/DriverAnnouncements.h"

namespace ptzd {

PTZDrivers::PTZDrivers() : PTZDrivers(SystemDriverAnnouncements()) {}

PTZDrivers::PTZDrivers(DriverAnnouncements& announcements) {
  for (const auto& row : Catalogue())
    Entries_.push_back(std::make_shared<PTZDriver>(std::string(row.Name), std::string(row.Class.ProgID)));
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
