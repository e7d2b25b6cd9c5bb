// ptzctl: operates pan-tilt-zoom cameras from the command line.

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <functional>
#include <iostream>
#include <iterator>
#include <memory>
#include <span>
#include <string_view>
#include <utility>

#include "Camera.h"
#include "CommandLine.h"
#include "Connection.h"
#include "ExchangeLog.h"
#include "Interruption.h"
#include "LineReader.h"
#include "Operations.h"
#include "Report.h"
#include "Words.h"
#include "common/Credentials.h"
#include "drivers/kit/AddressLogins.h"
#include "platform/ProcessEnd.h"

namespace {

using namespace ptzctl;

Outcome UsageOutcome(const std::string& operation, const std::string& text) {
  Outcome outcome;
  outcome.Operation = operation;
  outcome.Result = Result::Usage;
  outcome.Text = ptzd::MaskCredentials(text);  // it quotes what was typed
  return outcome;
}

std::unique_ptr<Camera> MakeCamera(const Invocation& invocation, const Report& report,
                                   const Interruption& interruption) {
  const auto& driver = FindDriver(invocation.Driver);
  ptzd::PropertyBag options;
  for (const auto& option : invocation.Options) {
    std::string warning;
    StoreOption(options, driver, option, warning);
    if (!warning.empty()) report.Warn(warning);
  }
  const bool onLine = !driver.Data->Reads("Address");
  if (!invocation.Address.empty()) {
    if (onLine) report.Warn("--address: the driver " + std::string(driver.ProgID) + " reads no address");
    options.WriteProperty("Address", CheckedAddress(invocation.Address));
  }
  ptzd::CameraSettings settings;
  if (!invocation.Line.empty()) {
    if (!onLine) report.Warn("--line: the driver " + std::string(driver.ProgID) + " uses no serial line");
    settings.Ports = UseLine(options, invocation.Line);
  }
  settings.Driver = driver.ProgID;
  settings.Options = options.Contents();
  // What is sent is what was asked for: nothing is looked at again and again, and nobody else reconnects.
  settings.WatchesMoves = false;
  settings.Reconnects = false;
  settings.StopTime = invocation.StopTime;
  const auto address = options.Text("Address");
  return std::make_unique<Camera>(std::move(settings), address.substr(address.rfind('@') + 1), interruption,
                                  std::make_shared<ExchangeLog>(invocation.Trace));
}

/// Operations on one camera, each told as soon as it is over.
class Session {
 public:
  Session(Camera& camera, Report& report, Interruption& interruption)
      : Camera_(camera), Report_(report), Interruption_(interruption) {
    Camera_.Tell = [this](const Outcome& outcome) {
      Report_.ShowProgress(outcome);
      return !IsOver();
    };
    Interruption_.OnSignal([this] { Camera_.StopNow(); });
  }
  ~Session() { Interruption_.OnSignal({}); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// How it ended. Done without a word where it is silent.
  Result Operate(const Operation& operation, bool silent = false) {
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

  /// How the line's operation ended; a line without one is done.
  Result Operate(const std::string& line) {
    try {
      if (const auto operation = ParseLine(line)) return Operate(*operation);
      return Result::Done;
    } catch (const HelpRequest& help) {
      Outcome outcome;
      outcome.Operation = "help";
      outcome.Text = help.what();
      return Tell(outcome);
    } catch (const UsageError& error) {
      return Tell(UsageOutcome("", error.what()));
    }
  }

  Result Tell(const Outcome& outcome) {
    Report_.Show(outcome);
    if (ExitCode_ == 0) ExitCode_ = outcome.ExitCode();
    return outcome.Result;
  }

  /// Nothing more is to be done.
  bool IsOver() const { return Interruption_.Came() || !Report_.Failure().empty(); }

  /// Leaves no motion behind that was begun here, and answers the exit code.
  int End() {
    if (Report_.Signal() != 0) Interruption_.Note(Report_.Signal());
    if (Camera_.MayMove() && (Camera_.IsDriven() || IsOver())) {
      auto stop = Camera_.Stop();
      Tell(stop);
      if (!Report_.Failure().empty()) Report_.Warn(Report_.Failure() + "; " + stop.Text);
    } else if (!Report_.Failure().empty() && Report_.Signal() == 0) {
      Report_.Warn(Report_.Failure());
    }
    if (Interruption_.Came())
      ExitCode_ = ExitCodeOf(Interruption_.Signal());
    else if (!Report_.Failure().empty())
      ExitCode_ = static_cast<int>(Result::Refused);
    // What the camera's thread waits for is not needed any more, and may take long.
    if (IsGivenUp_) std::_Exit(ExitCode_);
    return ExitCode_;
  }

 private:
  Camera& Camera_;
  Report& Report_;
  Interruption& Interruption_;
  std::vector<std::string> Notes_;  ///< of the connection, to be told with the operation
  int ExitCode_ = 0;                ///< of the first that failed
  bool IsGivenUp_ = false;
};

const Operation ConnectFirst{"connect", [](Camera& camera) { return camera.Connect(); }, true};

using NextLine = std::function<std::optional<std::string>()>;

void RunLines(Session& session, const NextLine& next, bool keepGoing) {
  if (session.Operate(ConnectFirst) != Result::Done) return;
  while (const auto line = next()) {
    if (*line == "quit" || *line == "exit") break;
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
  if (!ConnectOnce(session, camera, operation)) return;
  session.Operate(operation);
  if (session.IsOver()) return;
  if (const auto ended = camera.AwaitDrive()) session.Tell(*ended);
}

void RunArguments(Session& session, const Invocation& invocation) {
  auto line = invocation.Lines.begin();
  const NextLine next = [&]() -> std::optional<std::string> {
    if (line == invocation.Lines.end()) return std::nullopt;
    return *line++;
  };
  RunLines(session, next, invocation.KeepGoing);
}

void RunInput(Session& session, const Interruption& interruption, bool shell, bool keepGoing) {
  LineReader reader(interruption);
  const NextLine next = [&] {
    if (shell) std::cerr << "ptzctl> " << std::flush;
    return reader.Next();
  };
  RunLines(session, next, shell || keepGoing);
}

int ShowList(Report& report, const Outcome& list) {
  report.Show(list);
  if (report.Failure().empty()) return 0;
  report.Warn(report.Failure());
  return static_cast<int>(Result::Refused);
}

int Perform(const Invocation& invocation, Report& report) {
  if (invocation.What == Task::Drivers) return ShowList(report, ListDrivers());
  if (invocation.What == Task::Options) return ShowList(report, ListOptions(FindDriver(invocation.Driver)));
  for (const auto& line : invocation.Lines) ParseLine(line);  // what is wrong is told before anything moves
  Interruption interruption;
  const auto camera = MakeCamera(invocation, report, interruption);
  Session session(*camera, report, interruption);
  if (invocation.What == Task::Operate)
    OperateOnce(session, *camera, invocation.Chosen);
  else if (!invocation.Lines.empty())
    RunArguments(session, invocation);
  else
    RunInput(session, interruption, invocation.What == Task::Shell, invocation.KeepGoing);
  return session.End();
}

/// The logins in the words of a command line, which may be quoted before any driver knows them. A word may
/// begin with "--address=" or "Address=".
std::vector<ptzd::Login> LoginsIn(std::span<char*> words) {
  std::vector<ptzd::Login> logins;
  for (std::string_view word : words) {
    word.remove_prefix(word.substr(0, word.find(':')).rfind('=') + 1);
    for (const auto& spelling : {std::string(word), Printable(word)})
      std::ranges::move(ptzd::LoginsOf(spelling), std::back_inserter(logins));
  }
  return logins;
}

int Main(int argc, char** argv) {
  ptzd::MaskedLogins logins;
  logins.Set(LoginsIn({argv + 1, argv + argc}));
  // An error in the command line is told in JSON too where that was asked for.
  Report report(std::any_of(argv + 1, argv + argc, [](std::string_view word) { return word == "--json"; }));
  Outcome outcome;
  try {
    return Perform(ParseCommandLine(argc, argv), report);
  } catch (const HelpRequest& help) {
    std::cout << help.what();
    return 0;
  } catch (const UsageError& error) {
    outcome = UsageOutcome("", error.what());
  } catch (const std::exception& error) {
    outcome = UsageOutcome("", error.what());
    outcome.Result = Result::Error;
  }
  report.Show(outcome);
  return outcome.ExitCode();
}

}  // namespace

int main(int argc, char** argv) {
  const int code = Main(argc, argv);
#ifndef _WIN32
  if (!LineReader::IsWaiting()) return code;
#endif
  // Every camera is let go of by now. On Windows the internet layer has threads of its own, which may be in
  // the way of its unloading.
  std::cout.flush();
  std::cerr.flush();
  ptzd::EndProcessAtOnce(code);
}
