#include <nlohmann/json.hpp>

#include "gateway/api/API.h"
#include "gateway/wishes/CameraJSON.h"

namespace ptzgate {

using nlohmann::json;
using ptzd::WishResult;

namespace {

Response Answer(int status, const json& body, const char* type) {
  return {.Status = status, .Headers = {{"Content-Type", type}}, .Body = TextOf(body)};
}

Response Telling(int status, std::string_view type, const std::string& detail,
                 const json& more = json::object()) {
  json problem{{"type", "/problems/" + std::string(type)},
               {"title", ReasonOf(status)},
               {"status", status},
               {"detail", detail}};
  problem.update(more);
  return Answer(status, problem, "application/problem+json");
}

struct Kind {
  int Status;
  const char* Type;
};

int StatusOf(Refusal::Why why) {
  switch (why) {
    case Refusal::Why::Unknown:
      return 404;
    case Refusal::Why::Invalid:
      return 422;
    case Refusal::Why::NotAllowed:
      return 403;
    case Refusal::Why::Held:
      return 409;
    case Refusal::Why::Unsupported:
      return 501;
    case Refusal::Why::Exhausted:
      return 409;
    case Refusal::Why::Ending:
      return 503;
  }
  return 500;
}

Kind KindOf(WishResult result) {
  switch (result) {
    case WishResult::Arrived:
    case WishResult::Sent:
      break;
    case WishResult::Stopped:
      return {409, "stopped"};
    case WishResult::Replaced:
      return {409, "replaced"};
    case WishResult::Stalled:
      return {409, "stalled"};
    case WishResult::StillMoving:
      return {409, "still-moving"};
    case WishResult::Refused:
      return {502, "camera-refused"};
    case WishResult::LoginRefused:
      return {502, "camera-login-refused"};
    case WishResult::NotReached:
      return {504, "not-reached"};
    case WishResult::NotSent:
      return {502, "not-sent"};
    case WishResult::Unsupported:
      return {501, "unsupported"};
    case WishResult::OutOfRange:
      return {422, "out-of-range"};
    case WishResult::Failed:
      return {502, "camera-failed"};
    case WishResult::Abandoned:
      return {503, "ending"};
  }
  return {200, ""};
}

}  // namespace

Response ProblemOf(const Refusal& refusal) {
  return Telling(StatusOf(refusal.Reason()), Word(refusal.Reason()), refusal.what());
}

Response AnswerOf(const ptzd::WishOutcome& outcome, bool wasDrive) {
  const bool isOver =
      wasDrive && (outcome.Result == WishResult::Stopped || outcome.Result == WishResult::Replaced);
  const auto [status, type] = KindOf(outcome.Result);
  const auto told = OutcomeJSON(outcome);
  if (status < 300 || isOver || ptzd::IsDone(outcome.Result)) return Answer(200, told, "application/json");
  auto detail = std::string(ptzd::Name(outcome.Result));
  if (!outcome.Text.empty())
    detail += ": " + outcome.Text;
  else if (!outcome.ErrorText.empty())
    detail += ": " + outcome.ErrorText;
  return Telling(status, type, detail, {{"outcome", told}});
}

}  // namespace ptzgate
