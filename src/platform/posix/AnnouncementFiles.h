#pragma once

#include <filesystem>

#include "platform/DriverAnnouncements.h"

namespace ptzd {

/// Announcements in two UTF-8 text files. Every line is a ProgID, "=" and a display name; blanks around them
/// do not count. Empty lines and lines that begin with "#" or ";" are skipped, and so is a malformed one,
/// with a log line.
class AnnouncementFiles final : public DriverAnnouncements {
 public:
  AnnouncementFiles(std::filesystem::path machine, std::filesystem::path user)
      : Machine_(std::move(machine)), User_(std::move(user)) {}

  std::vector<Announcement> Machine() override;
  std::vector<Announcement> User() override;

 private:
  std::filesystem::path Machine_;
  std::filesystem::path User_;
};

}  // namespace ptzd
