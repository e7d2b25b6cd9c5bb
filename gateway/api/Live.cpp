#include "gateway/api/Live.h"

#include <nlohmann/json.hpp>

#include <utility>

#include "gateway/api/API.h"
#include "gateway/wishes/Body.h"
#include "gateway/wishes/CameraJSON.h"
#include "gateway/wishes/Wishes.h"

namespace ptzgate {

using nlohmann::json;

namespace {

constexpr std::uint16_t PolicyViolation = 1008;

constexpr std::string_view OfOthersWords[] = {"all", "health"};
constexpr Member FollowMembers[] = {{"camera", Member::Types::TextOrNull},
                                    {"others", Member::Types::Text, {}, false, OfOthersWords}};

json ProblemJSON(const Response& problem) { return json::parse(problem.Body); }

}  // namespace

Live::Live(Gate& gate, Client client, std::shared_ptr<WebSocket> socket)
    : Listener(std::move(client)), Gate_(gate), Socket_(std::move(socket)) {}

Live::~Live() { Leave(); }

void Live::Begin(CameraListing& listing, std::function<void()> gone) {
  Socket_->WhenMessage([this](const std::string& text) { Read(text); });
  Socket_->WhenGone([self = shared_from_this(), gone = std::move(gone)] {
    self->Leave();
    gone();
  });
  listing.Make(Client_, weak_from_this(), [this](const auto& cameras) {
    Socket_->Send("{\"hello\":{\"cameras\":[" + Joined(cameras, ",") +
                  "],\"me\":" + TextOf(ClientJSON(Gate_, Client_)) + "}}");
    Greeted();
  });
}

/// Its cameras stop, and are free for others.
void Live::Leave() {
  Drives_.clear();
  for (const auto& camera : Gate_.Cameras()) camera->Forget(Client_.Session);
}

void Live::End() {
  Leave();
  Socket_->Close(PolicyViolation, "who you are has changed");
}

void Live::Send(const json& message) { Socket_->Send(TextOf(message)); }

void Live::TellCamera(GateCamera& camera, const std::string& text) {
  Socket_->Send("{\"camera\":" + text + "}");
  if (Follows(camera.Name())) Send({{"seen", SeenJSON(camera)}});
}

void Live::TellGone(const std::string& camera) {
  Drives_.erase(camera);
  Send({{"gone", camera}});
}

void Live::Read(const std::string& text) {
  json message, id;
  try {
    message = ReadObject(text);
    id = message.value("id", json());
    if (auto answer = Obey(message); !answer.is_null()) {
      answer["id"] = id;
      Send(answer);
    }
  } catch (const Refusal& refusal) {
    Send({{"id", id}, {"problem", ProblemJSON(ProblemOf(refusal))}});
  }
}

/// What is answered at once; null where the answer comes later, or not at all.
json Live::Obey(const json& message) {
  const auto text = [&](const char* name) {
    const auto value = message.find(name);
    if (value == message.end() || !value->is_string())
      throw Refusal(Refusal::Why::Invalid, std::string(name) + ": expected a text");
    return value->get<std::string>();
  };
  const auto word = text("do");
  auto body = message;
  const auto id = message.value("id", json());
  for (const auto* name : {"id", "do"}) body.erase(name);
  // A page cannot see the server's pings; by this it finds out whether it is heard.
  if (word == "ping") {
    CheckMembers({}, body, "");
    return {{"done", true}};
  }
  if (word == "follow") {
    CheckMembers(FollowMembers, body, "");
    ReadFollow(body);
    return {{"done", true}};
  }
  const auto camera = Gate_.Find(text("camera"), Client_.User);
  body.erase("camera");

  if (word == "drive") {
    CheckMembers(DriveBody.Members, body, "");
    Drive(camera, id, body);
    return {{"taken", true}};
  }
  const bool isBare = word == "renew" || word == "presets" || word == "take" || word == "release";
  if (isBare) CheckMembers({}, body, "");
  if (word == "renew") {
    const auto drive = Drives_.find(camera->Name());
    if (drive == Drives_.end())
      throw Refusal(Refusal::Why::Invalid, "camera " + camera->Name() + " is not driven by you");
    if (!drive->second->Renew()) {
      Drives_.erase(drive);
      throw Refusal(Refusal::Why::Held, "camera " + camera->Name() + " is not yours any more");
    }
    return {{"renewed", true}};
  }
  if (word == "presets") return {{"presets", PresetsJSON(*camera)}};
  if (word == "take" || word == "release") {
    word == "take" ? camera->Take(Client_) : camera->Release(Client_);
    return {{"holder", HolderJSON(*camera, Client_)}};
  }
  const auto* wishable = FindWishable(word);
  if (wishable == nullptr) throw Refusal(Refusal::Why::Invalid, "do: there is nothing called " + word);
  CheckMembers(wishable->Takes.Members, body, "");
  const auto order = wishable->Read(body);
  camera->Do(Client_, order, [weak = weak_from_this(), id](const ptzd::WishOutcome& outcome) {
    if (const auto self = weak.lock()) self->Send({{"id", id}, {"outcome", OutcomeJSON(outcome)}});
  });
  // From here on the wish is under way; a drive that goes on with it would be renewed against it.
  if (NeedsControl(order) || std::holds_alternative<Stop>(order)) Drives_.erase(camera->Name());
  return nullptr;
}

void Live::ReadFollow(const json& message) {
  const auto others = message.value("others", "all");
  const auto name = message.value("camera", json());
  const auto camera = name.is_string() ? Gate_.Find(name, Client_.User) : nullptr;
  const bool hasMissed = OfOthers() == Others::Health;
  std::set<std::string> followed;
  if (camera) followed.insert(camera->Name());
  Follow(std::move(followed), others == "all" ? Others::All : Others::Health);
  if (hasMissed && others == "all") {
    for (const auto& each : Gate_.CamerasFor(Client_.User)) TellLater(each->Name());
    CatchUp(Gate_);
  }
  if (camera && hasMissed)
    TellCamera(*camera, CameraTexts(Gate_, *camera).For(Client_));
  else if (camera)
    Send({{"seen", SeenJSON(*camera)}});
}

void Live::Drive(const std::shared_ptr<GateCamera>& camera, const json& id, const json& body) {
  auto drive = camera->Drive(Client_, SpeedsOf(body, *camera), LeaseOf(body),
                             [weak = weak_from_this(), id](const ptzd::WishOutcome& outcome) {
                               if (const auto self = weak.lock())
                                 self->Send({{"id", id}, {"outcome", OutcomeJSON(outcome)}});
                             });
  Drives_[camera->Name()] = std::move(drive);
}

}  // namespace ptzgate
