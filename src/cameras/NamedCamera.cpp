#include "cameras/NamedCamera.h"

#include <cstdlib>
#include <system_error>
#include <tuple>

#include <ptzd/PropertyBag.h>
#include "cameras/InputWords.h"
#include "common/Numbers.h"
#include "platform/CodePages.h"
#include "platform/ConfigurationFolders.h"
#include "platform/Keyring.h"
#include "platform/PrivateFile.h"

namespace ptzd {

namespace {

constexpr char UsualVariable[] = "PTZD_PASSWORD";

std::optional<std::string> Variable(const std::string& name) {
  const char* value = std::getenv(name.c_str());
  if (value == nullptr) return std::nullopt;
  return value;
}

/// What has no meaning in an address stays, and so do letters beyond ASCII: escapes are read in the code
/// page.
bool StaysInAddress(char c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' || c == '.' ||
         c == '_' || c == '~' || static_cast<unsigned char>(c) >= 0x80;
}

std::string Encoded(const std::string& text, const char* what) {
  if (text.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos ||
      TextFromCodePage(TextToCodePage(text, AnsiCodePage()), AnsiCodePage()) != text)
    throw InputError(std::string(what) + " has characters that cannot be sent to a camera");
  std::string encoded;
  for (const char c : text) {
    if (StaysInAddress(c))
      encoded += c;
    else
      encoded.append("%").append(Hex2(static_cast<unsigned char>(c)));
  }
  // Windows takes no longer ones from an address.
  constexpr std::size_t longest = 127;
  if (TextToCodePage(encoded, AnsiCodePage()).size() > longest)
    throw InputError(std::string(what) + " is too long to be sent to a camera: " + std::to_string(longest) +
                     " characters at most, of which signs such as % and @ count three each");
  return encoded;
}

auto EndsOf(const std::optional<CameraLimits>& limits) {
  return limits ? std::optional(std::pair(limits->Least, limits->Greatest)) : std::nullopt;
}

}  // namespace

bool AreAlike(const NamedCamera& a, const NamedCamera& b) {
  const auto all = [](const NamedCamera& camera) {
    const auto& settings = camera.Settings;
    return std::tuple_cat(
        std::tie(camera.Name, camera.Address, camera.Line, camera.User, camera.Password, settings.Driver,
                 settings.Options, settings.InvertPan, settings.InvertTilt, settings.Presets, settings.Lease,
                 settings.IdleTime, settings.Reconnects, settings.FirstPause, settings.LongestPause,
                 settings.StopTime, settings.RestTime, settings.WatchesMoves),
        std::tuple(EndsOf(settings.PanLimits), EndsOf(settings.TiltLimits), EndsOf(settings.ZoomLimits)));
  };
  return all(a) == all(b);
}

std::string PasswordSource::Text() const {
  switch (From) {
    case Kind::Unsaid:
      return std::string("environment ") + UsualVariable + " or prompt";
    case Kind::Asked:
      return "prompt";
    case Kind::Environment:
      return "environment " + Where;
    case Kind::File:
      return "file " + Where;
    case Kind::Keyring:
      return "keyring";
    case Kind::Here:
      return "beside the camera";
  }
  return {};
}

std::string SecretFrom(const std::string& file) {
  constexpr std::size_t longest = 4096;
  FileContents contents;
  try {
    contents = ReadWholeFile(PathOf(file), longest);
  } catch (const std::system_error& error) {
    throw InputError("the secret file " + file + " cannot be read: " + error.what());
  }
  if (!contents.Openness.empty()) throw InputError("the secret file " + file + ": " + contents.Openness);
  auto& text = contents.Text;
  if (text.ends_with('\n')) text.pop_back();
  if (text.ends_with('\r')) text.pop_back();
  if (text.empty())
    throw InputError("the secret file " + file + " is empty: a line with the password is wanted");
  if (text.find_first_of(std::string_view("\n\0", 2)) != std::string::npos)
    throw InputError("the secret file " + file + " has more than the one line that is the password");
  return text;
}

Login LoginOf(const std::string& whose, const std::string& user, const PasswordSource& source,
              const AskPassword& ask) {
  using Kind = PasswordSource::Kind;
  switch (source.From) {
    case Kind::Here:
      return {user, source.Where};
    case Kind::File:
      return {user, SecretFrom(source.Where)};
    case Kind::Environment:
      if (const auto password = Variable(source.Where)) return {user, *password};
      throw InputError("no password for " + whose + ": the environment has no variable " + source.Where);
    case Kind::Keyring:
      try {
        if (const auto password = ReadFromKeyring(whose, user)) return {user, *password};
      } catch (const std::runtime_error& error) {
        throw InputError("no password for " + whose + ": " + error.what());
      }
      throw InputError("no password for " + whose + ": the keyring has none for its user " + user);
    case Kind::Unsaid:
      if (const auto password = Variable(UsualVariable)) return {user, *password};
      break;
    case Kind::Asked:
      break;
  }
  if (ask)
    if (const auto password = ask("Password of " + user + " at " + whose + ": ")) return {user, *password};
  throw InputError("no password for " + whose + ": there is no terminal to ask at" +
                   (source.From == Kind::Asked ? "" : std::string(", and ") + UsualVariable + " is not set"));
}

std::string AddressFor(const std::string& address, const Login& login) {
  return Encoded(login.User, "the user") + ":" + Encoded(login.Password, "the password") + "@" + address;
}

CameraSettings SettingsOf(const NamedCamera& camera, const AskPassword& ask, SerialLines& lines) {
  auto settings = camera.Settings;
  PropertyBag options;
  options.Contents(settings.Options);
  if (!camera.Line.empty()) settings.Ports = lines.Use(options, camera.Line);
  if (!camera.Address.empty())
    options.WriteProperty(
        "Address", camera.User.empty()
                       ? camera.Address
                       : AddressFor(camera.Address, LoginOf(camera.Name, camera.User, camera.Password, ask)));
  settings.Options = options.Contents();
  return settings;
}

CameraSettings SettingsOf(const NamedCamera& camera, const AskPassword& ask) {
  SerialLines lines;
  return SettingsOf(camera, ask, lines);
}

}  // namespace ptzd
