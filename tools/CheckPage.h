#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "CheckBench.h"
#include "Checks.h"

namespace ptzctl {

/// All that a check has to say.
struct CheckProtocol {
  std::string Name;             ///< by which people know it; empty where it has none
  std::string Driver, Address;  ///< without user and password
  std::string About;            ///< how ptzctl has the driver
  std::vector<std::string> Capabilities;
  std::chrono::system_clock::time_point When;
  std::string Ending;  ///< why it ended before it was done; empty where it did not
  std::vector<CheckResult> Results;
  std::vector<Sighting> Track;
  std::vector<Motion> Motions;

  int Count(Verdict verdict) const;
};

/// "2026-03-09 14:05:11 +0100"
std::string DateText(std::chrono::system_clock::time_point when);
/// "4.21 s"
std::string FigureText(const Figure& figure);
/// What was exchanged, for people: a line each, those of a stop that was tried again and again only once,
/// with how often.
std::vector<std::string> WireTexts(const std::vector<ptzd::Exchange>& exchanges);

/// The protocol as a page of its own, which needs nothing else: for a browser, light and dark, and for paper.
std::string CheckPage(const CheckProtocol& protocol);

}  // namespace ptzctl
