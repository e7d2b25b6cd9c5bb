// ptzctl: operates pan-tilt-zoom cameras from the command line.

#include <algorithm>
#include <exception>
#include <iostream>
#include <iterator>
#include <span>
#include <string_view>

#include "Aside.h"
#include "CommandLine.h"
#include "LineReader.h"
#include "Report.h"
#include "Words.h"
#include "common/Credentials.h"
#include "drivers/kit/AddressLogins.h"
#include "platform/ProcessEnd.h"

namespace {

using namespace ptzctl;

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
    const auto invocation = ParseCommandLine(argc, argv);
    return invocation.Perform(invocation, report);
  } catch (const HelpRequest& help) {
    std::cout << help.what();
    return 0;
  } catch (const UsageError& error) {
    outcome = UsageOutcome(error.what());
  } catch (const std::exception& error) {
    outcome = UsageOutcome(error.what());
    outcome.Result = Result::Error;
  }
  report.Show(outcome);
  return outcome.ExitCode();
}

}  // namespace

int main(int argc, char** argv) {
  const int code = Main(argc, argv);
#ifndef _WIN32
  if (!LineReader::IsWaiting() && !MayBeBusyAside()) return code;
#endif
  // Every camera is let go of by now. On Windows the internet layer has threads of its own, which may be in
  // the way of its unloading.
  std::cout.flush();
  std::cerr.flush();
  ptzd::EndProcessAtOnce(code);
}
