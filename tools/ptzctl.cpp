// ptzctl: operates pan-tilt-zoom cameras from the command line.

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <functional>
#include <iostream>
#include <span>
#include <string_view>

#include "Camera.h"
#include "CommandLine.h"
#include "Connection.h"
#include "Interrupt.h"
#include "LineReader.h"
#include "LogWatch.h"
#include "Operations.h"
#include "Report.h"
#include "Words.h"
#include "common/Credentials.h"
#include "drivers/kit/AddressLogins.h"

namespace {

using namespace ptzctl;

Outcome UsageOutcome(const std::string& operation, const std::string& text) {
  Outcome outcome;
  outcome.Operation = operation;
  outcome.Result = Result::Usage;
  outcome.Text = ptzd::MaskCredentials(text);  // it quotes what was typed
  return outcome;
}

Camera MakeCamera(const Invocation& invocation, const Report& report, LogWatch& log) {
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
  if (!invocation.Line.empty()) {
    if (!onLine) report.Warn("--line: the driver " + std::string(driver.ProgID) + " uses no serial line");
    UseLine(options, invocation.Line);
  }
  return {driver, std::move(options), log};
}

/// Several operations on one camera, each told as soon as it is over.
class Session {
 public:
  Session(Camera& camera, const Report& report) : Camera_(camera), Report_(report) {}

  Result Operate(const Operation& operation) { return Tell(operation.Perform(Camera_)); }

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

  /// How the first that failed ended.
  Result First() const { return First_; }

 private:
  Result Tell(const Outcome& outcome) {
    Report_.Show(outcome);
    if (First_ == Result::Done) First_ = outcome.Result;
    return outcome.Result;
  }

  Camera& Camera_;
  const Report& Report_;
  Result First_ = Result::Done;
};

using NextLine = std::function<std::optional<std::string>()>;

Result RunLines(Camera& camera, const Report& report, const NextLine& next, bool keepGoing) {
  Session session(camera, report);
  const Operation connect{[](Camera& c) { return c.Connect(); }, true};
  if (session.Operate(connect) != Result::Done) return session.First();
  while (const auto line = next()) {
    if (*line == "quit" || *line == "exit") break;
    const auto result = session.Operate(*line);
    if (Interrupted() || (result != Result::Done && !keepGoing)) break;
  }
  if (!Interrupted()) return session.First();
  if (camera.InMotion) session.Operate("stop");
  return Result::Interrupted;
}

Result OperateOnce(Camera& camera, const Report& report, const Invocation& invocation) {
  Session session(camera, report);
  if (!invocation.Chosen.Connects) {
    const auto connected = camera.Connect();
    if (connected.Result != Result::Done) {
      report.Show(connected);
      return connected.Result;
    }
  }
  session.Operate(invocation.Chosen);
  return Interrupted() ? Result::Interrupted : session.First();
}

Result RunArguments(Camera& camera, const Report& report, const Invocation& invocation) {
  for (const auto& line : invocation.Lines) ParseLine(line);  // what is wrong is told before anything moves
  auto line = invocation.Lines.begin();
  const NextLine next = [&]() -> std::optional<std::string> {
    if (line == invocation.Lines.end()) return std::nullopt;
    return *line++;
  };
  return RunLines(camera, report, next, invocation.KeepGoing);
}

Result RunInput(Camera& camera, const Report& report, bool shell, bool keepGoing) {
  LineReader reader;
  const NextLine next = [&] {
    if (shell) std::cerr << "ptzctl> " << std::flush;
    return reader.Next();
  };
  return RunLines(camera, report, next, shell || keepGoing);
}

Result Perform(const Invocation& invocation, const Report& report) {
  LogWatch log(invocation.Trace);
  if (invocation.What == Task::Drivers) {
    report.Show(ListDrivers());
    return Result::Done;
  }
  if (invocation.What == Task::Options) {
    report.Show(ListOptions(FindDriver(invocation.Driver)));
    return Result::Done;
  }
  auto camera = MakeCamera(invocation, report, log);
  switch (invocation.What) {
    case Task::Run:
      if (!invocation.Lines.empty()) return RunArguments(camera, report, invocation);
      return RunInput(camera, report, false, invocation.KeepGoing);
    case Task::Shell:
      return RunInput(camera, report, true, true);
    default:
      return OperateOnce(camera, report, invocation);
  }
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

Result Main(int argc, char** argv) {
  ptzd::MaskedLogins logins;
  logins.Set(LoginsIn({argv + 1, argv + argc}));
  // An error in the command line is told in JSON too where that was asked for.
  Report report(std::any_of(argv + 1, argv + argc, [](std::string_view word) { return word == "--json"; }));
  try {
    return Perform(ParseCommandLine(argc, argv), report);
  } catch (const HelpRequest& help) {
    std::cout << help.what();
    return Result::Done;
  } catch (const UsageError& error) {
    report.Show(UsageOutcome("", error.what()));
    return Result::Usage;
  } catch (const std::exception& error) {
    auto outcome = UsageOutcome("", error.what());
    outcome.Result = Result::Error;
    report.Show(outcome);
    return Result::Error;
  }
}

}  // namespace

int main(int argc, char** argv) {
  const auto result = static_cast<int>(Main(argc, argv));
  if (!LineReader::IsWaiting()) return result;
  std::cout.flush();
  std::_Exit(result);
}
