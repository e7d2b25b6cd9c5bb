#include "Session.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <utility>

#include "Connection.h"
#include "ExchangeLog.h"
#include "LineEditor.h"
#include "LineReader.h"
#include "Operations.h"
#include "Words.h"
#include "cameras/CameraList.h"
#include "drivers/kit/AddressLogins.h"
#include "platform/ConfigurationFolders.h"
#include "platform/ProcessEnd.h"
#include "platform/Terminal.h"

namespace ptzctl {

namespace {

/// From here on nothing that is told shows the login of an address, for as long as ptzctl runs.
void KeepMasked(const std::string& address) {
  static std::vector<ptzd::Login> logins;
  static ptzd::MaskedLogins masked;
  std::ranges::move(ptzd::LoginsOf(address), std::back_inserter(logins));
  masked.Set(logins);
}

ptzd::NamedCamera FindCamera(const Invocation& invocation) {
  return ptzd::CameraList(invocation.CameraFile).Find(invocation.Camera);
}

/// The camera of a name, or one that only the command line tells of.
ptzd::NamedCamera CameraOf(const Invocation& invocation) {
  ptzd::NamedCamera camera;
  if (invocation.Camera.empty()) {
    camera.Settings.Driver = FindDriver(invocation.Driver).ProgID;
    camera.Settings.Options = ptzd::PropertyBag().Contents();
    camera.Name = invocation.Address;
  } else {
    if (!invocation.Driver.empty())
      throw UsageError("--driver: the camera " + Printable(invocation.Camera) + " has a driver of its own");
    camera = FindCamera(invocation);
  }
  return camera;
}

/// Who logs in there, and how the password is come by, where the command line says so.
void TakeLogin(ptzd::NamedCamera& camera, const Invocation& invocation) {
  if (camera.Address.find('@') != std::string::npos) {  // it has its own
    if (!invocation.User.empty() || invocation.AskPassword)
      throw UsageError("--user and --ask-password: the address has a user already");
    camera.User.clear();
    return;
  }
  if (!invocation.User.empty() && invocation.User != camera.User) {
    camera.User = invocation.User;
    camera.Password = {};
  }
  if (invocation.AskPassword) camera.Password = {ptzd::PasswordSource::Kind::Asked, {}};
  if (invocation.AskPassword && camera.User.empty())
    throw UsageError("--ask-password: --user is missing: whose password is it?");
  if (!camera.User.empty() && camera.Address.empty())
    throw UsageError("--user: there is no address to log in at");
}

ptzd::AskPassword AskingUntil(const Interruption* interruption) {
  return [interruption](const std::string& question) {
    return ptzd::AskAtTerminal(question, false,
                               [=] { return interruption != nullptr && interruption->Came(); });
  };
}

}  // namespace

const ptzd::DriverClass& DriverOf(const Invocation& invocation) {
  return FindDriver(invocation.Camera.empty() ? invocation.Driver : FindCamera(invocation).Settings.Driver);
}

ptzd::CameraSettings SettingsOf(const Invocation& invocation, const Report& report,
                                const Interruption* interruption) {
  auto camera = CameraOf(invocation);
  const auto& driver = FindDriver(camera.Settings.Driver);
  ptzd::PropertyBag options;
  options.Contents(camera.Settings.Options);
  for (const auto& option : invocation.Options) {
    std::string warning;
    StoreOption(options, driver, option, warning);
    if (!warning.empty()) report.Warn(warning);
  }
  const bool onLine = !driver.Data->Reads("Address");
  if (const auto address = options.Text("Address"); !address.empty()) camera.Address = address;
  if (!invocation.Address.empty()) {
    if (onLine) report.Warn("--address: the driver " + std::string(driver.ProgID) + " reads no address");
    camera.Address = CheckedAddress(invocation.Address);
  }
  if (!invocation.Line.empty()) {
    if (!onLine) report.Warn("--line: the driver " + std::string(driver.ProgID) + " uses no serial line");
    camera.Line = invocation.Line;
  }
  if (driver.Data->NeedsLine && camera.Line.empty() && options.Long("COMPort", 0) == 0)
    throw UsageError("--line is missing: the driver " + std::string(driver.ProgID) +
                     " reaches its camera on a serial line");
  TakeLogin(camera, invocation);
  camera.Settings.Options = options.Contents();
  auto settings = ptzd::SettingsOf(camera, AskingUntil(interruption));
  options.Contents(settings.Options);
  KeepMasked(options.Text("Address"));
  // What is sent is what was asked for: nothing is looked at again and again, and nobody else reconnects.
  settings.WatchesMoves = false;
  settings.Reconnects = false;
  settings.StopTime = invocation.StopTime;
  return settings;
}

CameraPlace PlaceOf(const Invocation& invocation) {
  auto camera =
      invocation.Camera.empty() ? ptzd::NamedCamera{.Name = invocation.Address} : FindCamera(invocation);
  if (!invocation.Address.empty()) camera.Address = CheckedAddress(invocation.Address);
  if (!invocation.Line.empty()) camera.Line = invocation.Line;
  if (camera.Address.empty() == camera.Line.empty())
    throw UsageError("an address or, with --line, a serial line is wanted");
  TakeLogin(camera, invocation);
  if (!camera.User.empty())
    camera.Address =
        AddressFor(camera.Address, LoginOf(camera.Name, camera.User, camera.Password, AskingUntil(nullptr)));
  KeepMasked(camera.Address);
  return {camera.Address, camera.Line};
}

std::unique_ptr<Camera> MakeCamera(const Invocation& invocation, const Report& report,
                                   const Interruption& interruption, bool isAttended) try {
  auto settings = SettingsOf(invocation, report, &interruption);
  settings.WatchesMoves = settings.Reconnects = isAttended;
  ptzd::PropertyBag options;
  options.Contents(settings.Options);
  const auto address = options.Text("Address");
  auto recording = invocation.Record.empty()
                       ? nullptr
                       : std::make_unique<Recording>(invocation.Record, settings.Driver, invocation.Options,
                                                     isAttended ? nullptr : &report);
  return std::make_unique<Camera>(std::move(settings), address.substr(address.rfind('@') + 1), interruption,
                                  std::make_shared<ExchangeLog>(invocation.Trace, std::move(recording)));
} catch (const UsageError&) {
  if (interruption.Came()) throw Interrupted();
  throw;
}

Session::Session(Camera& camera, Report& report, Interruption& interruption)
    : Camera_(camera), Report_(report), Interruption_(interruption) {
  Camera_.Tell = [this](const Outcome& outcome) {
    Report_.ShowProgress(outcome);
    return !IsOver();
  };
  Interruption_.OnSignal([this] { Camera_.StopNow(); });
}

Session::~Session() { Interruption_.OnSignal({}); }

Result Session::Operate(const Operation& operation, bool silent) {
  try {
    auto outcome = operation.Perform(Camera_);
    std::ranges::move(std::exchange(Notes_, {}), std::back_inserter(outcome.Notes));
    if (!silent || outcome.Result != Result::Done) return Tell(outcome);
    Notes_ = std::move(outcome.Notes);
    return outcome.Result;
  } catch (const Interrupted&) {
    Outcome outcome;
    outcome.Operation = operation.Name;
    outcome.Result = Result::Interrupted;
    outcome.Signal = Interruption_.Signal();
    outcome.Text = "interrupted";
    IsGivenUp_ = !Camera_.MayMove();
    return Tell(outcome);
  }
}

Result Session::Operate(const std::string& line) {
  try {
    const auto operation = ParseLine(line);
    if (!operation) return Result::Done;
    Camera_.CheckPreset(operation->PresetName);
    return Operate(*operation);
  } catch (const HelpRequest& help) {
    Outcome outcome;
    outcome.Operation = "help";
    outcome.Text = help.what();
    return Tell(outcome);
  } catch (const UsageError& error) {
    return Tell(UsageOutcome(error.what()));
  }
}

Result Session::Tell(const Outcome& outcome) {
  Report_.Show(outcome);
  // An interruption may be forgiven; if not, it is the code anyhow.
  if (ExitCode_ == 0 && outcome.Result != Result::Interrupted) ExitCode_ = outcome.ExitCode();
  return outcome.Result;
}

bool Session::IsOver() const { return Interruption_.Came() || !Report_.Failure().empty(); }

int Session::End() {
  if (Report_.Signal() != 0) Interruption_.Note(Report_.Signal());
  std::optional<Outcome> stop;
  if (Camera_.MayMove() && (Camera_.IsDriven() || IsOver()))
    stop = Camera_.Stop();
  else if (Camera_.IsUnstopped())  // the camera may be there again
    stop = Camera_.StopAgain();
  if (stop) Tell(*stop);
  if (!Report_.Failure().empty() && (stop || Report_.Signal() == 0))
    Report_.Warn(Report_.Failure() + (stop ? "; " + stop->Text : ""));
  if (Interruption_.Came())
    ExitCode_ = ExitCodeOf(Interruption_.Signal());
  else if (!Report_.Failure().empty())
    ExitCode_ = static_cast<int>(Result::Refused);
  if (ExitCode_ == 0 && !Camera_.IsRecorded()) ExitCode_ = static_cast<int>(Result::Refused);
  // What the camera's thread waits for is not needed any more, and may take long.
  if (IsGivenUp_ || Camera_.IsUnstopped()) ptzd::EndProcessAtOnce(ExitCode_);
  return ExitCode_;
}

const Operation ConnectFirst{"connect", [](Camera& camera) { return camera.Connect(); }, true};

namespace {

using NextLine = std::function<std::optional<std::string>()>;

bool IsQuit(const std::string& line) { return line == "quit" || line == "exit"; }

void OperateAll(Session& session, const NextLine& next, bool keepGoing) {
  if (session.Operate(ConnectFirst) != Result::Done) return;
  while (const auto line = next()) {
    if (IsQuit(*line)) break;
    const auto result = session.Operate(*line);
    if (session.IsOver() || (result != Result::Done && !keepGoing)) break;
  }
}

/// Where connecting moves the camera, the place to keep is gone when there is a connection.
bool RefuseToKeepPlace(Session& session, const Operation& operation) {
  Outcome outcome;
  outcome.Operation = operation.Name;
  outcome.Result = Result::Refused;
  outcome.Text =
      "connecting moves this camera away from where it is; move it to its place and save that on one "
      "connection: run \"move up 5\" \"" +
      operation.Name + " N\"";
  session.Tell(outcome);
  return false;
}

bool ConnectOnce(Session& session, const Camera& camera, const Operation& operation) {
  if (operation.Connects) return true;
  const auto refuses = [&] { return operation.KeepsPlace && camera.MovesToConnect(); };
  if (refuses()) return RefuseToKeepPlace(session, operation);
  if (session.Operate(ConnectFirst, true) != Result::Done || session.IsOver()) return false;
  return !refuses() || RefuseToKeepPlace(session, operation);
}

void OperateOnce(Session& session, Camera& camera, const Operation& operation) {
  camera.CheckPreset(operation.PresetName);
  if (!ConnectOnce(session, camera, operation)) return;
  session.Operate(operation);
  if (session.IsOver()) return;
  if (const auto ended = camera.AwaitDrive()) session.Tell(*ended);
}

void OperateArguments(Session& session, const Invocation& invocation) {
  auto line = invocation.Lines.begin();
  const NextLine next = [&]() -> std::optional<std::string> {
    if (line == invocation.Lines.end()) return std::nullopt;
    return *line++;
  };
  OperateAll(session, next, invocation.KeepGoing);
}

void OperateInput(Session& session, const Interruption& interruption, bool keepGoing) {
  LineReader reader(interruption);
  OperateAll(
      session, [&] { return reader.Next(); }, keepGoing);
}

constexpr char Prompt[] = "ptzctl> ";

/// Where what was typed is kept for the next time; nowhere for somebody without a folder of their own.
std::filesystem::path HistoryFile() {
  const char* state = std::getenv("XDG_STATE_HOME");
  if (state != nullptr && *state != 0) return std::filesystem::path(state) / "ptzd/history";
  const auto home = ptzd::HomeFolder();
  return home.empty() ? home : home / ".local/state/ptzd/history";
}

/// Somebody types at the terminal: Ctrl-C ends a motion, or the line, and not the shell.
void OperateTyped(Session& session, const Camera& camera, Interruption& interruption, LineEditor& editor) {
  const NextLine next = [&]() -> std::optional<std::string> {
    while (const auto line = editor.Next()) {
      if (!line->IsGivenUp) return line->Text;
      if (camera.MayMove() || camera.IsUnstopped()) session.Operate("stop");
    }
    return std::nullopt;
  };
  if (session.Operate(ConnectFirst) != Result::Done) return;
  while (const auto line = next()) {
    if (IsQuit(*line)) break;
    session.Operate(*line);
    if (interruption.Came() && camera.MayMove()) session.Operate("stop");  // and what became of it is told
    interruption.Forgive(SIGINT);
    if (session.IsOver()) break;
  }
}

void OperateShell(Session& session, const Camera& camera, Interruption& interruption) {
  const auto complete = [&](const std::string& line) { return CompleteLine(line, camera.Presets()); };
  if (const auto editor = LineEditor::Make({Prompt, HistoryFile(), complete}, interruption))
    return OperateTyped(session, camera, interruption, *editor);
  LineReader reader(interruption);
  const NextLine next = [&] {
    std::cerr << Prompt << std::flush;
    return reader.Next();
  };
  OperateAll(session, next, true);
}

}  // namespace

int RunSession(const Invocation& invocation, Report& report, const Work& work) {
  Interruption interruption;
  std::unique_ptr<Camera> camera;
  try {
    camera = MakeCamera(invocation, report, interruption);
  } catch (const Interrupted&) {
    return ExitCodeOf(interruption.Signal());
  }
  Session session(*camera, report, interruption);
  work(session, *camera, interruption);
  return session.End();
}

int RunOperation(const Invocation& invocation, Report& report) {
  return RunSession(invocation, report, [&](Session& session, Camera& camera, Interruption&) {
    OperateOnce(session, camera, invocation.Chosen);
  });
}

int RunLines(const Invocation& invocation, Report& report) {
  for (const auto& line : invocation.Lines) ParseLine(line);  // what is wrong is told before anything moves
  return RunSession(invocation, report,
                    [&](Session& session, const Camera& camera, const Interruption& interruption) {
                      for (const auto& line : invocation.Lines)
                        if (const auto operation = ParseLine(line)) camera.CheckPreset(operation->PresetName);
                      if (invocation.Lines.empty())
                        OperateInput(session, interruption, invocation.KeepGoing);
                      else
                        OperateArguments(session, invocation);
                    });
}

int RunShell(const Invocation& invocation, Report& report) {
  return RunSession(invocation, report, OperateShell);
}

}  // namespace ptzctl
