#include "control/Verdict.h"

#include <gtest/gtest.h>

#include <span>

#include "transport/HTTPHandles.h"

namespace ptzd {
namespace {

Exchange Replied(std::int32_t status, const char* reason = "", const char* url = "http://camera/") {
  Exchange exchange;
  exchange.URL = url;
  exchange.StatusCode = status;
  exchange.Reason = reason;
  return exchange;
}

Exchange FailedWith(std::int32_t number, ExchangeLink link = ExchangeLink::HTTP, bool hadConnection = false) {
  Exchange exchange;
  exchange.Link = link;
  exchange.ErrorNumber = number;
  exchange.ErrorText = "so";
  exchange.HadConnection = hadConnection;
  return exchange;
}

const auto NoServer = FailedWith(HTTPErrorNoServer), Slow = FailedWith(13002, ExchangeLink::HTTP, true);
const Error Raised(429, "no");

struct Verdict {
  WishOutcome Judged;
  WishResult Result;
  std::string Text;
  std::int32_t StatusCode = 0, ErrorNumber = 0;
};

void Compare(std::span<const Verdict> verdicts) {
  for (const auto& [judged, result, text, status, error] : verdicts) {
    SCOPED_TRACE(&judged - &verdicts[0].Judged);
    EXPECT_EQ(judged.Result, result);
    EXPECT_EQ(judged.Text, text);
    EXPECT_EQ(judged.StatusCode, status);
    EXPECT_EQ(judged.ErrorNumber, error);
    EXPECT_EQ(judged.ErrorText, error == 0 ? "" : error == Raised.Number() ? "no" : "so");
  }
}

TEST(Verdict, OfACallIsWhatSaysMost) {
  const auto judge = [](std::vector<Exchange> exchanges, std::optional<bool> answer = {},
                        std::optional<MemberRule> rule = {}) {
    return JudgeCall({.Answer = answer, .Raised = {}, .Exchanges = std::move(exchanges)}, rule);
  };
  const Verdict verdicts[] = {
      {judge({Replied(399)}), WishResult::Sent, "", 399},
      {judge({Replied(400), Replied(200)}), WishResult::Refused, "the camera refused: 400", 400},
      {judge({Replied(503, "Busy"), Replied(403, "Never")}), WishResult::LoginRefused,
       "the camera demands a login: 403 Never", 403},
      {judge({Replied(401, "", "http://***@camera/")}), WishResult::LoginRefused,
       "the camera demands another login: 401", 401},
      {judge({Replied(401), NoServer}), WishResult::NotReached, "13104 so", 0, 13104},
      {judge({Replied(404), Slow}), WishResult::Failed, "13002 so", 0, 13002},
      {judge({FailedWith(57, ExchangeLink::Serial)}), WishResult::NotReached, "57 so", 0, 57},
      {JudgeCall({.Answer = {}, .Raised = Raised, .Exchanges = {Replied(200)}}, {}), WishResult::Failed,
       "429 no", 200, 429},
      {JudgeCall({.Answer = {}, .Raised = {}, .Exchanges = {}, .Unanswered = true, .Interrupted = true}, {}),
       WishResult::Stopped, "stopped before the camera answered"},
      {JudgeCall({.Answer = {}, .Raised = {}, .Exchanges = {}, .Unanswered = true}, {}),
       WishResult::NotReached, "the camera did not answer"},
      {judge({Replied(200)}, false, MemberRule::Nothing), WishResult::Unsupported,
       "this make's driver does nothing for this", 200},
      {judge({}), WishResult::NotSent, "nothing was sent"},
      {judge({Replied(200)}, false, MemberRule::Outcome), WishResult::Refused, "the camera refused", 200},
      {judge({Replied(200)}, false, MemberRule::OutcomeIfConnected), WishResult::Refused,
       "the camera refused", 200},
      {judge({Replied(200)}, true, MemberRule::Outcome), WishResult::Sent, "", 200},
      {judge({Replied(200)}, false, MemberRule::Fails), WishResult::Sent, "", 200},
  };
  Compare(verdicts);
}

TEST(Verdict, OfConnectingForgivesSomeRefusals) {
  const auto judge = [](std::vector<Exchange> exchanges, bool answer) {
    return JudgeConnect({.Answer = answer, .Raised = {}, .Exchanges = std::move(exchanges)});
  };
  const auto raise = [](std::vector<Exchange> exchanges) {
    return JudgeConnect({.Answer = {}, .Raised = Raised, .Exchanges = std::move(exchanges)});
  };
  const Verdict verdicts[] = {
      {judge({}, true), WishResult::Sent, ""},
      {judge({Replied(404), Slow, Replied(200)}, true), WishResult::Sent, "", 200},
      {judge({Replied(404), Replied(500)}, true), WishResult::Refused, "the camera refused: 404", 404},
      {judge({Replied(200)}, false), WishResult::Failed, "the driver answered False", 200},
      {judge({Replied(404), Replied(200)}, false), WishResult::Refused, "the camera refused: 404", 404},
      {raise({Replied(404), Replied(200)}), WishResult::Failed, "429 no", 200, 429},
      {raise({NoServer}), WishResult::NotReached, "429 no (13104 so)", 0, 429},
      {raise({Replied(401)}), WishResult::LoginRefused, "429 no (the camera demands a login: 401)", 401, 429},
  };
  Compare(verdicts);
}

TEST(Verdict, HasAName) {
  const auto names = [](auto last) {
    std::string all;
    for (int i = 0; i <= static_cast<int>(last); ++i)
      all.append(all.empty() ? "" : ", ").append(Name(static_cast<decltype(last)>(i)));
    return all;
  };
  EXPECT_EQ(names(WishResult::Abandoned),
            "arrived, sent, stopped, replaced, stalled, still moving, refused, login refused, not reached, "
            "not sent, "
            "unsupported, out of range, failed, abandoned");
  EXPECT_EQ(names(PositionKind::Target), "unknown, read, estimated, target");
  EXPECT_EQ(names(LinkHealth::Lost), "not connected, connecting, untried, up, lost");
  EXPECT_EQ(names(CameraMotion::Moving), "unknown, at rest, driven, moving");
}

TEST(Verdict, SaysWhatTheCameraMayHaveTaken) {
  const auto mayHave = [](const Exchange& exchange) {
    return MayHaveTaken({.Answer = {}, .Raised = {}, .Exchanges = {exchange}});
  };
  EXPECT_TRUE(mayHave(Replied(200)));
  EXPECT_FALSE(mayHave(Replied(400)));
  EXPECT_FALSE(mayHave(NoServer));
  EXPECT_TRUE(mayHave(Slow));
  EXPECT_TRUE(MayHaveTaken({.Answer = {}, .Raised = {}, .Exchanges = {}, .Unanswered = true}));
  EXPECT_TRUE(IsLinkLost({Replied(200), NoServer}));
  EXPECT_FALSE(IsLinkLost({NoServer, Replied(200)}));
  EXPECT_FALSE(IsLinkLost({Slow}));
}

}  // namespace
}  // namespace ptzd
