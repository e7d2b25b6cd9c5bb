#pragma once

#include <ptzd/CameraControl.h>
#include <ptzd/Error.h>

#include <optional>
#include <string>
#include <vector>

namespace ptzd {

/// What a driver's member did.
struct MemberCall {
  std::optional<bool> Answer;
  std::optional<Error> Raised;
  std::vector<Exchange> Exchanges;
  bool OnlyAsked = false;    ///< these only ask where the camera is, and there are some
  bool Unanswered = false;   ///< a request that nobody waited for is still under way
  bool Interrupted = false;  ///< its answer was not waited for, since a stop came
};

/// What became of sending a wish: `Sent`, or why the camera did not take it. What was exchanged counts before
/// what was answered, since many makes answer True or False whatever happened.
WishOutcome JudgeCall(MemberCall call, std::optional<MemberRule> rule);

/// The same for `Connect`, of whose requests some may fail: it is done where the driver answers True and the
/// camera did not refuse or miss all of them.
WishOutcome JudgeConnect(MemberCall call);

/// Whether the camera answered that it does not take it, for whatever reason.
bool IsRefusal(const Exchange& exchange);
/// Whether the camera wants to know, or does not like, who asks.
bool IsLoginRefusal(const Exchange& exchange);
/// What such an exchange says: "the camera demands a login: 401 Unauthorized", "another login" where one came
/// with the request.
std::string LoginDemand(const Exchange& refused);
/// Whether nothing answers at the other end.
bool IsLinkFailure(const Exchange& exchange);
/// Whether the camera may have taken any of it. What it refused, it did not.
bool MayHaveTaken(const MemberCall& call);
/// Whether the last exchange shows that nothing answers.
bool IsLinkLost(const std::vector<Exchange>& exchanges);

}  // namespace ptzd
