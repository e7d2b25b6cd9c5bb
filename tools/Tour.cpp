#include "Tour.h"

#include <algorithm>
#include <iomanip>
#include <iterator>
#include <sstream>
#include <utility>
#include <vector>

#include <ptzd/DriverData.h>
#include "Session.h"
#include "Words.h"
#include "cameras/Glide.h"
#include "cameras/TourFile.h"
#include "common/Numbers.h"

namespace ptzctl {

namespace {

using namespace ptzd;

/// Between two tries of a tour that goes on where a stop failed.
constexpr std::chrono::seconds PauseAfterFailure(1);

/// The operation that sends a camera to a stop, in the words of a `run`.
std::string LineOf(const TourStop& stop, const Tour& tour) {
  std::ostringstream line;
  const auto wait = " --wait " + std::to_string(tour.Arrive.count()) + "ms";
  const auto& to = stop.To;
  if (!stop.Preset.empty()) {
    line << "preset goto " << std::quoted(stop.Preset) << wait;
  } else if (to.Pan) {
    line << "move-to " << Text(*to.Pan) << ' ' << Text(*to.Tilt) << (to.Zoom ? ' ' + Text(*to.Zoom) : "")
         << wait;
  } else if (to.Zoom) {
    line << "zoom-to " << Text(*to.Zoom) << wait;
  } else {
    const auto& [head, zoom] = *stop.Speeds;
    if (head)
      line << "continuous " << Text(head->Pan) << ' ' << Text(head->Tilt)
           << (zoom ? " --zoom=" + Text(*zoom) : "");
    else
      line << "continuous-zoom " << Text(*zoom);
    line << " --for " << stop.For.count() << "ms";
  }
  return line.str();
}

/// Takes a head to a place by continuous motion, and has it rest there.
class Gliding {
 public:
  Gliding(Camera& camera, float pan, float tilt, float speed, std::chrono::milliseconds longest)
      : Camera_(camera), Speed_(speed), Glide_(pan, tilt, speed), Until_(Clock::now() + longest) {}

  /// What became of the motion; done where the head is near and rests.
  Outcome Run() {
    auto seen = Camera_.ReadPosition();
    if (seen.Result != Result::Done) return seen;
    if (seen.Position->Kind != PositionKind::Read) {
      seen.Result = Result::Refused;
      seen.Text = "speed: this camera cannot tell where it is, so it cannot be driven to a place";
      return seen;
    }
    bool isTurned = Glide_.Aim(*seen.Position);
    auto outcome = seen;
    bool isDriven = false;
    while (!Glide_.IsOver() && outcome.Result == Result::Done && Clock::now() < Until_) {
      if (isTurned) {
        outcome = Begin();
        Keep(outcome);
        isDriven = true;
        if (outcome.Result != Result::Done) break;
      }
      if (!Camera_.Ending().Sleep(std::chrono::milliseconds(std::max(Camera_.Data().PositionPace, 50))))
        throw Interrupted();
      outcome = Camera_.ReadPosition();
      isTurned = outcome.Result == Result::Done && Glide_.Aim(*outcome.Position);
    }
    if (isDriven) {
      auto stopped = Camera_.Stop();
      Keep(stopped);
      if (outcome.Result == Result::Done) {
        outcome = std::move(stopped);
      } else {
        outcome.Stop = stopped.Stop;
        std::ranges::move(stopped.Notes, std::back_inserter(outcome.Notes));
      }
    }
    outcome.Exchanges = std::move(Exchanges_);
    return outcome;
  }

 private:
  using Clock = std::chrono::steady_clock;

  /// What moved the head is told; that it was asked where it is, again and again, is not.
  void Keep(const Outcome& outcome) {
    Exchanges_.insert(Exchanges_.end(), outcome.Exchanges.begin(), outcome.Exchanges.end());
  }

  Outcome Begin() {
    return Camera_.Drive({"continuous", "Move at speed " + Text(Speed_), {}, CapabilityContinuousMove},
                         {Glide_.Speeds(), {}}, {}, false);
  }

  Camera& Camera_;
  const float Speed_;
  Glide Glide_;
  const Clock::time_point Until_;
  std::vector<Exchange> Exchanges_;
};

/// A stop of a tour as an operation, with its number told.
Operation OperationOf(const TourStop& stop, const Tour& tour, const std::string& number) {
  auto operation = *ParseLine(LineOf(stop, tour));
  operation.Perform = [stop, number, travel = tour.Travel, arrive = tour.Arrive,
                       perform = std::move(operation.Perform)](Camera& camera) {
    Outcome glided;
    if (stop.Speed) glided = Gliding(camera, *stop.To.Pan, *stop.To.Tilt, *stop.Speed, arrive).Run();
    if (glided.Result != Result::Done) {
      glided.Operation = "move-to";
      glided.Text = number + " " + glided.Text;
      return glided;
    }
    auto outcome = perform(camera);
    outcome.Exchanges.insert(outcome.Exchanges.begin(), glided.Exchanges.begin(), glided.Exchanges.end());
    const bool cannotTell = outcome.Result == Result::NotArrived && outcome.Became == WishResult::Sent;
    if (cannotTell && camera.Ending().Sleep(travel)) {
      outcome.Result = Result::Done;
      outcome.Text = "sent; this camera cannot tell whether it is there, and was given " + Seconds(travel);
    }
    outcome.Text = number + " " + outcome.Text;
    return outcome;
  };
  return operation;
}

}  // namespace

int RunTour(const Invocation& invocation, Report& report) {
  auto tour = ReadTour(invocation.Word);
  if (invocation.Rounds) tour.Rounds = *invocation.Rounds;
  std::vector<Operation> operations;
  for (const auto& stop : tour.Stops)
    operations.push_back(OperationOf(
        stop, tour, std::to_string(operations.size() + 1) + "/" + std::to_string(tour.Stops.size())));

  return RunSession(invocation, report,
                    [&](Session& session, Camera& camera, const Interruption& interruption) {
                      for (const auto& operation : operations) camera.CheckPreset(operation.PresetName);
                      const auto connects = [&] {
                        return camera.State().Connected || session.Operate(ConnectFirst) == Result::Done;
                      };
                      for (std::int32_t round = 0; tour.Rounds == 0 || round < tour.Rounds; ++round) {
                        for (std::size_t i = 0; i < operations.size(); ++i) {
                          const bool isDone = connects() && session.Operate(operations[i]) == Result::Done;
                          if (session.IsOver() || (!isDone && !invocation.KeepGoing)) return;
                          if (!interruption.Sleep(isDone ? tour.Stops[i].Pause : PauseAfterFailure)) return;
                        }
                      }
                    });
}

}  // namespace ptzctl
