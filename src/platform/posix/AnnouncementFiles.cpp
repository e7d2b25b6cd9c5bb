#include "platform/posix/AnnouncementFiles.h"

#include <fstream>
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

std::vector<Announcement> ReadFile(const std::filesystem::path& path) {
  std::vector<Announcement> announcements;
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

std::filesystem::path UserFile() {
  const auto folder = UserConfigurationFolder();
  return folder.empty() ? folder : folder / "drivers";
}

class SystemAnnouncements final : public DriverAnnouncements {
 public:
  std::vector<Announcement> Machine() override { return ReadFile(MachineConfigurationFolder() / "drivers"); }
  std::vector<Announcement> User() override { return ReadFile(UserFile()); }
};

}  // namespace

std::vector<Announcement> AnnouncementFiles::Machine() { return ReadFile(Machine_); }
std::vector<Announcement> AnnouncementFiles::User() { return ReadFile(User_); }

DriverAnnouncements& SystemDriverAnnouncements() {
  static SystemAnnouncements announcements;
  return announcements;
}

}  // namespace ptzd
