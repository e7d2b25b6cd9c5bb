#include "platform/DriverAnnouncements.h"

#include <array>
#include <string_view>

#include "platform/windows/AnsiText.h"
#include "platform/windows/SystemHeaders.h"

namespace ptzd {

namespace {

constexpr const char* Key = "Software\\Qelto\\PTZ\\Drivers";
constexpr REGSAM Access = KEY_QUERY_VALUE | KEY_ENUMERATE_SUB_KEYS | KEY_NOTIFY;
constexpr std::size_t LongestText = 255;  // the NUL that ends it included

using Buffer = std::array<char, LongestText>;

std::string TextIn(const Buffer& buffer, DWORD length) {
  const std::string_view text(buffer.data(), length);
  return TextFromAnsi(text.substr(0, text.find('\0')));
}

/// The string values of the key: the name is a ProgID, the data its display name. A name or a value that is
/// too long ends the list, as the end of the key does.
std::vector<Announcement> Scan(HKEY hive) {
  std::vector<Announcement> announcements;
  HKEY key = nullptr;
  if (RegOpenKeyExA(hive, Key, 0, Access, &key) != ERROR_SUCCESS) return announcements;
  for (DWORD index = 0;; ++index) {
    Buffer name{}, data{};
    DWORD nameLength = LongestText, dataLength = LongestText, type = REG_NONE;
    if (RegEnumValueA(key, index, name.data(), &nameLength, nullptr, &type,
                      reinterpret_cast<BYTE*>(data.data()), &dataLength) != ERROR_SUCCESS)
      break;
    if (type == REG_SZ) announcements.push_back({TextIn(name, nameLength), TextIn(data, dataLength)});
  }
  RegCloseKey(key);
  return announcements;
}

class RegistryAnnouncements final : public DriverAnnouncements {
 public:
  std::vector<Announcement> Machine() override { return Scan(HKEY_LOCAL_MACHINE); }
  std::vector<Announcement> User() override { return Scan(HKEY_CURRENT_USER); }
};

}  // namespace

DriverAnnouncements& SystemDriverAnnouncements() {
  static RegistryAnnouncements announcements;
  return announcements;
}

}  // namespace ptzd
