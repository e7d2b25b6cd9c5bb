#pragma once

#include <string>

#include "Outcome.h"

namespace ptzctl {

/// Tells what happened: in words, or as one JSON object per line on the standard output.
class Report {
 public:
  explicit Report(bool json);

  void Show(const Outcome& outcome);
  /// The position of an operation that goes on; on a terminal the next one takes its place.
  void ShowProgress(const Outcome& outcome);
  void Warn(const std::string& text) const;
  /// Writes the text as it is.
  void Write(const std::string& text);
  bool IsJSON() const { return JSON_; }

  /// Why what was shown could not be written; empty where it was.
  const std::string& Failure() const { return Failure_; }
  /// The signal that says the same: nobody reads it any more, or the terminal is gone; 0 for another reason.
  int Signal() const { return Signal_; }

 private:
  const bool JSON_, OnTerminal_;
  bool InProgress_ = false;  ///< the line on the terminal is not ended
  int Signal_ = 0;
  std::string Failure_;
};

/// Shows the only outcome of a command. Answers the exit code.
int ShowOnce(Report& report, const Outcome& outcome);
/// Likewise a text, as it is.
int ShowText(Report& report, const std::string& text);

/// "no_connection", as JSON has it.
const char* ResultName(Result result);
/// "http", likewise.
const char* LinkName(ptzd::ExchangeLink link);

}  // namespace ptzctl
