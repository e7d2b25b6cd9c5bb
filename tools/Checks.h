#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <ptzd/Exchange.h>
#include "CheckBench.h"

namespace ptzctl {

enum class Verdict {
  Passed,
  Failed,
  NotProvable,  ///< the camera took what was sent, and nothing tells what came of it
  Skipped,
};
/// "not provable"
const char* Name(Verdict verdict);

struct Figure {
  std::string Name;
  double Value = 0;
  std::string Unit;
};

/// What became of one check.
struct CheckResult {
  std::string Name;   ///< "pan"; its identifier too
  std::string Finds;  ///< the faults that it is there to find
  ptzctl::Verdict Verdict = Verdict::Skipped;
  std::string Text;  ///< why
  std::vector<Figure> Figures;
  std::vector<ptzd::Exchange> Exchanges;  ///< all but the repeated looks at the position
  int Looks = 0;                          ///< how often the position was asked for
  std::chrono::milliseconds Took{};
};

/// What may be done to a camera.
struct CheckScope {
  bool Moves = false;
  std::string WhyStill;                ///< where it may not be moved
  std::optional<std::int32_t> Preset;  ///< a number that may be overwritten
  /// Of the site, with the driver's signs.
  std::optional<ptzd::CameraLimits> PanLimits, TiltLimits, ZoomLimits;
  bool HasLogin = false;  ///< one was given
};

/// Carries out all checks in their order, `done` being told of each. The camera is at rest and put back when
/// this returns, as far as the last check says, also where ptzctl is to end before. Raises `UsageError` for a
/// preset that the camera does not have, before anything moves.
void CarryOutChecks(CheckBench& bench, const ptzd::Bytes& options, const CheckScope& scope,
                    const Interruption& interruption, const std::function<void(const CheckResult&)>& done);

}  // namespace ptzctl
