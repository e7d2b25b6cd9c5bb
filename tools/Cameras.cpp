#include "Cameras.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <nlohmann/json.hpp>
#include <utility>

#include "Connection.h"
#include "ExchangeLog.h"
#include "Interruption.h"
#include "Probe.h"
#include "Words.h"
#include "cameras/CameraFile.h"
#include "cameras/CameraList.h"
#include "common/ASCII.h"
#include "drivers/kit/AddressLogins.h"
#include "platform/ConfigurationFolders.h"
#include "platform/Keyring.h"
#include "platform/Terminal.h"

namespace ptzctl {

namespace {

using ptzd::NamedCamera;
using Json = nlohmann::ordered_json;
using Kind = ptzd::PasswordSource::Kind;

Json RowOf(const NamedCamera& camera) {
  const auto& driver = camera.Settings.Driver;
  return {{"name", camera.Name},
          {"driver", driver.substr(driver.find('.') + 1)},
          {"address", camera.Address.empty() ? camera.Line : camera.Address},
          {"user", camera.User},
          {"password", camera.User.empty() ? "" : camera.Password.Text()},
          {"file", camera.File}};
}

Outcome Listed(const char* operation, std::string text, Json rows) {
  Outcome outcome;
  outcome.Operation = operation;
  outcome.Text = std::move(text);
  outcome.Values = std::make_shared<const Json>(Json{{"cameras", std::move(rows)}});
  return outcome;
}

void CheckHost(const std::string& address) {
  if (CheckedAddress(address).find('@') != std::string::npos)
    throw UsageError("--address: HOST or HOST:PORT is wanted; --user tells who logs in");
}

void KeepInKeyring(const NamedCamera& camera) {
  try {
    ptzd::StoreInKeyring(camera.Name, camera.User, camera.Password.Where);
  } catch (const std::runtime_error& error) {
    throw UsageError(std::string("--keyring: ") + error.what());
  }
}

/// Asks a person, who may end it all by Ctrl-C.
class Questions {
 public:
  /// Nothing where nobody can be asked.
  std::optional<std::string> Ask(const std::string& question, bool echo = true) {
    auto answer = ptzd::AskAtTerminal(question, echo, [this] { return Interruption_.Came(); });
    if (Interruption_.Came()) throw Interrupted();
    Asked_ = Asked_ || (echo && answer);
    return answer;
  }
  /// Whether more than a password was.
  bool WereAsked() const { return Asked_; }
  int ExitCode() const { return ExitCodeOf(Interruption_.Signal()); }

 private:
  Interruption Interruption_;
  bool Asked_ = false;
};

/// What was given, or what somebody answers; asked again until it is something that `check` takes,
/// or, where it may be, empty.
template <typename Check>
std::string Demand(Questions& questions, const std::string& given, const char* option,
                   const std::string& question, Check check, bool mayBeEmpty = false) {
  if (!given.empty()) {
    check(given);
    return given;
  }
  while (true) {
    const auto answer = questions.Ask(question);
    if (!answer) throw UsageError(std::string(option) + " is missing, and there is no terminal to ask at");
    try {
      if (answer->empty() && mayBeEmpty) return {};
      if (answer->empty()) continue;
      check(*answer);
      return *answer;
    } catch (const UsageError& error) {
      std::cerr << "ptzctl: " << error.what() << std::endl;
    }
  }
}

/// As somebody says it; null where it is left open.
const ptzd::DriverClass* AskForDriver(Questions& questions, bool mayBeOpen) {
  const auto word = Demand(
      questions, {}, "--driver",
      mayBeOpen ? "Driver (found out where empty): " : "Driver (ptzctl drivers lists them): ",
      [](const std::string& answer) { FindDriver(answer); }, mayBeOpen);
  return word.empty() ? nullptr : &FindDriver(word);
}

/// The login of a camera, as far as it is known without asking anybody.
std::optional<ptzd::Login> KnownLogin(const NamedCamera& camera) {
  const auto& [from, where] = camera.Password;
  if (camera.User.empty()) return std::nullopt;
  if (from == Kind::Keyring) return ptzd::Login{camera.User, where};
  try {
    return ptzd::LoginOf(camera.Name, camera.User, camera.Password, {});
  } catch (const UsageError&) {
    return std::nullopt;
  }
}

/// The driver of what answers at an address; somebody says it where that does not tell.
const ptzd::DriverClass& FindOutDriver(const std::string& address, bool trace, Questions& questions) {
  ptzd::MaskedLogins masked;
  masked.Set(ptzd::LoginsOf(address));
  const auto result = ProbeCamera({.Address = address, .Exchanges = std::make_shared<ExchangeLog>(trace)});
  if (const auto* best = result.Best()) return *best->Driver;
  const auto summary = Summary(result, address.substr(address.rfind('@') + 1));
  if (!ptzd::HasTerminal()) throw UsageError("--driver is missing, and could not be found out: " + summary);
  std::cerr << "ptzctl: " << Printable(summary) << std::endl;
  return *AskForDriver(questions, false);
}

/// Where the password is to come from; a password itself where it is to be kept.
ptzd::PasswordSource SourceOf(const Invocation& invocation, const CameraToAdd& add, const std::string& user,
                              Questions& questions) {
  if (!add.PasswordFile.empty()) {
    auto file = ptzd::TextOf(std::filesystem::absolute(ptzd::PathOf(add.PasswordFile)));
    ptzd::SecretFrom(file);  // which says what is wrong with it
    return {Kind::File, std::move(file)};
  }
  if (!add.PasswordVariable.empty()) return {Kind::Environment, add.PasswordVariable};
  if (invocation.AskPassword) return {Kind::Asked, {}};
  const auto password = questions.Ask(
      "Password of " + Printable(user) + (add.InKeyring ? ": " : " (asked for at each use where empty): "),
      false);
  if (add.InKeyring && password.value_or("").empty())
    throw UsageError("--keyring: there is no password to keep, or no terminal to ask at");
  if (password.value_or("").empty()) return {};
  return {add.InKeyring ? Kind::Keyring : Kind::Here, *password};
}

ptzd::Bytes OptionsToAdd(std::vector<std::string> options, const ptzd::DriverClass& driver,
                         Questions& questions) {
  if (options.empty() && questions.WereAsked())
    options = SplitWords(questions.Ask("Options as Key=Value (none where empty): ").value_or(""));
  ptzd::PropertyBag bag;
  for (const auto& option : options) {
    std::string warning;
    StoreOption(bag, driver, option, warning);
    if (!warning.empty()) throw UsageError(warning);
  }
  return bag.Contents();
}

/// Asks for what is missing; only where something has to be asked, also for what need not be.
NamedCamera Complete(const Invocation& invocation, const CameraToAdd& add, Questions& questions) {
  NamedCamera camera{.Name = invocation.Camera};
  const ptzd::DriverClass* driver = nullptr;
  if (!invocation.Driver.empty())
    driver = &FindDriver(invocation.Driver);
  else if (invocation.Address.empty())
    driver = AskForDriver(questions, invocation.Line.empty());
  const bool onLine = driver != nullptr && !driver->Data->Reads("Address");
  if (onLine) {
    if (!invocation.Address.empty())
      throw UsageError("--address: the driver " + std::string(driver->ProgID) + " reads no address");
    camera.Line = Demand(questions, invocation.Line, "--line",
                         "Line, a device or a port number: ", [](const std::string&) {});
  } else {
    if (!invocation.Line.empty()) throw UsageError("--line: a camera with an address is on no serial line");
    camera.Address =
        Demand(questions, invocation.Address, "--address", "Address, HOST or HOST:PORT: ", CheckHost);
  }
  camera.User = invocation.User;
  if (!onLine && camera.User.empty() && questions.WereAsked())
    camera.User = questions.Ask("User (none where empty): ").value_or("");
  const bool hasSource =
      !add.PasswordFile.empty() || !add.PasswordVariable.empty() || add.InKeyring || invocation.AskPassword;
  if (hasSource && camera.User.empty()) throw UsageError("--user is missing: whose password is it?");
  if (!camera.User.empty()) camera.Password = SourceOf(invocation, add, camera.User, questions);
  const auto login = KnownLogin(camera);
  // Also where nobody is asked: it says which logins cannot be sent.
  const auto address = login ? ptzd::AddressFor(camera.Address, *login) : camera.Address;
  if (driver == nullptr) driver = &FindOutDriver(address, invocation.Trace, questions);
  camera.Settings.Driver = driver->ProgID;
  camera.Settings.Options = OptionsToAdd(invocation.Options, *driver, questions);
  return camera;
}

/// Keeps the camera, and its password where that goes to the keyring; both or none.
void Keep(const std::string& file, NamedCamera camera, bool replaces) {
  const auto inKeyring = camera.Password.From == Kind::Keyring;
  if (inKeyring) KeepInKeyring(camera);
  try {
    camera.Password.Where = inKeyring ? "" : camera.Password.Where;
    ptzd::StoreCamera(file, camera, replaces);
  } catch (const UsageError&) {
    if (inKeyring) ptzd::RemoveFromKeyring(camera.Name, camera.User);
    throw;
  }
}

}  // namespace

int ShowCameras(const Invocation& invocation, Report& report) {
  auto rows = Json::array();
  const ptzd::CameraList cameras(invocation.CameraFile);
  for (const auto& camera : cameras.All()) rows.push_back(RowOf(camera));
  const bool none = rows.empty();
  return ShowOnce(
      report, Listed("cameras", none ? "There is none yet; ptzctl add NAME makes one" : "", std::move(rows)));
}

int AddCamera(const Invocation& invocation, const CameraToAdd& add, Report& report) {
  ptzd::CheckCameraName(invocation.Camera);
  const auto file = invocation.CameraFile.empty() ? ptzd::UserCameraFile() : invocation.CameraFile;
  if (file.empty()) throw UsageError("--cameras is missing: this user has no folder for settings");
  auto others = ptzd::ReadCameraFile(file, false);
  if (invocation.CameraFile.empty()) others = ptzd::CameraList({}).All();
  const auto same = std::ranges::find_if(others, [&](const NamedCamera& other) {
    return ptzd::EqualsIgnoringCase(other.Name, invocation.Camera);
  });
  if (same != others.end() && !add.Replaces)
    throw UsageError("there is a camera " + same->Name + " in " + same->File + "; --replace replaces it");

  Questions questions;
  try {
    auto camera = Complete(invocation, add, questions);
    camera.File = file;
    Keep(file, camera, add.Replaces);
    return ShowOnce(report,
                    Listed("add", "Added " + camera.Name + " to " + file, Json::array({RowOf(camera)})));
  } catch (const Interrupted&) {
    return questions.ExitCode();
  }
}

int RemoveCamera(const Invocation& invocation, Report& report) {
  const auto camera = ptzd::CameraList(invocation.CameraFile).Find(invocation.Camera);
  ptzd::RemoveCamera(camera.File, camera.Name);
  auto outcome =
      Listed("remove", "Removed " + camera.Name + " from " + camera.File, Json::array({RowOf(camera)}));
  if (camera.Password.From == Kind::Keyring) try {
      ptzd::RemoveFromKeyring(camera.Name, camera.User);
    } catch (const std::runtime_error& error) {
      outcome.Notes.emplace_back("its password may still be in the keyring: " + std::string(error.what()));
    }
  return ShowOnce(report, outcome);
}

}  // namespace ptzctl
