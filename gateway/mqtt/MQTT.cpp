#include "gateway/mqtt/MQTT.h"

#include <boost/asio/post.hpp>

#include <algorithm>
#include <random>

#include "cameras/CameraFile.h"
#include "cameras/InputWords.h"
#include "common/Nearest.h"
#include "common/Printable.h"
#include "gateway/core/Refusal.h"
#include "gateway/mqtt/Command.h"
#include "gateway/mqtt/Topics.h"
#include "gateway/wishes/CameraJSON.h"
#include "gateway/wishes/Wishes.h"

namespace ptzgate {

using nlohmann::json;
using std::chrono::milliseconds;
using std::chrono::steady_clock;

namespace {

using namespace std::chrono_literals;

constexpr milliseconds FirstPause = 250ms, LongestPause = 30s;
/// From the wish for a connection until the broker gave back what was asked of it.
constexpr auto TimeToSettle = 20s;
constexpr milliseconds TimeToPart = 2s;
/// A camera's state is told so often at most, and what changes seldom is looked at so often.
constexpr milliseconds StatePace = 250ms, AboutPace = 1s;
/// How long, and of how many messages, it is known that they were obeyed.
constexpr auto OnceTime = 60s;
constexpr std::size_t MostOnce = 64;

constexpr char Online[] = "online", Offline[] = "offline";
constexpr std::string_view Set = "set/";

ptzd::Login LoginFor(const MQTTSettings& settings) {
  if (settings.Host.empty() || settings.User.empty()) return {};
  return ptzd::LoginOf("the broker", settings.User, settings.Password, ptzd::AskPassword());
}

/// Gateways that lost one broker do not come back in one moment.
milliseconds Scattered(milliseconds pause) {
  static std::minstd_rand random{std::random_device()()};
  return pause + milliseconds(std::uniform_int_distribution<milliseconds::rep>(0, pause.count() / 2)(random));
}

json Picked(const json& from, std::initializer_list<const char*> names) {
  auto picked = json::object();
  for (const auto* name : names) picked[name] = from.at(name);
  return picked;
}

/// What changes while it runs, without what changes with the time alone.
json StateOf(const json& camera) {
  auto state = Picked(camera, {"link", "connected", "error", "motion", "tour", "position", "holder"});
  if (!state["position"].is_null()) state["position"].erase("age_ms");
  if (!state["holder"].is_null()) state["holder"] = Picked(state["holder"], {"user", "face"});
  return state;
}

bool MustBeNew(const Order& order) {
  return std::holds_alternative<MoveBy>(order) || std::holds_alternative<ZoomBy>(order) ||
         std::holds_alternative<SavePreset>(order);
}

}  // namespace

MQTT::MQTT(Gate& gate)
    : Gate_(gate),
      Settings_(gate.Settings().MQTT),
      Login_(LoginFor(Settings_)),
      ReadyTimer_(gate.Context()),
      RetryTimer_(gate.Context()),
      TellTimer_(gate.Context()),
      Pause_(FirstPause) {
  Watch_ = Gate_.Watch([this](GateCamera& camera, Gate::Change change) {
    if (change == Gate::Change::Changed) return Changed(camera.Name());
    // It may come again at once, as another object; until that is known nothing is said of it.
    if (const auto offered = Offered_.find(camera.Name()); offered != Offered_.end())
      offered->second.Drive.reset();
    ReconcileSoon();
  });
  Reconcile();
  Begin();
}

MQTT::~MQTT() {
  if (Broker_ && IsConnected_) Publish(GatewayTopic(Settings_, "available"), Offline);
  StopDrives();
  if (Broker_ && IsConnected_) Broker_->End(TimeToPart);
}

void MQTT::Reload() {
  const auto& settings = Gate_.Settings().MQTT;
  ptzd::Login login;
  try {
    login = LoginFor(settings);
  } catch (const ptzd::InputError& error) {
    Gate_.Journal().Write(Journal::Level::Error,
                          "mqtt: nothing was taken over: " + std::string(error.what()));
    return;
  }
  if (settings == Settings_ && login == Login_) return Reconcile();
  const auto place = [](const MQTTSettings& s) {
    return std::tie(s.Host, s.Port, s.Name, s.Prefix, s.HomeAssistant);
  };
  if (place(settings) != place(Settings_)) WithdrawAll();
  Part();
  Settings_ = settings;
  Login_ = login;
  Pause_ = FirstPause;
  RetryTimer_.cancel();
  Reconcile();
  Begin();
}

Client MQTT::Who() const {
  return {.User = Settings_.ActsAs,
          .From = Address(),
          .Face = "mqtt",
          .Session = Session_,
          .Priority = Gate_.Users().PriorityOf(Settings_.ActsAs)};
}

std::string MQTT::Address() const { return Settings_.Host + ":" + std::to_string(Settings_.Port); }

// The connection.

void MQTT::Begin() {
  if (Settings_.Host.empty()) return;
  Broker_ = std::make_unique<Broker>(
      Gate_.Context(), Settings_, Login_, Broker::Will{GatewayTopic(Settings_, "available"), Offline},
      Gate_.Settings().Web.Body, std::exchange(Parted_, {}),
      Broker::Callbacks{.Connected = [this] { Connected(); },
                        .Came = [this](const Broker::Message& message) { Came(message); },
                        .Gone = [this](const std::string& why) { Lost(why); }});
  ReadyTimer_.expires_after(TimeToSettle);
  ReadyTimer_.async_wait([this, life = std::weak_ptr(Life_)](const auto& error) {
    if (error || !life.lock() || IsReady_) return;
    Lost(IsConnected_ ? "it does not give back what is published: it may forbid this gateway its topics"
                      : "it does not answer");
  });
}

void MQTT::Connected() {
  IsConnected_ = true;
  for (const auto* what : {"available", "cameras"}) Broker_->Subscribe(GatewayTopic(Settings_, what));
  if (!Settings_.HomeAssistant.empty()) {
    Broker_->Subscribe(Settings_.HomeAssistant + "/status");
    Broker_->Subscribe(DiscoveryFilter(Settings_));
  }
  for (const auto& [name, offered] : Offered_) Broker_->Subscribe(CameraTopic(Settings_, name, "owner"));
  Ask();
}

void MQTT::Lost(const std::string& why) {
  if (why != WhyLost_)
    Gate_.Journal().Warn("the broker " + Address() + ": " + why +
                         "; what it drove is stopped, and it is tried again");
  WhyLost_ = why;
  // Another gateway of the same name would be pushed out in turn, and again, and again.
  if (IsReady_ && steady_clock::now() - WhenReady_ > LongestPause) Pause_ = FirstPause;
  Part();
  RetryTimer_.expires_after(Scattered(Pause_));
  Pause_ = std::min(2 * Pause_, LongestPause);
  RetryTimer_.async_wait([this, life = std::weak_ptr(Life_)](const auto& error) {
    if (!error && life.lock() && !Broker_) Begin();
  });
}

/// The broker is told where it can be; then all is as if there had never been one.
void MQTT::Part() {
  if (Broker_ && IsConnected_) {
    Publish(GatewayTopic(Settings_, "available"), Offline);
    Parted_ = Broker_->Ended();
  }
  Broker_.reset();
  ReadyTimer_.cancel();
  IsConnected_ = IsReady_ = false;
  Gate_.Metrics().IsBrokerThere = false;
  Asked_ = 0;
  StopDrives();
  for (auto& [name, offered] : Offered_) offered = Offered();
  Discovery_.clear();
  Before_.clear();
  List_.clear();
  Untold_.clear();
}

void MQTT::StopDrives() {
  for (auto& [name, offered] : Offered_) offered.Drive.reset();
  for (const auto& camera : Gate_.Cameras()) camera->Forget(Session_);
}

void MQTT::Came(const Broker::Message& message) {
  const auto& [topic, payload, isRetained, isTooLong] = message;
  if (topic == GatewayTopic(Settings_, "available")) {
    if (isRetained) return;
    if (payload == Online && Asked_ > 0 && --Asked_ == 0) return Settle();
    // The will of an earlier connection of this gateway, which the broker lost only now.
    if (payload == Offline && IsReady_) Publish(topic, Online);
    return;
  }
  if (topic == GatewayTopic(Settings_, "cameras")) {
    if (IsReady_) return;
    const auto list = json::parse(payload, nullptr, false);
    for (const auto& name : list.is_array() ? list : json::array()) try {
        if (!name.is_string() || Offered_.contains(name)) continue;
        ptzd::CheckCameraName(name);
        if (!Before_.try_emplace(name).second) continue;
        Broker_->Subscribe(CameraTopic(Settings_, name, "owner"));
        Ask();
      } catch (const ptzd::InputError&) {
        continue;  // nothing of this gateway's
      }
    return;
  }
  if (!Settings_.HomeAssistant.empty() && topic == Settings_.HomeAssistant + "/status") {
    if (isRetained || payload != Online) return;
    for (const auto& [camera, discovery] : Discovery_)
      for (const auto& [config, text] : discovery) Publish(config, text);
    return;
  }
  if (const auto camera = CameraOfDiscovery(Settings_, topic); !camera.empty()) {
    if (isRetained && !IsReady_ && !payload.empty()) Discovery_[camera][topic] = payload;
    return;
  }
  const auto base = Settings_.Prefix + "/";
  if (!topic.starts_with(base)) return;
  const auto slash = topic.find('/', base.size());
  if (slash == std::string::npos) return;
  const auto name = topic.substr(base.size(), slash - base.size());
  const auto rest = topic.substr(slash + 1);
  if (const auto before = Before_.find(name); before != Before_.end() && rest == "owner")
    before->second = payload;
  const auto offered = Offered_.find(name);
  if (offered == Offered_.end()) return;
  if (rest == "owner") return OwnerCame(offered->first, payload);
  if (rest.starts_with(Set) && offered->second.IsOurs)
    Obey(offered->first, offered->second, rest.substr(Set.size()), message);
}

// Whose a camera is.

void MQTT::ReconcileSoon() {
  if (std::exchange(IsReconciling_, true)) return;
  boost::asio::post(Gate_.Context(), [this, life = std::weak_ptr(Life_)] {
    if (!life.lock()) return;
    IsReconciling_ = false;
    Reconcile();
  });
}

/// Cameras come and go with the settings, and with the rights of the user for whom this face acts.
void MQTT::Reconcile() {
  std::set<std::string> there;
  for (const auto& camera : Gate_.CamerasFor(Settings_.ActsAs)) there.insert(camera->Name());
  std::vector<std::string> gone;
  for (const auto& [name, offered] : Offered_)
    if (!there.contains(name)) gone.push_back(name);
  for (const auto& name : gone) {
    if (IsConnected_) Broker_->Unsubscribe(CameraTopic(Settings_, name, "owner"));
    if (Offered_[name].IsOurs) Withdraw(name);
    Offered_.erase(name);
  }
  bool isMore = false;
  for (const auto& name : there) {
    const auto [offered, isNew] = Offered_.try_emplace(name);
    isMore = isMore || isNew;
    if (isNew && IsConnected_) Broker_->Subscribe(CameraTopic(Settings_, name, "owner"));
    if (!isNew) {
      offered->second.WhenAbout = {};
      TellLater(name);
    }
  }
  if (isMore && IsConnected_) Ask();
}

void MQTT::Ask() {
  ++Asked_;
  Publish(GatewayTopic(Settings_, "available"), Online);
}

/// All that stood at the broker has come.
void MQTT::Settle() {
  Gate_.Metrics().IsBrokerThere = true;
  if (!std::exchange(IsReady_, true)) {
    ReadyTimer_.cancel();
    WhenReady_ = steady_clock::now();
    WhyLost_.clear();
    Gate_.Journal().Info("the broker " + Address() + " is there");
    if (!Settings_.HomeAssistant.empty()) Broker_->Unsubscribe(DiscoveryFilter(Settings_));
    // Cameras that left while the gateway was away.
    std::set<std::string> ids;
    for (const auto& [name, offered] : Offered_) ids.insert(DiscoveryID(name));
    for (const auto& [name, owner] : std::exchange(Before_, {})) {
      if (Offered_.contains(name)) continue;
      Broker_->Unsubscribe(CameraTopic(Settings_, name, "owner"));
      // Another gateway may have it by now.
      if (owner == Settings_.Name) Withdraw(name);
    }
    for (auto& [id, discovery] : Discovery_)
      if (!ids.contains(id))
        for (const auto& [topic, text] : std::exchange(discovery, {})) Publish(topic, "");
  }
  for (auto& [name, offered] : Offered_) {
    if (offered.Owner.empty())
      Claim(name);
    else if (offered.Owner == Settings_.Name && !offered.IsOurs)
      Own(name, offered);
  }
}

/// Of gateways that want a camera in one moment the last that the broker heard has it, and all hear that.
void MQTT::OwnerCame(const std::string& name, const std::string& owner) {
  auto& offered = Offered_.at(name);
  const bool isOther = owner != offered.Owner;
  offered.Owner = owner;
  if (owner.empty()) {
    if (IsReady_) Claim(name);
  } else if (owner == Settings_.Name) {
    if (IsReady_ && !offered.IsOurs) Own(name, offered);
  } else {
    if (isOther)
      Gate_.Journal().Warn("camera " + name + " belongs to the gateway " + ptzd::Printable(owner) +
                           " at the broker " + Address() +
                           "; what is wished of it there is left to that one");
    if (offered.IsOurs) Disown(name, offered);
  }
}

void MQTT::Claim(const std::string& name) { Publish(CameraTopic(Settings_, name, "owner"), Settings_.Name); }

void MQTT::Own(const std::string& name, Offered& offered) {
  offered.IsOurs = true;
  Broker_->Subscribe(CommandTopic(Settings_, name, "+"));
  Tell(name, offered);
  TellLater(name);
}

void MQTT::Disown(const std::string& name, Offered& offered) {
  Broker_->Unsubscribe(CommandTopic(Settings_, name, "+"));
  PublishDiscovery(name, {});
  const auto owner = offered.Owner;
  offered = Offered();
  offered.Owner = owner;
  TellLater(name);
}

/// Nothing of it stays at the broker.
void MQTT::Withdraw(const std::string& name) {
  if (!IsConnected_) return;
  Broker_->Unsubscribe(CommandTopic(Settings_, name, "+"));
  PublishDiscovery(name, {});
  for (const auto* what : {"state", "about", "available", "owner"})
    Publish(CameraTopic(Settings_, name, what), "");
  TellLater(name);
}

void MQTT::WithdrawAll() {
  if (!IsReady_) return;
  for (const auto& [name, offered] : Offered_) {
    Broker_->Unsubscribe(CameraTopic(Settings_, name, "owner"));
    if (offered.IsOurs) Withdraw(name);
  }
  Publish(GatewayTopic(Settings_, "cameras"), "");
}

// What is told.

void MQTT::Changed(const std::string& name) {
  const auto offered = Offered_.find(name);
  if (offered == Offered_.end() || !offered->second.IsOurs) return;
  if (steady_clock::now() - offered->second.WhenState < StatePace) return TellLater(name);
  Tell(name, offered->second);
}

void MQTT::TellLater(const std::string& name) {
  if (!IsReady_) return;
  Untold_.insert(name);
  if (std::exchange(IsTelling_, true)) return;
  TellTimer_.expires_after(StatePace);
  TellTimer_.async_wait([this, life = std::weak_ptr(Life_)](const auto& error) {
    if (error || !life.lock()) return;
    IsTelling_ = false;
    TellWhatChanged();
  });
}

void MQTT::TellWhatChanged() {
  if (!IsReady_) return;
  for (const auto& name : std::exchange(Untold_, {}))
    if (const auto offered = Offered_.find(name); offered != Offered_.end() && offered->second.IsOurs)
      Tell(name, offered->second);
  TellList();
}

void MQTT::Tell(const std::string& name, Offered& offered) {
  std::shared_ptr<GateCamera> camera;
  try {
    camera = Gate_.Find(name, Settings_.ActsAs);
  } catch (const Refusal&) {
    return;  // it is about to go
  }
  const auto now = steady_clock::now();
  const auto publish = [&](const char* what, std::string& before, std::string text) {
    if (text == before) return;
    before = std::move(text);
    Publish(CameraTopic(Settings_, name, what), before);
  };
  const auto whole = CameraJSON(Gate_, *camera, Who());
  offered.WhenState = now;
  publish("state", offered.State, TextOf(StateOf(whole)));
  if (now - offered.WhenAbout >= AboutPace) {
    offered.WhenAbout = now;
    auto about = Picked(whole, {"name", "driver", "can", "ranges", "tours", "preset_count"});
    about["presets"] = PresetsJSON(*camera);
    if (auto text = TextOf(about); text != offered.About) {
      publish("about", offered.About, std::move(text));
      PublishDiscovery(name, DiscoveryOf(Settings_, name, about));
    }
  } else {
    TellLater(name);
  }
  // Last, so that whoever waits for it finds all else. One that nobody connected yet is by its first wish.
  publish("available", offered.Available, camera->State().Link == ptzd::LinkHealth::Lost ? Offline : Online);
}

/// For this gateway when it comes back.
void MQTT::TellList() {
  auto list = json::array();
  for (const auto& [name, offered] : Offered_)
    if (offered.IsOurs) list.push_back(name);
  auto text = TextOf(list);
  if (text == List_) return;
  List_ = std::move(text);
  Publish(GatewayTopic(Settings_, "cameras"), List_);
}

void MQTT::PublishDiscovery(const std::string& name, const DiscoveryMessages& wanted) {
  auto& there = Discovery_[DiscoveryID(name)];
  for (const auto& [topic, text] : there)
    if (!wanted.contains(topic)) Publish(topic, "");
  for (const auto& [topic, text] : wanted)
    if (const auto known = there.find(topic); known == there.end() || known->second != text)
      Publish(topic, text);
  there = wanted;
}

void MQTT::Publish(const std::string& topic, const std::string& payload, bool isRetained) {
  if (Broker_) Broker_->Publish(topic, payload, isRetained);
}

void MQTT::Answer(const std::string& name, const std::string& word, const json& id, json answer) {
  answer["do"] = ptzd::Printable(word);
  if (!id.is_null()) answer["id"] = id;
  Publish(CameraTopic(Settings_, name, "result"), TextOf(answer), false);
}

// What is wished.

void MQTT::Obey(const std::string& name, Offered& offered, const std::string& word,
                const Broker::Message& message) {
  json id;
  try {
    if (message.IsTooLong)
      throw Refusal(Refusal::Why::Invalid,
                    "the message is longer than " + std::to_string(Gate_.Settings().Web.Body) + " bytes");
    constexpr Body nothing{"Nothing", {}, true};
    const auto* wishable = FindWishable(word);
    const bool isControl = word == "take" || word == "release";
    if (wishable == nullptr && !isControl && word != "drive") {
      std::vector<std::string> words{"drive", "take", "release"};
      for (const auto& known : Wishables()) words.emplace_back(known.Do);
      throw Refusal(Refusal::Why::Unknown,
                    "there is nothing called " + ptzd::Printable(word) + ptzd::DoYouMean(word, words));
    }
    const auto& takes = wishable != nullptr ? wishable->Takes : isControl ? nothing : DriveBody;
    auto body = ReadPayload(takes, message.Payload);
    id = TakeID(body);
    // How old it is nobody knows; a camera that moves because somebody subscribes is none to stand below.
    if (message.IsRetained)
      throw Refusal(Refusal::Why::Invalid, "a retained message is not obeyed: expected one without that");
    CheckMembers(takes.Members, body, "");
    if (!id.is_null() && wishable != nullptr && MustBeNew(wishable->Read(body)))
      DemandNew(offered, word + " " + message.Payload);
    const auto camera = Gate_.Find(name, Settings_.ActsAs);
    if (wishable != nullptr) return Do(*camera, offered, word, id, body);
    if (word == "drive") return Drive(*camera, offered, id, body);
    word == "take" ? camera->Take(Who()) : camera->Release(Who());
    Answer(name, word, id, {{"result", "sent"}, {"done", true}});
  } catch (const Refusal& refusal) {
    Answer(
        name, word, id,
        {{"result", "refused"}, {"done", false}, {"why", Word(refusal.Reason())}, {"text", refusal.what()}});
  }
}

void MQTT::Do(GateCamera& camera, Offered& offered, const std::string& word, const json& id,
              const json& body) {
  const auto order = FindWishable(word)->Read(body);
  camera.Do(
      Who(), order,
      [this, life = std::weak_ptr(Life_), name = camera.Name(), word, id](const ptzd::WishOutcome& outcome) {
        if (life.lock()) Answer(name, word, id, OutcomeJSON(outcome));
      });
  // From here on the wish is under way; a drive that goes on with it would be renewed against it.
  if (NeedsControl(order) || std::holds_alternative<Stop>(order)) offered.Drive.reset();
}

void MQTT::Drive(GateCamera& camera, Offered& offered, const json& id, const json& body) {
  if (offered.Drive && offered.Driven == body && offered.Drive->Renew()) return;
  const auto number = ++Drives_;
  auto drive = camera.Drive(Who(), SpeedsOf(body, camera), LeaseOf(body),
                            [this, life = std::weak_ptr(Life_), name = camera.Name(), id,
                             number](const ptzd::WishOutcome& outcome) {
                              if (!life.lock()) return;
                              if (const auto there = Offered_.find(name);
                                  there != Offered_.end() && there->second.DriveNumber == number)
                                there->second.Drive.reset();
                              Answer(name, "drive", id, OutcomeJSON(outcome));
                            });
  offered.Drive = std::move(drive);
  offered.Driven = body;
  offered.DriveNumber = number;
}

void MQTT::DemandNew(Offered& offered, const std::string& message) {
  const auto now = steady_clock::now();
  auto& once = offered.Once;
  while (!once.empty() && (once.size() > MostOnce || now - once.front().first > OnceTime)) once.pop_front();
  if (std::ranges::any_of(once, [&](const auto& known) { return known.second == message; }))
    throw Refusal(Refusal::Why::Invalid,
                  "the same message with the same id was there already: expected an id of its own");
  once.emplace_back(now, message);
}

}  // namespace ptzgate
