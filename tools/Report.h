#pragma once

#include <string>

#include "Outcome.h"

namespace ptzctl {

/// Tells what happened: in words, or as one JSON object per line on the standard output.
class Report {
 public:
  explicit Report(bool json) : JSON_(json) {}

  void Show(const Outcome& outcome) const;
  void Warn(const std::string& text) const;

 private:
  bool JSON_;
};

/// The name of a result in JSON: "done", "refused", "usage", "no connection", "error" or "interrupted".
const char* ResultName(Result result);

}  // namespace ptzctl
