#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <ptzd/Export.h>
#include <ptzd/PTZDriver.h>
#include <ptzd/Variant.h>

namespace ptzd {

struct Announcement;
class DriverAnnouncements;

/// The drivers that a host offers its user: those of this library in a fixed order, then those that other
/// packages announce, machine-wide ones before the user's. Read once, when it is created.
class PTZD_API PTZDrivers {
 public:
  PTZDrivers();
  /// With announcements from elsewhere than the system.
  explicit PTZDrivers(DriverAnnouncements& announcements);

  /// The entry at a position counted from 1. Raises 5 (invalid procedure call) for any other number and any
  /// text.
  std::shared_ptr<PTZDriver> Item(const Variant& indexKey) const;
  std::int32_t Count() const { return static_cast<std::int32_t>(Entries_.size()); }
  /// All entries in order.
  const std::vector<std::shared_ptr<PTZDriver>>& NewEnum() const { return Entries_; }

 private:
  void Add(const std::vector<Announcement>& announcements);

  std::vector<std::shared_ptr<PTZDriver>> Entries_;  // a host may keep an entry beyond the catalogue
};

}  // namespace ptzd
