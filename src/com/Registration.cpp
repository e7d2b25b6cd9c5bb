#include "com/Registration.h"

#include "com/Contract.h"

#include <cwchar>
#include <iterator>
#include <string>

#include "com/ClassTable.h"
#include "com/Errors.h"
#include "com/Module.h"
#include "com/TypeInformation.h"
#include "com/Values.h"

// The headers lack these two of oleaut32.
extern "C" HRESULT WINAPI RegisterTypeLibForUser(ITypeLib* library, OLECHAR* path, OLECHAR* helpFolder);
extern "C" HRESULT WINAPI UnRegisterTypeLibForUser(REFGUID library, WORD majorVersion, WORD minorVersion,
                                                   LCID locale, SYSKIND kind);

namespace ptzd::com {

namespace {

constexpr wchar_t ClassesKey[] = L"Software\\Classes\\";
#ifdef _WIN64
constexpr SYSKIND OwnKind = SYS_WIN64;
constexpr wchar_t OwnKindName[] = L"win64";
constexpr REGSAM OtherView = KEY_WOW64_32KEY;
#else
constexpr SYSKIND OwnKind = SYS_WIN32;
constexpr wchar_t OwnKindName[] = L"win32";
constexpr REGSAM OtherView = KEY_WOW64_64KEY;
#endif

std::wstring GuidText(REFGUID guid) {
  wchar_t text[39];
  StringFromGUID2(guid, text, 39);
  return text;
}

std::wstring ClassKey(const CreatableClass& row) { return L"CLSID\\" + GuidText(row.Identifier); }

/// `HKEY_LOCAL_MACHINE` or `HKEY_CURRENT_USER`: registration for all users or for one.
class Registry {
 public:
  explicit Registry(HKEY root) : Root_(root) {}

  /// Writes a key's value, or its default value where the name is empty.
  void Write(const std::wstring& key, const wchar_t* name, const std::wstring& text) const {
    HKEY handle = nullptr;
    CheckResult(RegCreateKeyExW(Root_, (ClassesKey + key).c_str(), 0, nullptr, 0, KEY_SET_VALUE, nullptr,
                                &handle, nullptr));
    const auto written = RegSetValueExW(handle, name, 0, REG_SZ, reinterpret_cast<const BYTE*>(text.c_str()),
                                        static_cast<DWORD>((text.size() + 1) * sizeof(wchar_t)));
    RegCloseKey(handle);
    CheckResult(written);
  }
  void Remove(const std::wstring& key) const {
    const auto removed = RegDeleteTreeW(Root_, (ClassesKey + key).c_str());
    if (removed != ERROR_FILE_NOT_FOUND) CheckResult(removed);
  }
  bool Has(const std::wstring& key, REGSAM view = 0) const {
    HKEY handle = nullptr;
    if (RegOpenKeyExW(Root_, (ClassesKey + key).c_str(), 0, KEY_QUERY_VALUE | view, &handle) != ERROR_SUCCESS)
      return false;
    RegCloseKey(handle);
    return true;
  }
  bool IsPerUser() const { return Root_ == HKEY_CURRENT_USER; }

 private:
  static void CheckResult(LSTATUS status) {
    Check(HRESULT_FROM_WIN32(static_cast<DWORD>(status)), "Registry access");
  }

  HKEY Root_;
};

void WriteClass(const Registry& registry, const CreatableClass& row, const std::wstring& path,
                const TLIBATTR& library) {
  const auto progID = Utf16(row.ProgID());
  const auto key = ClassKey(row);
  registry.Write(key, nullptr, progID);
  registry.Write(key + L"\\InprocServer32", nullptr, path);
  registry.Write(key + L"\\InprocServer32", L"ThreadingModel", L"Apartment");
  registry.Write(key + L"\\ProgID", nullptr, progID);
  registry.Write(key + L"\\Programmable", nullptr, L"");
  registry.Write(key + L"\\TypeLib", nullptr, GuidText(library.guid));
  registry.Write(key + L"\\Version", nullptr,
                 std::to_wstring(library.wMajorVerNum) + L"." + std::to_wstring(library.wMinorVerNum));
  registry.Write(progID, nullptr, progID);
  registry.Write(progID + L"\\CLSID", nullptr, GuidText(row.Identifier));
}

void RemoveClass(const Registry& registry, const CreatableClass& row) {
  registry.Remove(ClassKey(row));
  if (!registry.Has(ClassKey(row), OtherView)) registry.Remove(Utf16(row.ProgID()));
}

void RemoveTypeLibrary(const Registry& registry) {
  const auto library = AttributesOf(LoadOwnTypeLibrary().Get());
  wchar_t version[20];
  swprintf(version, std::size(version), L"%x.%x", library.wMajorVerNum,
           library.wMinorVerNum);  // hexadecimal there
  if (!registry.Has(L"TypeLib\\" + GuidText(library.guid) + L"\\" + version + L"\\0\\" + OwnKindName)) return;
  const auto unregister = registry.IsPerUser() ? UnRegisterTypeLibForUser : UnRegisterTypeLib;
  Check(unregister(library.guid, library.wMajorVerNum, library.wMinorVerNum, library.lcid, OwnKind),
        "The type library cannot be unregistered");
}

void Remove(const Registry& registry) {
  RemoveTypeLibrary(registry);
  for (const auto& row : CreatableClasses()) RemoveClass(registry, row);
}

void Write(const Registry& registry) {
  auto path = ModulePath();
  const auto library = LoadOwnTypeLibrary();
  const auto attributes = AttributesOf(library.Get());
  try {
    for (const auto& row : CreatableClasses()) WriteClass(registry, row, path, attributes);
    const auto registered = registry.IsPerUser() ? RegisterTypeLibForUser(library.Get(), path.data(), nullptr)
                                                 : RegisterTypeLib(library.Get(), path.data(), nullptr);
    Check(registered, "The type library cannot be registered");
  } catch (const Error&) {
    try {
      Remove(registry);
    } catch (const Error&) {
      // The first failure is the one to tell.
    }
    throw;
  }
}

Registry RegistryOf(Users users) {
  return Registry(users == Users::All ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER);
}

}  // namespace

HRESULT RegisterLibrary() {
  try {
    RegisterLibraryFor(Users::All);
  } catch (const Error& error) {
    if (error.Number() != E_ACCESSDENIED && error.Number() != TYPE_E_REGISTRYACCESS) throw;
    RegisterLibraryFor(Users::Current);
  }
  return S_OK;
}

HRESULT UnregisterLibrary() {
  UnregisterLibraryFor(Users::Current);
  UnregisterLibraryFor(Users::All);
  return S_OK;
}

void RegisterLibraryFor(Users users) { Write(RegistryOf(users)); }

void UnregisterLibraryFor(Users users) { Remove(RegistryOf(users)); }

}  // namespace ptzd::com
