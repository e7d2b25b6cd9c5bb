#pragma once

#include <ptzd/CameraControl.h>
#include <ptzd/PTZNamedPresets.h>

#include <condition_variable>
#include <deque>
#include <mutex>
#include <random>
#include <thread>

#include "control/ControlClock.h"
#include "control/ExchangeCollector.h"
#include "control/Site.h"
#include "control/Ticket.h"
#include "control/Verdict.h"

namespace ptzd {

/// How long a drive goes on, and for whom. Its holder, the queue and the drive under way share it, so that
/// what its holder says counts wherever the drive is.
struct DriveTerms {
  std::chrono::milliseconds Lease{};  ///< 0: without end
  std::chrono::steady_clock::time_point LeaseEnds{};
  bool IsLeft = false;   ///< nobody holds it, and it goes on
  bool IsLetGo = false;  ///< nobody holds it, and it ends

  bool IsOver(std::chrono::steady_clock::time_point now) const {
    return Lease != std::chrono::milliseconds(0) && LeaseEnds <= now;
  }
  bool OutliveControl() const { return IsLeft && Lease == std::chrono::milliseconds(0); }
};

/// What stands in a camera's queue.
struct CameraRequest {
  enum class Kind { Connect, Disconnect, Drive, Place, Zoom, Step, Position, Reading, Task };

  Kind What = Kind::Task;
  ptzd::Tickets Tickets{};
  ptzd::Target Target{};  ///< a place, a zoom, the amounts of a step, or where the camera is

  // Of a drive.
  DriveSpeeds Speeds{};
  std::shared_ptr<DriveTerms> Terms{};

  CameraTask Task{};

  bool Moves() const {
    return What == Kind::Drive || What == Kind::Place || What == Kind::Zoom || What == Kind::Step ||
           (What == Kind::Task && Task.Moves);
  }
};

/// The thread behind a `CameraControl`, and all that it knows. Public members may be called on any thread;
/// the others run on the worker's own, with `Mutex_` held where they take the lock.
class CameraControl::Worker {
 public:
  explicit Worker(CameraSettings settings);
  ~Worker() { End(); }
  Worker(const Worker&) = delete;
  Worker& operator=(const Worker&) = delete;

  Wish Submit(CameraRequest request, WishTold told);
  /// A wish that cannot be.
  Wish Refuse(std::string why, WishTold told);
  /// The last thing that is done to it.
  void End();
  Wish Stop(WishTold told);
  /// Stops a drive that is still the latest, or becomes it again.
  void EndDrive(DriveTerms& drive);
  void RenewDrive(DriveTerms& drive);
  void LeaveDrive(DriveTerms& drive);

  CameraState State() const;
  const DriverClass& Class() const { return Class_; }
  const CameraSettings& Settings() const { return Settings_; }
  bool HasNamedPresets() const { return As<PTZNamedPresets>() != nullptr; }
  std::shared_ptr<void> Subscribe(std::function<void(const CameraState&)> changed);

 private:
  using TimePoint = std::chrono::steady_clock::time_point;
  using Milliseconds = std::chrono::milliseconds;
  using Lock = std::unique_lock<std::mutex>;
  using Work = std::function<std::optional<bool>(PTZDevice&)>;
  struct Subscriber;

  /// A stop that the camera has not taken yet.
  struct PendingStop {
    ptzd::Tickets Tickets;  ///< of those who asked for it
    ptzd::Tickets Ended;    ///< of the motions that it ends
    ptzd::Tickets Dropped;  ///< of what it kept from being sent
    std::string Reason;     ///< of its end, for those
    TimePoint Since, NextTry;
    Milliseconds Pause;
    int Tries = 0;
    bool Once = false;  ///< it is not repeated; the next connection brings another
    WishOutcome Last;
    std::vector<Exchange> Exchanges;  ///< of all tries
  };
  /// A drive that the camera took.
  struct ActiveDrive {
    ptzd::Tickets Tickets;
    DriveSpeeds Speeds;
    std::shared_ptr<DriveTerms> Terms;
  };
  /// A camera that is looked at until it rests.
  struct RestWatch {
    ptzd::Tickets Tickets;
    WishOutcome Sent;
    std::optional<ptzd::Target> To;  ///< of the site
    TimePoint Began, Next;
    Milliseconds Time;  ///< it is watched at most
    std::optional<CameraPosition> Last;
    int Alike = 0;  ///< how often it was seen at `Last`
    bool Moved = false;
  };

  // The thread.
  void EnsureRunning();
  void Run();
  void RunLocked(Lock& lock);
  /// Does the next thing there is to do. False where there is none now.
  bool Step(Lock& lock);
  TimePoint NextDue() const;
  bool IsIdle() const;
  void Publish(Lock& lock);
  void Changed();
  /// Calls those who wanted to be told.
  void Tell(Lock& lock);

  // Wishes.
  void Enqueue(CameraRequest request);
  void AbandonQueue();
  void Do(CameraRequest request, Lock& lock);
  void DoConnect(CameraRequest request, Lock& lock);
  void DoDisconnect(CameraRequest request, Lock& lock);
  void DoDrive(CameraRequest request, Lock& lock);
  void DoTask(CameraRequest request, Lock& lock);
  void DoReading(CameraRequest request, Lock& lock);
  /// Connects where that is wanted. Where it cannot be, the request is told so, and the answer is False.
  bool EnsureConnected(CameraRequest& request, Lock& lock);
  /// The task that a place or a step is, for the driver. Nothing where the site does not allow it.
  std::optional<CameraTask> TaskOf(CameraRequest& request);
  CameraTask StepTask(const ptzd::Target& step) const;
  CameraTask PlaceTask(const ptzd::Target& place) const;
  void WatchUntilRest(ptzd::Tickets tickets, WishOutcome sent, std::optional<ptzd::Target> to,
                      Milliseconds time);
  /// How long the camera is watched where a wish does not say.
  Milliseconds RestTime() const { return Settings_.WatchesMoves ? Settings_.RestTime : Milliseconds(0); }
  void Look(Lock& lock);
  void FollowDrive(Lock& lock);
  bool Follows() const { return Drive_ && (Settings_.WatchesMoves || Site_.HasLimits()); }
  /// Finds out where the camera is, where a limit depends on that.
  void LocateForLimits(Lock& lock);
  void EndWatch(const WishOutcome& outcome);

  // Stopping.
  /// From here on nothing goes before the stop. Ends the drive, the watch and the queue.
  void BeginStop(ptzd::Tickets tickets, std::string reason);
  void TryStop(Lock& lock);
  void TellDropped();
  void EndStop(WishOutcome outcome);

  // The link.
  WishOutcome Open(Lock& lock, bool takesPosition = true);
  /// What makes the driver usable again. Nothing where it is.
  std::optional<WishOutcome> Revive(Lock& lock);
  void Reconnect(Lock& lock);
  void NoteLink(const std::vector<Exchange>& exchanges);
  void LoseLink();
  std::string LostText() const;
  Milliseconds Jittered(Milliseconds pause);
  void Lengthen(Milliseconds& pause) const;

  // The driver, with the lock let go meanwhile.
  enum class Cutting { Allowed, Forbidden };
  MemberCall Call(const Work& work, Lock& lock, Cutting cutting = Cutting::Allowed);
  /// What the driver says of its position, as the site has it; of no kind yet.
  CameraPosition PositionOf(PTZDevice& device) const;
  /// Takes over what the driver says of its position, which it may ask the camera for.
  void TakePosition(PositionKind unasked, Lock& lock);
  /// Asks the camera. The answer's result is `NotSent` where it cannot be asked.
  WishOutcome AskPosition(Lock& lock);
  void ForgetPosition() { Position_.Kind = PositionKind::Unknown; }
  template <typename Interface>
  Interface* As() const {
    return dynamic_cast<Interface*>(Device_.get());
  }

  const CameraSettings Settings_;
  const ptzd::Site Site_{Settings_};
  const DriverClass& Class_;
  const DriverData& Data_;
  ControlClock Clock_;
  const std::shared_ptr<ExchangeCollector> Collector_;
  const std::unique_ptr<PTZDevice> Device_;

  mutable std::mutex Mutex_;
  Calls Later_;  ///< behind whatever may still add to it
  std::condition_variable Changed_;
  std::thread Thread_;
  bool Running_ = false, Ending_ = false, Dirty_ = false;
  std::deque<CameraRequest> Queue_;
  std::optional<PendingStop> Stop_;
  std::optional<ActiveDrive> Drive_;
  std::optional<RestWatch> Watch_;
  TimePoint FollowAt_{};  ///< when the position of a driven camera is asked for next
  bool Calling_ = false;  ///< a driver's member is running that a stop cuts short
  bool Sending_ = false;  ///< a motion is being sent

  LinkHealth Link_ = LinkHealth::NotConnected;
  bool Connected_ = false;
  std::optional<TimePoint> ReconnectAt_;
  Milliseconds ReconnectPause_;
  CameraMotion Motion_ = CameraMotion::Unknown;
  CameraPosition Position_;
  bool TellsZoom_ = false;  ///< in the last answer to where it is
  std::int32_t ErrorNumber_ = 0;
  std::string ErrorText_;
  ptzd::Capabilities Capabilities_{};
  std::int32_t PresetCount_ = 0;
  std::shared_ptr<DriveTerms> CurrentDrive_;  ///< waiting, being sent or under way; null for none
  std::vector<std::weak_ptr<Subscriber>> Subscribers_;
  std::minstd_rand Random_{std::random_device()()};
};

}  // namespace ptzd
