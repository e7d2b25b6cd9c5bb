#include "Outcome.h"

#include "common/Credentials.h"

namespace ptzctl {

Outcome UsageOutcome(const std::string& text) {
  Outcome outcome;
  outcome.Result = Result::Usage;
  outcome.Text = ptzd::MaskCredentials(text);
  return outcome;
}

}  // namespace ptzctl
