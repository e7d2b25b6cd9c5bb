#include "control/Verdict.h"

#include <algorithm>
#include <string>
#include <tuple>
#include <utility>

#include "common/Credentials.h"
#include "transport/HTTPHandles.h"

namespace ptzd {

namespace {

constexpr std::int32_t StatusRefused = 400, StatusUnauthorized = 401, StatusForbidden = 403;

std::string StatusText(const Exchange& exchange) {
  return std::to_string(exchange.StatusCode) + (exchange.Reason.empty() ? "" : " " + exchange.Reason);
}

/// Which of several failures says most: that nothing answers, then a demand for a login, then what went wrong
/// on the way, then any refusal.
const Exchange* Worst(const std::vector<Exchange>& exchanges) {
  for (const auto& fails :
       {&IsLinkFailure, &IsLoginRefusal, +[](const Exchange& e) { return e.ErrorNumber != 0; }, &IsRefusal})
    if (const auto found = std::ranges::find_if(exchanges, fails); found != exchanges.end()) return &*found;
  return nullptr;
}

void Blame(WishOutcome& outcome, const Exchange& exchange) {
  outcome.StatusCode = exchange.StatusCode;
  if (exchange.ErrorNumber != 0) {
    outcome.Result = IsLinkFailure(exchange) ? WishResult::NotReached : WishResult::Failed;
    outcome.ErrorNumber = exchange.ErrorNumber;
    outcome.ErrorText = exchange.ErrorText;
    outcome.Text = std::to_string(exchange.ErrorNumber) + " " + exchange.ErrorText;
  } else if (IsLoginRefusal(exchange)) {
    outcome.Result = WishResult::LoginRefused;
    outcome.Text = LoginDemand(exchange);
  } else {
    outcome.Result = WishResult::Refused;
    outcome.Text = "the camera refused: " + StatusText(exchange);
  }
}

void Blame(WishOutcome& outcome, const Error& raised) {
  outcome.Result = WishResult::Failed;
  outcome.ErrorNumber = raised.Number();
  outcome.ErrorText = raised.Description();
  outcome.Text = std::to_string(raised.Number()) + " " + raised.Description();
}

bool PassesOn(std::optional<MemberRule> rule) {
  return rule == MemberRule::Outcome || rule == MemberRule::OutcomeIfConnected;
}

}  // namespace

bool IsRefusal(const Exchange& exchange) { return exchange.StatusCode >= StatusRefused; }

bool IsLoginRefusal(const Exchange& exchange) {
  return exchange.StatusCode == StatusUnauthorized || exchange.StatusCode == StatusForbidden;
}

std::string LoginDemand(const Exchange& refused) {
  return std::string("the camera demands ") + (HasLogin(refused.URL) ? "another" : "a") +
         " login: " + StatusText(refused);
}

bool IsLinkFailure(const Exchange& exchange) {
  return exchange.ErrorNumber != 0 &&
         (exchange.Link != ExchangeLink::HTTP || exchange.ErrorNumber == HTTPErrorNoServer);
}

bool MayHaveTaken(const MemberCall& call) {
  return call.Unanswered || std::ranges::any_of(call.Exchanges, [](const Exchange& exchange) {
           return exchange.ErrorNumber != 0 ? exchange.HadConnection : !IsRefusal(exchange);
         });
}

bool IsLinkLost(const std::vector<Exchange>& exchanges) {
  return !exchanges.empty() && IsLinkFailure(exchanges.back());
}

WishOutcome JudgeCall(MemberCall call, std::optional<MemberRule> rule) {
  WishOutcome outcome;
  outcome.Answer = call.Answer;
  outcome.Exchanges = std::move(call.Exchanges);
  const auto fail = [&outcome](WishResult result, std::string text) {
    outcome.Result = result;
    outcome.Text = std::move(text);
  };
  if (!outcome.Exchanges.empty()) outcome.StatusCode = outcome.Exchanges.back().StatusCode;
  if (const auto* worst = Worst(outcome.Exchanges))
    Blame(outcome, *worst);
  else if (call.Raised)
    Blame(outcome, *call.Raised);
  else if (call.Interrupted)
    fail(WishResult::Stopped, "stopped before the camera answered");
  else if (call.Unanswered)
    fail(WishResult::NotReached, "the camera did not answer");
  else if (rule == MemberRule::Nothing)
    fail(WishResult::Unsupported, "this make's driver does nothing for this");
  else if (outcome.Exchanges.empty())
    fail(WishResult::NotSent, "nothing was sent");
  else if (PassesOn(rule) && outcome.Answer == false)
    fail(WishResult::Refused, "the camera refused");
  return outcome;
}

WishOutcome JudgeConnect(MemberCall call) {
  WishOutcome outcome;
  outcome.Answer = call.Answer;
  outcome.Exchanges = std::move(call.Exchanges);
  const auto went = [](const Exchange& e) { return e.ErrorNumber == 0 && !IsRefusal(e); };
  const bool allFailed = !outcome.Exchanges.empty() && std::ranges::none_of(outcome.Exchanges, went);
  if (!outcome.Exchanges.empty()) outcome.StatusCode = outcome.Exchanges.back().StatusCode;
  // A driver's own number and text say more than a refused request, but not that a login is wanted, nor that
  // nothing answers.
  if (call.Raised) {
    Blame(outcome, *call.Raised);
    if (const auto* worst = Worst(outcome.Exchanges); worst != nullptr && allFailed) {
      const auto raised = std::pair(outcome.ErrorNumber, outcome.ErrorText);
      Blame(outcome, *worst);
      std::tie(outcome.ErrorNumber, outcome.ErrorText) = raised;
      outcome.Text = std::to_string(raised.first) + " " + raised.second + " (" + outcome.Text + ")";
    }
  } else if (allFailed) {
    Blame(outcome, *Worst(outcome.Exchanges));
  } else if (call.Answer == false) {
    outcome.Result = WishResult::Failed;
    outcome.Text = "the driver answered False";
    if (const auto* worst = Worst(outcome.Exchanges)) Blame(outcome, *worst);
  }
  return outcome;
}

}  // namespace ptzd
