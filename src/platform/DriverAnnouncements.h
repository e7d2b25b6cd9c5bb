#pragma once

#include <string>
#include <vector>

namespace ptzd {

/// A driver of another package, announced for the catalogue.
struct Announcement {
  std::string ProgID;
  std::string Name;  ///< what a user is shown
};

/// Where other packages announce their drivers: the registry on Windows, two text files elsewhere. Nothing
/// found is no error.
class DriverAnnouncements {
 public:
  virtual ~DriverAnnouncements() = default;
  virtual std::vector<Announcement> Machine() = 0;
  virtual std::vector<Announcement> User() = 0;
};

/// The system's own, implemented by the platform.
DriverAnnouncements& SystemDriverAnnouncements();

}  // namespace ptzd
