#pragma once

#include <ptzd/Exchange.h>

#include <chrono>
#include <cstddef>
#include <fstream>
#include <string>
#include <vector>

#include "Report.h"

namespace ptzctl {

/// A file of exchanges, one JSON object per line, as docs/recordings.md tells. Each line is written out at
/// once, so whatever ends ptzctl leaves all that came before.
class Recording {
 public:
  static constexpr std::size_t MostOfReply = 1024 * 1024;  ///< bytes of a reply's body

  /// `options` are those of the command line ("Key=Value"). Raises `UsageError` where the file holds
  /// something already or cannot be made. What cannot be written later is told as a warning, once, where
  /// there is a report.
  Recording(const std::string& path, std::string driver, std::vector<std::string> options,
            const Report* report);

  void Add(const ptzd::Exchange& exchange);
  /// One whose reply nobody waits for: what was sent, and, in a line of its own, what came of it.
  void AddRequest(const ptzd::Exchange& exchange);
  void AddReply(const ptzd::Exchange& exchange);

  /// Why not all could be written; empty where it could.
  const std::string& Problem() const { return Problem_; }

 private:
  void Begin(const ptzd::Exchange& first);
  void Write(const std::string& line);

  const std::string Path_, Driver_;
  const std::vector<std::string> Options_;
  const Report* const Report_;
  std::ofstream File_;
  std::string Problem_;
  bool Begun_ = false;
  std::chrono::system_clock::time_point Start_;
};

}  // namespace ptzctl
