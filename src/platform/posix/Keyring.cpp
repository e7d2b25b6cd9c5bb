#include "platform/Keyring.h"

#include <dlfcn.h>
#include <memory>
#include <stdexcept>

namespace ptzd {

namespace {

// libsecret is looked for when it is needed, so that nobody has to have it. These are its declarations, which
// its versions keep.

struct GError {
  std::uint32_t Domain;
  int Code;
  char* Message;
};

struct SecretSchema {
  const char* Name;
  int Flags;
  struct {
    const char* Name;
    int Type;  // 0: text
  } Attributes[32];
  int Reserved;
  void* MoreReserved[7];
};

const SecretSchema Schema{"org.ptzd.Camera", 0, {{"camera", 0}, {"user", 0}}, 0, {}};

struct Library {
  using Attribute = const char*;
  char* (*Lookup)(const SecretSchema*, void*, GError**, ...);
  int (*Store)(const SecretSchema*, const char* collection, const char* label, const char* password, void*,
               GError**, ...);
  int (*Clear)(const SecretSchema*, void*, GError**, ...);
  void (*FreePassword)(char*);
  void (*FreeError)(GError*);
};

const Library& TheLibrary() {
  static const Library library = [] {
    // Stays loaded: it has threads of its own.
    void* const handle = dlopen("libsecret-1.so.0", RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) throw std::runtime_error("there is no keyring: libsecret is not installed");
    Library found{};
    const auto find = [handle](auto& function, const char* name) {
      function = reinterpret_cast<std::remove_reference_t<decltype(function)>>(dlsym(handle, name));
      if (function == nullptr) throw std::runtime_error(std::string("libsecret lacks ") + name);
    };
    find(found.Lookup, "secret_password_lookup_sync");
    find(found.Store, "secret_password_store_sync");
    find(found.Clear, "secret_password_clear_sync");
    find(found.FreePassword, "secret_password_free");
    find(found.FreeError, "g_error_free");
    return found;
  }();
  return library;
}

/// Raises what was told.
void Check(GError* error) {
  if (error == nullptr) return;
  const std::string text = error->Message;
  TheLibrary().FreeError(error);
  throw std::runtime_error("the keyring cannot be used: " + text);
}

constexpr const char* End = nullptr;  // of a list of attributes

}  // namespace

std::optional<std::string> ReadFromKeyring(const std::string& camera, const std::string& user) {
  const auto& library = TheLibrary();
  GError* error = nullptr;
  const std::unique_ptr<char, void (*)(char*)> password(
      library.Lookup(&Schema, nullptr, &error, "camera", camera.c_str(), "user", user.c_str(), End),
      library.FreePassword);
  Check(error);
  if (!password) return std::nullopt;
  return password.get();
}

void StoreInKeyring(const std::string& camera, const std::string& user, const std::string& password) {
  GError* error = nullptr;
  TheLibrary().Store(&Schema, nullptr, ("Camera " + camera).c_str(), password.c_str(), nullptr, &error,
                     "camera", camera.c_str(), "user", user.c_str(), End);
  Check(error);
}

void RemoveFromKeyring(const std::string& camera, const std::string& user) {
  GError* error = nullptr;
  TheLibrary().Clear(&Schema, nullptr, &error, "camera", camera.c_str(), "user", user.c_str(), End);
  Check(error);
}

}  // namespace ptzd
