#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <ptzd/DriverFactory.h>
#include <ptzd/Exchange.h>

#include "CommandLine.h"
#include "Report.h"

namespace ptzctl {

enum class Likelihood {
  Not,       ///< answers otherwise, or not at all
  Possible,  ///< nothing speaks against it that could be asked
  Likely,    ///< says so of itself, in words that anybody can say
  Proven,    ///< answered in the make's own protocol
};
/// "proven"
const char* Name(Likelihood likelihood);

/// What one row of a driver's `Evidence` came to.
struct Finding {
  std::string Asked;    ///< "GET /axis-cgi/..."
  std::string Answer;   ///< "200 OK, 57 bytes", or why there is none
  std::string Matched;  ///< the text that speaks for the make; empty where nothing does
};

struct MakeVerdict {
  const ptzd::DriverClass* Driver;
  ptzctl::Likelihood Likelihood = Likelihood::Not;
  std::string Reason;  ///< for people
  std::vector<Finding> Findings;
};

struct ProbeSettings {
  std::string Address;                            ///< as `--address` takes it, with the login; or
  std::string Line;                               ///< as `--line` takes it
  const ptzd::DriverClass* Only = nullptr;        ///< the driver to ask for; null: all
  std::chrono::milliseconds Time{10000};          ///< for all of it
  std::shared_ptr<ptzd::ExchangeSink> Exchanges;  ///< is told what goes over the wire; must not be null
};

struct ProbeResult {
  std::vector<MakeVerdict> Makes;  ///< of all drivers asked for, the likeliest first
  bool Answered = false;           ///< something is there
  bool LoginDemanded = false;      ///< everywhere, so that most cannot be told
  bool LoginRefused = false;       ///< the one that was given
  std::string Realm, Server;       ///< what the web server says of itself; may be empty
  std::string Tried;               ///< for people
  std::int32_t ErrorNumber = 0;    ///< why nothing answered
  std::string ErrorText;

  /// The make to take without asking anybody: the only one that is proven, or, where none is, the only likely
  /// one. Null where there is none.
  const MakeVerdict* Best() const;
};

/// Asks which makes answer at an address, by requests that move and change nothing; never connects a driver.
/// Asks at most three things at a time, and nothing more once nobody has answered the first. A login that was
/// refused is not tried again. Blocks at most the time and a quarter of a second. Raises `UsageError` for an
/// address that is none.
ProbeResult ProbeCamera(const ProbeSettings& settings);

/// What it comes to, for people; `where` is the address as it may be shown.
std::string Summary(const ProbeResult& result, const std::string& where);

/// The command. Answers the exit code.
int RunProbe(const Invocation& invocation, Report& report);

}  // namespace ptzctl
