#include "DriveCommand.h"

#include <cmath>
#include <csignal>
#include <future>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include "Camera.h"
#include "DriveScreen.h"
#include "Interruption.h"
#include "Keys.h"
#include "Pilot.h"
#include "Session.h"
#include "Terminal.h"
#include "Words.h"
#include "platform/CrashDelay.h"
#include "platform/Gamepad.h"
#include "platform/ProcessEnd.h"
#include "platform/StandardOutput.h"

namespace ptzctl {

namespace {

using namespace std::chrono_literals;
using Kind = KeyEvent::Kind;

/// How long keys are waited for before the camera and the gamepad are looked at again.
constexpr auto Look = 20ms;
/// In which the lease of a drive ends and the camera takes the stop.
constexpr auto CrashTime = 3s;
/// A stick is read in so many steps to each side; a hand is never still.
constexpr float StickSteps = 10;

std::unique_ptr<ptzd::Gamepad> OpenGamepad(const std::string& device) {
  if (device == "none") return nullptr;
  return device.empty() ? std::make_unique<ptzd::Gamepad>() : std::make_unique<ptzd::Gamepad>(device);
}

/// What a key moves while it is held.
Deflection DeflectionOf(const KeyEvent& event) {
  switch (event.Code) {
    case KeyUp:
      return {0, 1, 0};
    case KeyDown:
      return {0, -1, 0};
    case KeyLeft:
      return {-1, 0, 0};
    case KeyRight:
      return {1, 0, 0};
    case KeyUpLeft:
    case 'y':
      return {-1, 1, 0};
    case KeyUpRight:
    case 'u':
      return {1, 1, 0};
    case KeyDownLeft:
    case 'b':
      return {-1, -1, 0};
    case KeyDownRight:
    case 'n':
      return {1, -1, 0};
    case KeyZoomIn:
    case '+':
    case '=':
      return {0, 0, 1};
    case KeyZoomOut:
    case '-':
    case '_':
      return {0, 0, -1};
    default:
      return {};
  }
}

/// The signal that a key would be, were it not told as a key.
int SignalOf(const KeyEvent& event) {
  if (!event.Control) return 0;
  switch (event.Code) {
    case 'c':
      return SIGINT;
    case 'z':
      return SIGTSTP;
    case '\\':
      return SIGQUIT;
    default:
      return 0;
  }
}

bool IsDigit(char32_t code) { return code >= '0' && code <= '9'; }
int DigitOf(char32_t code) { return static_cast<int>(code - '0'); }

/// One session of driving.
class Driving {
 public:
  Driving(Camera& camera, Interruption& interruption, const Invocation& invocation)
      : Camera_(camera),
        Interruption_(interruption),
        Gamepad_(OpenGamepad(invocation.Gamepad)),
        Pilot_(camera),
        Screen_(Pilot_, camera.Data(), Exchanges_) {
    View_.Camera = camera.DriverName();
    if (!camera.Address().empty()) View_.Camera += " at " + camera.Address();
    if (!invocation.Line.empty()) View_.Camera += " on " + invocation.Line;
    Interruption_.OnSignal([this] {
      if (Pilot_.MayMove()) Camera_.Control().Stop().Done.wait();
    });
  }
  ~Driving() { Interruption_.OnSignal({}); }
  Driving(const Driving&) = delete;
  Driving& operator=(const Driving&) = delete;

  /// Until somebody ends it. The outcome of a camera that was not reached, or that could not be stopped.
  Outcome Run() {
    auto outcome = Connect();
    if (outcome.Result == Result::Done) {
      for (const auto& note : outcome.Notes) View_.Message = note;
      outcome = {};
      while (!IsOver()) Turn();
      BringToRest(outcome);
    }
    outcome.Operation = "drive";
    if (Interruption_.Came()) {
      outcome.Result = Result::Interrupted;
      outcome.Signal = Interruption_.Signal();
      outcome.Text = outcome.Text.empty() ? "interrupted" : "interrupted; " + outcome.Text;
    }
    return outcome;
  }

 private:
  bool IsOver() {
    if (!Terminal_.IsThere()) Interruption_.Note(SIGHUP);
    return Quits_ || Interruption_.Came();
  }

  Outcome Connect() {
    View_.Message = "Connecting";
    auto connecting = std::async(std::launch::async, [this] { return Camera_.Connect(); });
    while (connecting.wait_for(0s) != std::future_status::ready) {
      Pilot_.Look(Pilot::Time::clock::now());
      Draw();  // what goes over the wire is told with the connection
      if (const auto event = Terminal_.Read(Look); event && event->What == Kind::Press) {
        if (event->Code == 'q' || event->Code == KeyEscape) Quits_ = true;
        // Quitting has the connection given up, too.
        if (const int signal = Quits_ ? SIGINT : SignalOf(*event)) Interruption_.Note(signal);
      }
      if (!Terminal_.IsThere()) Interruption_.Note(SIGHUP);
    }
    View_.Message.clear();
    Outcome outcome;
    try {
      outcome = connecting.get();
      for (const auto& exchange : outcome.Exchanges) Exchanges_.Add(exchange);
    } catch (const Interrupted&) {
      outcome.Result = Result::Interrupted;
    }
    return Quits_ && Interruption_.Forgive(SIGINT) ? Outcome() : outcome;
  }

  /// Once around: what was typed, what is pushed, what the camera told.
  void Turn() {
    // All that has come already is of one moment; a flood of it must not keep the camera waiting.
    auto event = Terminal_.Read(Look);
    for (int more = 0; event; event = more++ < 100 ? Terminal_.Read(0ms) : std::nullopt) Take(*event);
    const auto now = Pilot::Time::clock::now();
    Pilot_.Look(now);
    if (!DriveScreen::Fits()) Held_.LetGo();
    Steer(now);
    Show();
  }

  void Steer(Pilot::Time now) {
    const auto held = Held_.At(now);
    Pilot::Push push{static_cast<float>(held.Pan), static_cast<float>(held.Tilt),
                     static_cast<float>(held.Zoom)};
    std::string by = "keyboard";
    if (Gamepad_) {
      Gamepad_->Poll();
      const auto buttons = Gamepad_->TakePressed();
      if (HasFocus_ && DriveScreen::Fits()) {
        for (const auto button : buttons) Take(button);
        if (push.IsNone()) {
          push = SticksOf(Gamepad_->Sticks());
          by = "gamepad";
          const auto sign = [](float value) { return value > 0.5F ? 1 : value < -0.5F ? -1 : 0; };
          Pilot_.StepOnAndOn({sign(push.Pan), sign(push.Tilt), sign(push.Zoom)}, by, now);
        }
      }
    }
    Pilot_.Steer(push, by);
  }

  static Pilot::Push SticksOf(const ptzd::GamepadSticks& sticks) {
    const auto stepped = [](float value) { return std::round(value * StickSteps) / StickSteps; };
    const auto either = [&](int cross, float stick) {
      return cross != 0 ? static_cast<float>(cross) : stepped(stick);
    };
    return {either(sticks.CrossX, sticks.LeftX), either(sticks.CrossY, sticks.LeftY), stepped(sticks.RightY)};
  }

  void Take(ptzd::GamepadButton button) {
    using ptzd::GamepadButton;
    switch (button) {
      case GamepadButton::A:
        return Pilot_.Stop();
      case GamepadButton::B:
        return Pilot_.Recall(1);
      case GamepadButton::X:
        return Pilot_.Recall(2);
      case GamepadButton::Y:
        return Pilot_.Recall(3);
      case GamepadButton::LeftShoulder:
        return Pilot_.ChangeSpeed(-1);
      case GamepadButton::RightShoulder:
        return Pilot_.ChangeSpeed(1);
      case GamepadButton::Start:
        return Pilot_.Home();
      default:
        return;
    }
  }

  void Take(const KeyEvent& event) {
    if (event.Code == KeyFocusIn || event.Code == KeyFocusOut) return TakeFocus(event.Code == KeyFocusIn);
    const bool isPress = event.What == Kind::Press;
    if (const int signal = isPress ? SignalOf(event) : 0; signal != 0) return Interruption_.Note(signal);
    if (event.Control) {
      if (isPress && event.Code == 'l') Terminal_.Redraw();
      return;
    }
    if (isPress && View_.ShowsHelp) {
      View_.ShowsHelp = false;
      return;
    }
    if (isPress) Say("");
    const bool saves = isPress && std::exchange(Saves_, false);
    if (saves && IsDigit(event.Code)) return Pilot_.Save(DigitOf(event.Code));
    const auto to = DeflectionOf(event);
    using Change = HeldKeys::Change;
    const auto change = DriveScreen::Fits() ? Held_.Take(event, to, Pilot::Time::clock::now()) : Change::None;
    if (change == Change::Begins) Pilot_.Heed();
    if (change != Change::None && !to.IsNone()) return Pilot_.Step(to, "keyboard");
    if (isPress) Command(event);
  }

  void Command(const KeyEvent& event) {
    if (event.Shift && IsDigit(event.Plain)) return Pilot_.Save(DigitOf(event.Plain));
    if (IsDigit(event.Code)) return Pilot_.Recall(DigitOf(event.Code));
    switch (event.Code) {
      case ' ':
      case KeyMiddle:
        Held_.LetGo();
        return Pilot_.Stop();
      case KeyPageUp:
        return Pilot_.ChangeSpeed(1);
      case KeyPageDown:
        return Pilot_.ChangeSpeed(-1);
      case 'h':
        return Pilot_.Home();
      case '?':
        Held_.LetGo();
        View_.ShowsHelp = true;
        return;
      case 'q':
      case KeyEscape:
        Quits_ = true;
        return;
      default:
        // Which digit a shifted character stands on is another thing on each layout.
        if (event.Code == 's' ||
            std::u32string_view(U"!\"@#$%^&*()").find(event.Code) != std::u32string_view::npos)
          AskForPreset();
    }
  }

  void AskForPreset() {
    Saves_ = true;
    Say("Save as which preset? 0 to 9; any other key: none", true);
  }

  void TakeFocus(bool has) {
    HasFocus_ = has;
    if (!has) Held_.LetGo();
    Say(has ? "" : "This window is not in front: keys and gamepad are not heeded, nothing is driven");
  }

  void Say(std::string message, bool isQuestion = false) {
    View_.Message = std::move(message);
    View_.IsQuestion = isQuestion;
  }

  void Show() {
    for (const auto& exchange : Camera_.Log().TakeEnded()) Exchanges_.Add(exchange);
    if (const auto problem = Camera_.Log().RecordingProblem(); !problem.empty() && View_.Message.empty())
      Say(problem);
    Draw();
  }

  void Draw() {
    View_.Keyboard = Terminal_.TellsReleases() ? "keyboard tells releases" : "keyboard tells no releases";
    View_.Gamepad = !Gamepad_                     ? "gamepad: not used"
                    : Gamepad_->IsThere()         ? "gamepad: " + Gamepad_->Name()
                    : Gamepad_->Problem().empty() ? "gamepad: none"
                                                  : "gamepad: " + Gamepad_->Problem();
    Screen_.Draw(View_);
  }

  /// On the screen as long as that takes.
  void BringToRest(Outcome& outcome) {
    Pilot_.Look(Pilot::Time::clock::now());
    if (!Pilot_.MayMove()) {
      for (; Pilot_.IsSending() && !Interruption_.Came(); Terminal_.Read(Look)) Show();  // a preset to save
      if (Pilot_.State().Motion == ptzd::CameraMotion::AtRest) outcome.Text = "the camera is at rest";
      return;
    }
    Say("Stopping the camera before this ends");
    Pilot_.Stop();
    std::optional<ptzd::WishOutcome> stopped;
    while (!(stopped = Pilot_.Stopped())) {
      Pilot_.Look(Pilot::Time::clock::now());
      Show();
      Terminal_.Read(Look);
    }
    if (stopped->Result == ptzd::WishResult::Unsupported) return;  // what it was sent ends by itself
    outcome.Stop = *stopped;
    if (IsDone(stopped->Result)) {
      outcome.Text = "the camera was stopped";
      return;
    }
    outcome.Result = Result::Refused;
    outcome.Text = stopped->Text;
    outcome.Notes.emplace_back("the camera may still be moving");
  }

  Camera& Camera_;
  Interruption& Interruption_;
  Terminal Terminal_;
  const ptzd::CrashDelay CrashDelay_{CrashTime, Terminal::Restore};
  const std::unique_ptr<ptzd::Gamepad> Gamepad_;
  RecentExchanges Exchanges_;
  Pilot Pilot_;
  DriveScreen Screen_;
  DriveView View_;
  HeldKeys Held_;
  bool Saves_ = false, HasFocus_ = true, Quits_ = false;
};

}  // namespace

int RunDrive(const Invocation& invocation, Report& report) {
  if (invocation.JSON) throw UsageError("drive: --json: it shows a screen to a person");
  if (invocation.Trace && ptzd::ErrorsAreTerminal())
    throw UsageError("drive: --trace would write over the screen; send it to a file: 2> trace.txt");
  Interruption interruption;
  const auto camera = MakeCamera(invocation, report, interruption, true);
  Outcome outcome;
  try {
    outcome = Driving(*camera, interruption, invocation).Run();
  } catch (const NoTerminal& problem) {
    throw UsageError(problem.what());
  }
  if (outcome.Result != Result::Done || outcome.Stop) report.Show(outcome);
  int code = outcome.ExitCode();
  if (const auto problem = camera->Log().RecordingProblem(); !problem.empty()) {
    report.Warn(problem);
    if (code == 0) code = static_cast<int>(Result::Refused);
  }
  // The camera rests, or cannot be stopped; what its thread waits for may take long.
  ptzd::EndProcessAtOnce(code);
}

}  // namespace ptzctl
