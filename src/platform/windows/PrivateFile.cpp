#include "platform/PrivateFile.h"

#include <aclapi.h>
#include <sddl.h>
#include <array>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>
#include <vector>

#include "platform/ConfigurationFolders.h"
#include "platform/windows/SystemHeaders.h"

namespace ptzd {

namespace {

[[noreturn]] void Raise(DWORD error) {
  throw std::system_error(static_cast<int>(error), std::system_category());
}

using Descriptor = std::unique_ptr<void, decltype(&LocalFree)>;
using SID = std::array<BYTE, SECURITY_MAX_SID_SIZE>;

SID KnownSID(WELL_KNOWN_SID_TYPE type) {
  SID sid{};
  DWORD size = sid.size();
  if (!CreateWellKnownSid(type, nullptr, sid.data(), &size)) Raise(GetLastError());
  return sid;
}

/// Of the user that runs this.
std::vector<BYTE> TokenUser() {
  HANDLE token = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) Raise(GetLastError());
  const std::unique_ptr<void, decltype(&CloseHandle)> closed(token, &CloseHandle);
  DWORD size = 0;
  GetTokenInformation(token, ::TokenUser, nullptr, 0, &size);
  std::vector<BYTE> user(size);
  if (!GetTokenInformation(token, ::TokenUser, user.data(), size, &size)) Raise(GetLastError());
  return user;
}

PSID SIDOf(const std::vector<BYTE>& user) {
  return reinterpret_cast<const TOKEN_USER*>(user.data())->User.Sid;
}

std::string NameOf(PSID sid) {
  wchar_t name[256], domain[256];
  DWORD nameSize = 256, domainSize = 256;
  SID_NAME_USE use{};
  if (!LookupAccountSidW(nullptr, sid, name, &nameSize, domain, &domainSize, &use)) return "somebody";
  return TextOf(std::filesystem::path(name));
}

std::string OpennessOf(const std::filesystem::path& path) {
  PSID owner = nullptr;
  PACL list = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (const auto error = GetNamedSecurityInfoW(path.c_str(), SE_FILE_OBJECT,
                                               OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &owner,
                                               nullptr, &list, nullptr, &descriptor))
    Raise(error);
  const Descriptor freed(descriptor, &LocalFree);
  const auto how = "; type: icacls \"" + TextOf(path) + "\" /inheritance:r /grant:r %USERNAME%:F";
  if (list == nullptr) return "anybody may read it" + how;
  const auto user = TokenUser();
  auto system = KnownSID(WinLocalSystemSid), administrators = KnownSID(WinBuiltinAdministratorsSid);
  for (DWORD i = 0; i < list->AceCount; ++i) {
    void* entry = nullptr;
    if (!GetAce(list, i, &entry)) Raise(GetLastError());
    auto* allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
    if (allowed->Header.AceType != ACCESS_ALLOWED_ACE_TYPE ||
        (allowed->Header.AceFlags & INHERIT_ONLY_ACE) != 0 ||
        (allowed->Mask & (FILE_READ_DATA | GENERIC_READ | GENERIC_ALL)) == 0)
      continue;
    auto* sid = reinterpret_cast<PSID>(&allowed->SidStart);
    // Administrators read whatever they like.
    if (EqualSid(sid, SIDOf(user)) || EqualSid(sid, system.data()) || EqualSid(sid, administrators.data()))
      continue;
    return NameOf(sid) + " may read it too" + how;
  }
  return {};
}

/// Leaves the file to its owner alone.
void MakePrivate(const std::filesystem::path& path) {
  const auto user = TokenUser();
  wchar_t* text = nullptr;
  if (!ConvertSidToStringSidW(SIDOf(user), &text)) Raise(GetLastError());
  const Descriptor textFreed(text, &LocalFree);
  const auto rights = L"D:P(A;;FA;;;" + std::wstring(text) + L")";
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(rights.c_str(), SDDL_REVISION_1, &descriptor,
                                                            nullptr))
    Raise(GetLastError());
  const Descriptor freed(descriptor, &LocalFree);
  if (!SetFileSecurityW(path.c_str(), DACL_SECURITY_INFORMATION, descriptor)) Raise(GetLastError());
}

}  // namespace

FileContents ReadWholeFile(const std::filesystem::path& path, std::size_t longest) {
  std::error_code none;
  const auto status = std::filesystem::status(path, none);
  if (status.type() == std::filesystem::file_type::not_found) Raise(ERROR_FILE_NOT_FOUND);
  if (status.type() != std::filesystem::file_type::regular)
    throw std::system_error(ERROR_INVALID_PARAMETER, std::system_category(), "not a plain file");
  if (std::filesystem::file_size(path) > longest) Raise(ERROR_FILE_TOO_LARGE);
  std::ifstream file(path, std::ios::binary);
  if (!file) Raise(ERROR_ACCESS_DENIED);
  FileContents contents{{std::istreambuf_iterator<char>(file), {}}, {}};
  contents.Openness = OpennessOf(path);
  return contents;
}

void WriteWholeFile(const std::filesystem::path& path, const std::string& text, bool isPrivate) {
  if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path());
  auto temporary = path;
  temporary += L"." + std::to_wstring(GetCurrentProcessId()) + L".tmp";
  try {
    { const std::ofstream made(temporary, std::ios::binary); }
    if (isPrivate) MakePrivate(temporary);  // before anything is in it
    std::ofstream file(temporary, std::ios::binary);
    file << text;
    file.close();
    if (!file) Raise(ERROR_WRITE_FAULT);
    if (!MoveFileExW(temporary.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH))
      Raise(GetLastError());
  } catch (...) {
    DeleteFileW(temporary.c_str());
    throw;
  }
}

std::shared_ptr<void> HoldFile(const std::filesystem::path& path) {
  constexpr DWORD look = 10, longest = 10000;  // milliseconds
  if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path());
  auto lock = path;
  lock += L".lock";
  for (DWORD waited = 0;; waited += look) {
    const auto file = CreateFileW(lock.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                                  FILE_ATTRIBUTE_HIDDEN | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (file != INVALID_HANDLE_VALUE) return {file, &CloseHandle};
    const auto error = GetLastError();
    // Access is also denied while the one before is being deleted.
    const bool isHeld = error == ERROR_SHARING_VIOLATION || error == ERROR_ACCESS_DENIED;
    if (!isHeld || waited >= longest) Raise(error);
    Sleep(look);
  }
}

}  // namespace ptzd
