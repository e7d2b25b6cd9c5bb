// Announcements in two UTF-8 text files. Every line is a ProgID, "=" and a display name; blanks around them
// do not count. Empty lines and lines that begin with "#" or ";" are skipped, and so is a malformed one, with
// a log line.

#include "platform/DriverAnnouncements.h"

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include <ptzd/Logging.h>
#include "platform/ConfigurationFolders.h"

namespace ptzd {

namespace {

constexpr std::string_view Blanks = " \t\r";
constexpr std::string_view ByteOrderMark = "\xEF\xBB\xBF";

std::string_view Trim(std::string_view text) {
  const auto first = text.find_first_not_of(Blanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(Blanks) - first + 1);
}

/// None of an empty folder, which is none.
std::vector<Announcement> ReadFileIn(const std::filesystem::path& folder) {
  std::vector<Announcement> announcements;
  if (folder.empty()) return announcements;
  const auto path = folder / "drivers";
  std::ifstream file(path, std::ios::binary);
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    std::string_view text = line;
    if (++number == 1 && text.starts_with(ByteOrderMark)) text.remove_prefix(ByteOrderMark.size());
    text = Trim(text);
    if (text.empty() || text.front() == '#' || text.front() == ';') continue;
    const auto sign = text.find('=');
    const auto progID = Trim(text.substr(0, sign));
    if (sign == std::string_view::npos || progID.empty() || text.find('\0') != std::string_view::npos) {
      LogMessage(
          path.string() + ", line " + std::to_string(number) + ": not \"ProgID = display name\", skipped",
          LogLevel::Warning);
      continue;
    }
    announcements.push_back({std::string(progID), std::string(Trim(text.substr(sign + 1)))});
  }
  return announcements;
}

class AnnouncementFiles final : public DriverAnnouncements {
 public:
  std::vector<Announcement> Machine() override { return ReadFileIn(MachineConfigurationFolder()); }
  std::vector<Announcement> User() override { return ReadFileIn(UserConfigurationFolder()); }
};

}  // namespace

DriverAnnouncements& SystemDriverAnnouncements() {
  static AnnouncementFiles announcements;
  return announcements;
}

}  // namespace ptzd
