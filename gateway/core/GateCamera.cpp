#include "gateway/core/GateCamera.h"

#include <ptzd/PTZNamedPresets.h>

#include <boost/asio/post.hpp>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <map>
#include <utility>

#include "common/Printable.h"
#include "gateway/core/Gate.h"
#include "gateway/core/Overloaded.h"
#include "gateway/core/TourRun.h"

namespace ptzgate {

using namespace ptzd;
using std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

namespace {

using namespace std::chrono_literals;

constexpr std::size_t KeptExchanges = 50;
constexpr auto KeptTrack = 60s;
/// Of presets without a name, so many are told of.
constexpr std::int32_t MostUnnamed = 256;
constexpr std::size_t LongestName = 64;
/// Wishes that wait for a camera, which would grow without end where it does not answer, and all be done once
/// it does.
constexpr std::size_t MostQueued = 64;

/// The same for the same id, in letters that any interface takes.
std::string TokenOf(const std::string& id) {
  std::uint64_t hash = 14695981039346656037U;  // FNV-1a
  for (const unsigned char c : id) hash = (hash ^ c) * 1099511628211U;
  char text[20];
  std::snprintf(text, sizeof text, "n%016llx", static_cast<unsigned long long>(hash));
  return text;
}

void CheckNumber(const char* what, std::optional<float> number) {
  if (number && !std::isfinite(*number))
    throw Refusal(Refusal::Why::Invalid, std::string(what) + " is no number");
}

/// Of what is over as soon as it is sent.
void TellBoth(const WishTold& told, const WishOutcome& outcome) {
  if (told.Sent) told.Sent(outcome);
  told.Done(outcome);
}

/// No head turns further. A make that turns for a time, not to a place, would turn for hours.
void CheckTurn(const char* what, std::optional<float> degrees) {
  constexpr float whole = 360;
  CheckNumber(what, degrees);
  if (degrees && std::abs(*degrees) > whole)
    throw Refusal(Refusal::Why::Invalid, std::string(what) + ": expected -360 to 360 degrees");
}

/// Lists in XML, lines of logs and topics have to hold it.
bool IsLine(const std::string& text) {
  return Printable(text) == text && text.find("\xEF\xBF\xBE") == text.npos &&
         text.find("\xEF\xBF\xBF") == text.npos;
}

/// What is said of a wish that failed, for people.
std::string TextOf(const WishOutcome& outcome) {
  if (!outcome.Text.empty()) return outcome.Text;
  return outcome.ErrorText;
}

}  // namespace

/// What a camera's threads tell, carried over to the gateway's thread. It outlives the camera where they do.
class GateCamera::Sink : public ExchangeSink {
 public:
  Sink(Gate& gate, std::string_view driver)
      : Context_(gate.Context()), Metrics_(gate.Metrics()), Durations_(gate.Metrics().ExchangesOf(driver)) {}

  void Belongs(std::weak_ptr<GateCamera> camera) { Camera_ = std::move(camera); }

  void Ended(const Exchange& exchange) override {
    Durations_.Add(exchange.Took);
    const bool failed = exchange.ErrorNumber != 0 || exchange.StatusCode >= 400;
    if (failed) ++Metrics_.FailedExchanges;
    Seen seen{exchange.When, ptzd::Describe(exchange), failed};
    boost::asio::post(Context_, [camera = Camera_, seen = std::move(seen)]() mutable {
      if (const auto there = camera.lock()) there->Remember(std::move(seen));
    });
  }

  /// Several changes that come quickly are told once.
  void StateChanged() {
    if (IsPending_.exchange(true)) return;
    boost::asio::post(Context_, [camera = Camera_] {
      const auto there = camera.lock();
      if (!there) return;
      there->Sink_->IsPending_ = false;
      there->StateChanged();
    });
  }

 private:
  boost::asio::io_context& Context_;
  ptzgate::Metrics& Metrics_;
  Durations& Durations_;
  std::weak_ptr<GateCamera> Camera_;
  std::atomic<bool> IsPending_ = false;
};

HeldDrive::HeldDrive(CameraControl::Drive drive, std::weak_ptr<GateCamera> camera, Client client,
                     Milliseconds lease)
    : Drive_(std::move(drive)), Camera_(std::move(camera)), Client_(std::move(client)), Lease_(lease) {}

bool HeldDrive::Renew() {
  const auto camera = Camera_.lock();
  // Whoever lost the camera, or the right to drive it, cannot go on.
  if (!camera || !camera->HeldBy() || camera->HeldBy()->Client.Session != Client_.Session) return false;
  const auto& users = camera->Gate_.Users();
  if (users.AreThere() && users.RoleOf(Client_.User, camera->Name()) < Role::Operator) return false;
  Drive_.Renew();
  camera->Hold(Client_, Lease_);
  return true;
}

HeldDrive::~HeldDrive() {
  const auto camera = Camera_.lock();
  // A later drive holds the camera for longer.
  if (!camera || camera->LatestDrive_ != this) return;
  camera->LatestDrive_ = nullptr;
  if (camera->HeldBy() && camera->HeldBy()->Client.Session == Client_.Session) camera->Hold(Client_);
}

GateCamera::GateCamera(Gate& gate, NamedCamera camera, CameraSettings settings)
    : Gate_(gate),
      Camera_(std::move(camera)),
      Ranges_(RangesOf(settings, *FindDriverClass(settings.Driver)->Data)),
      Sink_(std::make_shared<Sink>(gate, settings.Driver)),
      HoldTimer_(gate.Context()) {
  settings.Platform.Exchanges = Sink_;
  Control_ = std::make_unique<CameraControl>(std::move(settings));
}

GateCamera::~GateCamera() = default;

void GateCamera::Begin() {
  Sink_->Belongs(weak_from_this());
  Subscription_ = Control_->Subscribe([sink = Sink_](const CameraState&) { sink->StateChanged(); });
  if (Gate_.Marks().IsSet(Name())) {
    Gate_.Journal().Warn("stopping camera " + Name() +
                         ", which may be moving since the gateway ended last time");
    Control_->Stop(Telling({.User = "", .From = "", .Face = "start"}, "stop", {}, Kind::Stop));
  } else if (Gate_.Settings().Connects && Driver().Data->MovesToConnect == ConnectMovement::Never) {
    Control_->Connect();
  }
}

std::shared_future<WishOutcome> GateCamera::StopAtEnd() { return Control_->Stop().Done; }

std::unique_ptr<CameraControl> GateCamera::End() {
  Tour_.reset();
  Holder_.reset();
  HoldTimer_.cancel();
  Subscription_.reset();
  return std::move(Control_);
}

Capabilities GateCamera::CapabilitiesNow() const {
  const auto state = State();
  return state.Connected ? state.Capabilities : Driver().Data->Capabilities;
}

// Rights and control.

/// Does what may be refused, and audits that.
template <typename Work>
auto GateCamera::Audited(const Client& client, const std::string& what, const Work& work) {
  try {
    return work();
  } catch (const Refusal& refusal) {
    ++Gate_.Metrics().Refusals;
    Gate_.Journal().Audit(client, Name(), what,
                          refusal.Reason() == Refusal::Why::Held         ? "held"
                          : refusal.Reason() == Refusal::Why::NotAllowed ? "not allowed"
                                                                         : "refused",
                          refusal.what());
    throw;
  }
}

void GateCamera::Check(const Client& client, const std::string& what, Role role) const {
  if (Gate_.IsEnding() || !Control_) throw Refusal(Refusal::Why::Ending, "the gateway is ending");
  const auto has = Gate_.Users().RoleOf(client.User, Name());
  if (Gate_.Users().AreThere() && has < role)
    throw Refusal(Refusal::Why::NotAllowed, client.User + " is " + std::string(ptzgate::Name(has)) +
                                                " of camera " + Name() + "; to " + what + " is for its " +
                                                std::string(ptzgate::Name(role)) + "s");
}

void GateCamera::CheckQueue() const {
  if (State().Queued >= MostQueued)
    throw Refusal(Refusal::Why::Exhausted,
                  "camera " + Name() + " has " + std::to_string(MostQueued) + " wishes waiting already");
}

/// Has the camera for a client, who takes it from somebody of less priority, or, where he does so on purpose,
/// of the same. What that one set going does not go on under the new one's hands.
void GateCamera::Gain(const Client& client, bool onPurpose) {
  const auto* holder = HeldBy();
  if (holder == nullptr || holder->Client.Session == client.Session) return;
  if (client.Priority < holder->Client.Priority || (client.Priority == holder->Client.Priority && !onPurpose))
    throw Refusal(Refusal::Why::Held, "camera " + Name() + " is held by " + holder->Client.Text());
  if (Gate_.Marks().IsSet(Name())) Control_->Stop(Telling(client, "stop", {}, Kind::Stop));
}

void GateCamera::Hold(const Client& client, Milliseconds beyond) {
  const auto until = steady_clock::now() + Gate_.Settings().Hold + beyond;
  const bool isNew = HeldBy() == nullptr || Holder_->Client.Session != client.Session;
  Holder_ = Holder{client, until};
  HoldTimer_.expires_at(until);
  HoldTimer_.async_wait([weak = weak_from_this()](const auto& error) {
    const auto camera = weak.lock();
    if (error || !camera || camera->HeldBy() != nullptr) return;
    camera->Holder_.reset();
    camera->Changed();
  });
  if (isNew) Changed();
}

const GateCamera::Holder* GateCamera::HeldBy() const {
  return Holder_ && steady_clock::now() < Holder_->Until ? &*Holder_ : nullptr;
}

void GateCamera::DemandAdministrator(const Client& client, const std::string& what) {
  Audited(client, what, [&] { Check(client, what, Role::Administrator); });
}

void GateCamera::Take(const Client& client) {
  const std::string what = "take control";
  Audited(client, what, [&] {
    Check(client, what, Role::Operator);
    Gain(client, true);
  });
  Gate_.Journal().Audit(client, Name(), what, "done", "");
  Hold(client);
}

void GateCamera::Release(const Client& client) {
  if (!Holder_ || Holder_->Client.Session != client.Session) return;
  Gate_.Journal().Audit(client, Name(), "release control", "done", "");
  Holder_.reset();
  HoldTimer_.cancel();
  Changed();
}

void GateCamera::Forget(std::uint64_t session) {
  if (!Holder_ || Holder_->Client.Session != session) return;
  Holder_.reset();
  HoldTimer_.cancel();
  Changed();
}

void GateCamera::UsersChanged() {
  const auto* holder = HeldBy();
  if (holder == nullptr || Gate_.Users().RoleOf(holder->Client.User, Name()) >= Role::Operator) return;
  if (Gate_.Marks().IsSet(Name()) && !Tour_)
    Control_->Stop(Telling(holder->Client, "stop, since the rights ended", {}, Kind::Stop));
  Forget(holder->Client.Session);
}

// Wishes.

/// A driver sends nothing to a camera that is where it is sent, which is no failure: the camera is asked.
void GateCamera::Judge(const WishOutcome& outcome, const std::optional<ptzgate::MoveTo>& to, Told then) {
  if (outcome.Result != WishResult::NotSent || !to || !Control_) return then(outcome);
  Control_->ReadPosition([weak = weak_from_this(), outcome, to = *to, then = std::move(then),
                          &context = Gate_.Context()](const WishOutcome&) {
    boost::asio::post(context, [weak, outcome, to, then] {
      auto judged = outcome;
      if (const auto camera = weak.lock(); camera && camera->Control_ && camera->IsAt(to)) {
        judged.Result = WishResult::Arrived;
        judged.Text = "it is there already";
      }
      then(judged);
    });
  });
}

/// Whether the camera tells that it is there.
bool GateCamera::IsAt(const ptzgate::MoveTo& place) const {
  const auto at = State().Position;
  const auto& data = *Driver().Data;
  const auto isNear = [](std::optional<float> wanted, std::optional<float> is, double step) {
    return !wanted || (is && std::abs(*wanted - *is) <= step);
  };
  return at.Kind == PositionKind::Read && isNear(place.Pan, at.Pan, data.PositionStep) &&
         isNear(place.Tilt, at.Tilt, data.PositionStep) && isNear(place.Zoom, at.Zoom, data.ZoomStep);
}

/// Where an order sends the camera, as far as the gateway knows.
std::optional<ptzgate::MoveTo> GateCamera::PlaceOf(const Order& order) const {
  if (const auto* to = std::get_if<ptzgate::MoveTo>(&order)) return *to;
  const auto* go = std::get_if<ptzgate::GoToPreset>(&order);
  if (go == nullptr) return std::nullopt;
  for (const auto& [token, place] : Gate_.Places().Of(Name()))
    if (token == go->Preset || place.Name == go->Preset)
      return ptzgate::MoveTo{place.Pan, place.Tilt, place.Zoom};
  return std::nullopt;
}

Told GateCamera::Telling(const Client& client, std::string what, Told told, Kind kind,
                         std::optional<ptzgate::MoveTo> to) {
  ++Gate_.Metrics().Wishes;
  // Let go of with the wish, also where that was refused in the end.
  const auto underWay = std::make_shared<std::shared_ptr<int>>();
  if (kind == Kind::Drive || kind == Kind::Move) *underWay = UnderWay_;
  const auto finish = [weak = weak_from_this(), &gate = Gate_, name = Name(), client, what = std::move(what),
                       told = std::move(told), kind, underWay](const WishOutcome& outcome) {
    gate.Journal().Audit(client, name, what, ptzd::Name(outcome.Result), TextOf(outcome));
    auto& metrics = gate.Metrics();
    if (kind == Kind::Stop) {
      if (IsDone(outcome.Result))
        metrics.Stops.Add(outcome.Took);
      else
        ++metrics.FailedStops;
    }
    if (kind == Kind::Drive && outcome.Result == WishResult::Stopped &&
        outcome.Text.starts_with("its lease ended"))
      ++metrics.EndedLeases;
    if (std::exchange(*underWay, nullptr))
      // A move to a place that is over is none any more; what is driven is when the camera took its stop.
      if (const auto camera = weak.lock())
        camera->ClearMark(kind == Kind::Move && outcome.Result != WishResult::StillMoving);
    if (told) told(outcome);
  };
  return [weak = weak_from_this(), &context = Gate_.Context(), finish, to](const WishOutcome& outcome) {
    boost::asio::post(context, [weak, finish, to, outcome] {
      if (const auto camera = weak.lock())
        camera->Judge(outcome, to, finish);
      else
        finish(outcome);
    });
  };
}

/// It rests, as far as anybody set it going here. `isOver`: so does a move that nobody sees the end of.
void GateCamera::ClearMark(bool isOver) {
  if (!Control_ || UnderWay_.use_count() != 1 || Tour_) return;
  const auto state = State();
  if (state.Queued == 0 &&
      (state.Motion == CameraMotion::AtRest || (isOver && state.Motion != CameraMotion::Driven)))
    Gate_.Marks().Clear(Name());
}

void GateCamera::Mark() {
  try {
    Gate_.Marks().Set(Name());
  } catch (const std::runtime_error& error) {
    // A camera that could not be stopped after a crash is better than one that cannot be moved at all.
    Gate_.Journal().Warn(error.what());
  }
}

void GateCamera::Do(const Client& client, const Order& order, Told told, Told sent) {
  const auto what = ptzgate::Describe(order);
  const auto kind = std::holds_alternative<Stop>(order) ? Kind::Stop
                    : Moves(order)                      ? Kind::Move
                                                        : Kind::Other;
  const auto to = PlaceOf(order);
  Audited(client, what, [&] {
    Check(client, what, RoleFor(order));
    if (kind != Kind::Stop) CheckQueue();
    if (NeedsControl(order)) Gain(client, false);
    Carry(client, order,
          {Telling(client, what, std::move(told), kind, to), TellingSent(std::move(sent), to)});
  });
  if (NeedsControl(order)) Hold(client);
}

Told GateCamera::TellingSent(Told sent, std::optional<ptzgate::MoveTo> to) {
  if (!sent) return {};
  return [weak = weak_from_this(), &context = Gate_.Context(), sent = std::move(sent),
          to](const WishOutcome& outcome) {
    boost::asio::post(context, [weak, sent, to, outcome] {
      if (const auto camera = weak.lock())
        camera->Judge(outcome, to, sent);
      else
        sent(outcome);
    });
  };
}

void GateCamera::Carry(const Client& client, const Order& order, const WishTold& told) {
  const auto begin = [&] {
    EndTourRun();
    Mark();
  };
  // Of what is over at once, for whoever waits.
  const auto done = [&] { TellBoth(told, {.Result = WishResult::Sent}); };
  return std::visit(
      Overloaded{
          [&](const ptzgate::Connect&) { Control_->Connect(told); },
          [&](const ptzgate::Disconnect&) {
            EndTourRun();
            Control_->Disconnect(told);
          },
          [&](const ptzgate::Stop&) {
            EndTourRun();
            Control_->Stop(told);
          },
          [&](const ptzgate::MoveTo& to) {
            CheckTurn("pan", to.Pan);
            CheckTurn("tilt", to.Tilt);
            CheckNumber("zoom", to.Zoom);
            if (to.Pan.has_value() != to.Tilt.has_value())
              throw Refusal(Refusal::Why::Invalid, "pan and tilt go together");
            if (!to.Pan && !to.Zoom)
              throw Refusal(Refusal::Why::Invalid,
                            "there is no place: pan and tilt, zoom, or all of them are wanted");
            begin();
            if (to.Pan)
              Control_->MoveTo(*to.Pan, *to.Tilt, to.Zoom, told);
            else
              Control_->ZoomTo(*to.Zoom, told);
          },
          [&](const ptzgate::MoveBy& by) {
            CheckTurn("pan", by.Pan);
            CheckTurn("tilt", by.Tilt);
            begin();
            Control_->MoveBy(by.Pan, by.Tilt, told);
          },
          [&](const ptzgate::ZoomBy& by) {
            CheckNumber("amount", by.Amount);
            if (by.Amount <= 0)
              throw Refusal(Refusal::Why::Invalid, "the amount of a zoom is greater than 0");
            begin();
            Control_->Zoom(by.Direction, by.Amount, told);
          },
          [&](const ptzgate::SetIris& iris) {
            begin();
            Control_->Iris(iris.Level, told);
          },
          [&](const ptzgate::SetFocus& focus) {
            begin();
            Control_->Focus(focus.Level, told);
          },
          [&](const ptzgate::GoToPreset& wish) {
            const auto preset = FindPreset(wish.Preset);
            begin();
            if (preset.IsPlace) {
              const auto& place = Gate_.Places().Of(Name()).at(preset.Token);
              Control_->MoveTo(place.Pan, place.Tilt, place.Zoom, told);
            } else if (preset.Number) {
              Control_->GotoPreset(*preset.Number, told);
            } else {
              Control_->GotoPreset(preset.ID, told);
            }
          },
          [&](const ptzgate::SavePreset& wish) { Save(wish, told); },
          [&](const ptzgate::ForgetPreset& wish) {
            const auto preset = FindPreset(wish.Preset);
            if (preset.IsPlace) {
              Gate_.Places().Remove(Name(), preset.Token);
              Changed();
              return done();
            }
            if (!preset.Number || !Gate_.Names().Of(Name()).contains(*preset.Number))
              throw Refusal(
                  Refusal::Why::Unsupported,
                  "preset " + wish.Preset + " was not named here: its name is the camera's, or its file's");
            Gate_.Names().TakeAway(Name(), *preset.Number);
            Changed();
            done();
          },
          [&](const ptzgate::GoHome&) {
            begin();
            Control_->Home(told);
          },
          [&](const ptzgate::ReadPosition&) { Control_->ReadPosition(told); },
          [&](const ptzgate::StartTour& wish) {
            const auto& tours = Gate_.Settings().Tours;
            const auto tour = tours.find(wish.Name);
            if (tour == tours.end() || tour->second.Camera != Name())
              throw Refusal(Refusal::Why::Unknown, "camera " + Name() + " has no tour " + wish.Name);
            begin();
            StartTourRun(client, wish.Name, tour->second.Stops);
            done();
          },
          [&](const ptzgate::EndTour&) {
            if (!Tour_) throw Refusal(Refusal::Why::Invalid, "camera " + Name() + " is on no tour");
            EndTourRun();
            Control_->Stop(told);
          },
      },
      order);
}

std::unique_ptr<HeldDrive> GateCamera::Drive(const Client& client, const DriveSpeeds& speeds,
                                             std::optional<Milliseconds> lease, Told told, Told sent) {
  const auto& settings = Gate_.Settings();
  const auto time = lease.value_or(settings.Lease);
  const auto what = ptzgate::Describe(speeds) + " for " + std::to_string(time.count()) + " ms";
  Audited(client, what, [&] {
    Check(client, what, Role::Operator);
    if (speeds.PanTilt) {
      CheckNumber("pan", speeds.PanTilt->Pan);
      CheckNumber("tilt", speeds.PanTilt->Tilt);
    }
    CheckNumber("zoom", speeds.Zoom);
    if (!speeds.PanTilt && !speeds.Zoom)
      throw Refusal(Refusal::Why::Invalid,
                    "there is no speed: pan and tilt, zoom, or all of them are wanted");
    if (time <= 0ms || time > settings.LongestLease)
      throw Refusal(Refusal::Why::Invalid, "a lease is more than 0 and at most " +
                                               std::to_string(settings.LongestLease.count()) + " ms");
    CheckQueue();
    Gain(client, false);
  });
  EndTourRun();
  Mark();
  Hold(client, time);
  auto drive = Control_->DriveAt(
      speeds, time, {Telling(client, what, std::move(told), Kind::Drive), TellingSent(std::move(sent))});
  auto held = std::make_unique<HeldDrive>(std::move(drive), weak_from_this(), client, time);
  LatestDrive_ = held.get();
  return held;
}

// Presets.

std::vector<Preset> GateCamera::Presets() const {
  std::map<std::int32_t, std::string> names;
  for (const auto& [name, number] : Camera_.Settings.Presets) names.emplace(number, name);
  for (const auto& [number, name] : Gate_.Names().Of(Name())) names.insert_or_assign(number, name);
  const auto state = State();
  const auto count = state.Connected ? state.PresetCount : Driver().Data->PresetCount;
  std::vector<Preset> presets;
  const bool tellsUnnamed = count <= MostUnnamed;
  for (std::int32_t number = 0; tellsUnnamed && number < count; ++number)
    if (!names.contains(number))
      presets.push_back(
          {std::to_string(number), "Preset " + std::to_string(number), number, false, {}, false});
  for (const auto& [number, name] : names)
    presets.push_back({std::to_string(number), name, number, true, {}, false});
  std::ranges::sort(presets, {}, &Preset::Number);
  for (const auto& [token, place] : Gate_.Places().Of(Name()))
    presets.push_back({token, place.Name, {}, true, {}, true});
  for (const auto& named : Named_)
    presets.push_back({TokenOf(named.ID()), named.Name(), {}, true, named.ID(), false});
  return presets;
}

Preset GateCamera::FindPreset(const std::string& word) const {
  const auto presets = Presets();
  for (const auto& part : {&Preset::Token, &Preset::Name})
    if (const auto found = std::ranges::find(presets, word, part); found != presets.end()) return *found;
  throw Refusal(Refusal::Why::Unknown, "camera " + Name() + " has no preset " + word);
}

void GateCamera::Save(const ptzgate::SavePreset& wish, const WishTold& told) {
  if (wish.Name.size() > LongestName)
    throw Refusal(Refusal::Why::Invalid,
                  "a preset's name has " + std::to_string(LongestName) + " bytes at most");
  if (!IsLine(wish.Name)) throw Refusal(Refusal::Why::Invalid, "a preset's name is one line of text");
  if (KeepsPlaces()) return SavePlace(wish, told);
  std::int32_t number = 0;
  if (wish.Preset.empty()) {
    number = FreePreset();
  } else {
    const auto preset = FindPreset(wish.Preset);
    if (!preset.Number)
      throw Refusal(Refusal::Why::Unsupported,
                    "preset " + wish.Preset + " is known by its name only, and cannot be saved from here");
    number = *preset.Number;
  }
  if (!wish.Name.empty())
    for (const auto& other : Presets())
      if (other.HasName && other.Name == wish.Name && other.Number != number)
        throw Refusal(Refusal::Why::Invalid,
                      "preset " + other.Token + " has the name \"" + wish.Name + "\" already");
  const auto saved = [weak = weak_from_this(), done = told.Done, number, name = wish.Name,
                      &context = Gate_.Context()](const WishOutcome& outcome) {
    boost::asio::post(context, [weak, number, name, outcome] {
      const auto camera = weak.lock();
      if (!camera || !IsDone(outcome.Result) || name.empty()) return;
      try {
        camera->Gate_.Names().Give(camera->Name(), number, name);
      } catch (const std::runtime_error& error) {
        camera->Gate_.Journal().Warn(error.what());
      }
      camera->Changed();
    });
    done(outcome);
  };
  Control_->SavePreset(number, {saved, told.Sent});
}

bool GateCamera::KeepsPlaces() const {
  const auto& data = *Driver().Data;
  const auto state = State();
  const auto count = state.Connected ? state.PresetCount : data.PresetCount;
  return count == 0 && data.PanRange && data.MoveTo != MemberRule::Nothing &&
         (CapabilitiesNow() & CapabilityRelativeControl) == 0 && data.Source() != PositionSource::Estimate;
}

/// Where it is now, as it tells itself.
void GateCamera::SavePlace(const ptzgate::SavePreset& wish, const WishTold& told) {
  std::string token = wish.Preset, name = wish.Name;
  const bool isNew = token.empty();
  if (isNew) {
    token = Gate_.Places().NewToken(Name());
    if (name.empty()) name = "Preset " + token.substr(token.find('-') + 1);
  } else {
    const auto preset = FindPreset(token);
    if (!preset.IsPlace)
      throw Refusal(Refusal::Why::Unsupported,
                    "preset " + token + " is the camera's own, and cannot be saved from here");
    token = preset.Token;
    if (name.empty()) name = preset.Name;
  }
  for (const auto& other : Presets())
    if (other.Name == name && other.Token != token)
      throw Refusal(Refusal::Why::Invalid,
                    "preset " + other.Token + " has the name \"" + name + "\" already");
  Control_->ReadPosition([weak = weak_from_this(), told, token, name, isNew,
                          &context = Gate_.Context()](const WishOutcome& outcome) {
    boost::asio::post(context, [weak, told, token, name, isNew, outcome] {
      auto result = outcome;
      if (const auto camera = weak.lock(); camera && camera->Control_ && IsDone(outcome.Result)) try {
          const auto at = camera->State().Position;
          if (at.Kind != PositionKind::Read) throw std::runtime_error("the camera does not tell where it is");
          auto& places = camera->Gate_.Places();
          // Another one may have been saved meanwhile.
          const bool isTaken = isNew && places.Of(camera->Name()).contains(token);
          places.Save(camera->Name(), isTaken ? places.NewToken(camera->Name()) : token,
                      {name, at.Pan, at.Tilt, at.Zoom});
          camera->Changed();
        } catch (const std::runtime_error& error) {
          result.Result = WishResult::Failed;
          result.Text = error.what();
        }
      TellBoth(told, result);
    });
  });
}

/// The first that has no name.
std::int32_t GateCamera::FreePreset() const {
  const auto presets = Presets();
  if (presets.empty()) throw Refusal(Refusal::Why::Unsupported, "camera " + Name() + " has no presets");
  const auto free = std::ranges::find(presets, false, &Preset::HasName);
  if (free == presets.end() || !free->Number)
    throw Refusal(Refusal::Why::Exhausted, "camera " + Name() + " has no preset left without a name");
  return *free->Number;
}

void GateCamera::AskPresets() {
  if ((CapabilitiesNow() & CapabilityNamedPresets) == 0) return;
  auto presets = std::make_shared<std::vector<PTZNamedPreset>>();
  CameraTask task;
  task.Work = [presets](PTZDevice& device) -> std::optional<bool> {
    if (auto* named = dynamic_cast<PTZNamedPresets*>(&device)) *presets = named->GetNamedPresets();
    return std::nullopt;
  };
  Control_->Perform(std::move(task), [weak = weak_from_this(), presets,
                                      &context = Gate_.Context()](const WishOutcome& outcome) {
    if (!IsDone(outcome.Result)) return;
    boost::asio::post(context, [weak, presets] {
      const auto camera = weak.lock();
      if (!camera) return;
      camera->Named_ = std::move(*presets);
      camera->Changed();
    });
  });
}

// What is seen of it.

void GateCamera::StateChanged() {
  if (!Control_) return;
  const auto state = State();
  if (state.Connected && !std::exchange(WasConnected_, state.Connected)) AskPresets();
  WasConnected_ = state.Connected;
  ClearMark(false);
  const auto& position = state.Position;
  if (position.Kind == PositionKind::Read || position.Kind == PositionKind::Estimated) {
    if (Track_.empty() || Track_.back().When < position.When)
      Track_.push_back({position.When, position.Pan, position.Tilt});
    while (Track_.front().When < position.When - KeptTrack) Track_.pop_front();
  }
  Changed();
}

void GateCamera::Remember(Seen seen) {
  Exchanges_.push_back(std::move(seen));
  if (Exchanges_.size() > KeptExchanges) Exchanges_.pop_front();
  Changed();
}

void GateCamera::Changed() {
  ++Version_;
  Gate_.TellSoon(shared_from_this());
}

// Tours.

std::string GateCamera::Tour() const { return Tour_ ? Tour_->Name() : ""; }

void GateCamera::StartTourRun(const Client& client, const std::string& name, const ptzd::Tour& tour) {
  const auto tell = [weak = weak_from_this(), client, name](std::string_view outcome,
                                                            const std::string& text) {
    if (const auto camera = weak.lock())
      camera->Gate_.Journal().Audit(client, camera->Name(), "tour " + name, outcome, text);
  };
  Tour_ = std::make_unique<TourRun>(
      Gate_.Context(), *Control_, name, tour,
      [weak = weak_from_this(), tell] {
        tell("done", "");
        if (const auto camera = weak.lock()) camera->EndTourRun();
      },
      [tell](const std::string& why) { tell("failed", why); });
  Changed();
}

void GateCamera::EndTourRun() {
  if (!Tour_) return;
  Tour_.reset();
  Changed();
}

}  // namespace ptzgate
