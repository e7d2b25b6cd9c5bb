#include "gateway/api/API.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "cameras/CameraFile.h"
#include "cameras/InputWords.h"
#include "gateway/api/Connection.h"
#include "gateway/api/Description.h"
#include "gateway/api/Listener.h"
#include "gateway/api/Live.h"
#include "gateway/api/Route.h"
#include "gateway/wishes/Body.h"
#include "gateway/wishes/CameraJSON.h"
#include "gateway/wishes/Wishes.h"

namespace ptzgate {

using nlohmann::json;

namespace {

constexpr std::string_view Base = "/api/v1";
constexpr std::chrono::seconds StreamPace(15);
constexpr std::chrono::milliseconds CatchUpPace(100);

constexpr Member LoginMembers[] = {
    {"user", Member::Types::Text, "", true},
    {"password", Member::Types::Text, "", true},
};
constexpr Body LoginBody{"Login", LoginMembers};
constexpr Member SaveMembers[] = {
    {"name", Member::Types::Text, "how it is called from then on"},
    {"token", Member::Types::Text, "of the preset that is overwritten; without it one that has no name"},
};
constexpr Body SaveBody{"SavePreset", SaveMembers};

Response JSONResponse(const json& body, int status = 200) {
  return {.Status = status,
          .Headers = {{"Content-Type", "application/json"}, {"Cache-Control", "no-store"}},
          .Body = TextOf(body)};
}

std::string EventText(const char* event, const std::string& data) {
  return std::string("event: ") + event + "\ndata: " + data + "\n\n";
}

/// The same as long as a list of cameras shows the same of it.
std::string HealthOf(const GateCamera& camera) {
  const auto state = camera.State();
  const auto* holder = camera.HeldBy();
  return TextOf({Name(state.Link), state.Connected, Name(state.Motion), state.ErrorNumber, state.ErrorText,
                 holder == nullptr ? 0 : holder->Client.Session, camera.Tour()});
}

/// What stands for the parts of a path in a pattern such as "/cameras/{camera}"; nothing where it is another
/// path.
std::optional<std::map<std::string, std::string>> Match(std::string_view pattern,
                                                        const std::vector<std::string>& segments) {
  std::map<std::string, std::string> parts;
  std::size_t at = 0;
  while (!pattern.empty()) {
    pattern.remove_prefix(1);  // the slash
    const auto word = pattern.substr(0, pattern.find('/'));
    pattern.remove_prefix(word.size());
    if (at == segments.size()) return std::nullopt;
    if (word.starts_with('{') && !segments[at].empty())
      parts[std::string(word.substr(1, word.size() - 2))] = segments[at];
    else if (word != segments[at])
      return std::nullopt;
    ++at;
  }
  if (at != segments.size()) return std::nullopt;
  return parts;
}

}  // namespace

struct API::Asked {
  std::shared_ptr<ptzgate::Call> Call;
  const Client& Who;
  const Route& As;
  std::map<std::string, std::string> Parts;
  std::shared_ptr<GateCamera> Camera;  ///< null where the path names none
  json Content;
};

/// A client that reads events.
struct API::Reader final : Listener {
  using Listener::Listener;

  std::size_t Backlog() const override { return To->Backlog(); }
  void TellCamera(GateCamera&, const std::string& text) override { To->Send(EventText("camera", text)); }
  void TellGone(const std::string& camera) override {
    To->Send(EventText("gone", TextOf(json{{"name", camera}})));
  }

  /// Nothing of the others; of all where none is named.
  void FollowOnly(const std::set<std::string>& cameras) {
    Follow(cameras, cameras.empty() ? Others::All : Others::Nothing);
  }

  std::shared_ptr<Stream> To;
};

std::span<const Route> API::Routes() {
  static const std::vector<Route> routes = [] {
    std::vector<Route> all{
        {"GET", "/cameras", "The cameras that you may see", "Cameras", {}, &API::GetCameras},
        {"GET",
         "/cameras/{camera}",
         "A camera, its state, and what it can do",
         "Camera",
         {},
         &API::GetCamera},
        {"GET", "/cameras/{camera}/presets", "Its presets", "Presets", {}, &API::GetPresets},
        {"POST", "/cameras/{camera}/presets", "Save where it is as a preset", "Outcome", SaveBody,
         &API::SavePreset},
        {"POST", "/cameras/{camera}/presets/{preset}/go", "Go to a preset", "Outcome", {}, &API::GoPreset},
        {"DELETE",
         "/cameras/{camera}/presets/{preset}",
         "Take a preset's name away",
         "Outcome",
         {},
         &API::ForgetPreset},
        {"POST", "/cameras/{camera}/drive",
         "Drive at a speed. Answered when the drive is over: it ends with its lease, and with the connection",
         "Outcome", DriveBody, &API::BeginDrive},
        {"PUT",
         "/cameras/{camera}/drive",
         "Have your drive go on for its lease from now",
         "Nothing",
         {},
         &API::RenewDrive},
        {"GET", "/cameras/{camera}/control", "Who holds it", "Control", {}, &API::GetControl},
        {"PUT",
         "/cameras/{camera}/control",
         "Take it, from others of your priority or less",
         "Control",
         {},
         &API::TakeControl},
        {"DELETE", "/cameras/{camera}/control", "Give it back", "Control", {}, &API::ReleaseControl},
        {"DELETE", "/cameras/{camera}/tour", "End its tour, and stop it", "Outcome", {}, &API::EndTour},
        {"GET",
         "/cameras/{camera}/seen",
         "Its last exchanges, and where it was in the last minute",
         "Seen",
         {},
         &API::GetSeen},
        {"GET",
         "/cameras/{camera}/connection",
         "How it is reached, and its driver's options",
         "ConnectionOptions",
         {},
         &API::GetConnection},
        {"PUT", "/cameras/{camera}/connection", "Change that, in the camera file, and connect it anew",
         "ConnectionOptions", ConnectionBody, &API::ChangeConnection},
        {"GET", "/me", "Who you are", "Me", {}, &API::GetMe},
        {"DELETE", "/login", "End your session", "Nothing", {}, &API::LogOut},
        {"GET",
         "/events",
         "Changes of cameras as server-sent events: camera, gone",
         "Events",
         {},
         &API::BeginEvents},
        {"GET",
         "/socket",
         "A WebSocket: changes of cameras, drives and wishes",
         "Socket",
         {},
         &API::BeginSocket},
    };
    static std::vector<std::string> paths;
    const auto ways = Wishables();
    paths.reserve(ways.size());
    for (const auto& wishable : ways) {
      // What has a way of its own above.
      if (wishable.Do == "go" || wishable.Do == "save" || wishable.Do == "forget" ||
          wishable.Do == "end_tour")
        continue;
      paths.push_back("/cameras/{camera}/" + std::string(wishable.Do));
      all.push_back({"POST", paths.back(), AboutWish(wishable.Do), "Outcome", wishable.Takes, &API::DoWish});
    }
    return all;
  }();
  return routes;
}

json API::Description() { return OpenAPI(Routes(), LoginBody, std::string(Base)); }

API::API(Gate& gate, HTTPAccess& access)
    : Gate_(gate), Access_(access), KeepTimer_(gate.Context()), CatchUpTimer_(gate.Context()) {
  Watch_ = Gate_.Watch([this](GateCamera& camera, Gate::Change change) { TellStreams(camera, change); });
  Access_.WhenKnownChanges([this] { CheckStreams(); });
  KeepStreams();
}

API::~API() = default;

bool API::Has(const std::string& path) {
  return path == "/openapi.json" ||
         (path.starts_with(Base) && (path.size() == Base.size() || path[Base.size()] == '/'));
}

void API::Handle(const std::shared_ptr<Call>& call) {
  const auto& request = call->Asked();
  if (request.Path == "/openapi.json") return call->Answer(JSONResponse(Description()));
  auto segments = request.Segments();
  segments.erase(segments.begin(), segments.begin() + std::min<std::ptrdiff_t>(2, std::ssize(segments)));
  const bool isLogin = segments == std::vector<std::string>{"login"};
  if (request.Method == "POST" && isLogin) {
    try {
      const auto body = ReadBody(LoginBody, request.Body);
      return Access_.LogIn(call, body["user"], body["password"], {.Status = 204});
    } catch (const Refusal& refusal) {
      return call->Answer(ProblemOf(refusal));
    }
  }
  std::string allowed = isLogin ? "POST" : "";
  for (const auto& route : Routes()) {
    auto parts = Match(route.Path, segments);
    if (!parts) continue;
    if (route.Method != request.Method) {
      allowed.append(allowed.empty() ? "" : ", ").append(route.Method);
      continue;
    }
    // The page says for itself what it is; anybody may, since it changes no rights.
    const auto face = request.Header("X-PTZ-Console") != nullptr || request.Parameter("console") != nullptr
                          ? "console"
                          : "api";
    return Access_.Identify(
        call, face,
        [this, &route, call, life = std::weak_ptr(Life_), parts = std::move(*parts)](const Client& client) {
          if (life.lock()) Serve(route, call, client, parts);
        });
  }
  if (allowed.empty()) return call->Answer(Problem(404, "there is nothing at " + request.Path));
  call->Answer(MethodProblem(request, allowed));
}

void API::Serve(const Route& route, const std::shared_ptr<Call>& call, const Client& client,
                std::map<std::string, std::string> parts) {
  try {
    Asked asked{call, client, route, std::move(parts), nullptr, {}};
    if (const auto name = asked.Parts.find("camera"); name != asked.Parts.end())
      asked.Camera = Gate_.Find(name->second, client.User);
    if (route.Takes)
      asked.Content = ReadBody(*route.Takes, call->Asked().Body);
    else if (!call->Asked().Body.empty())
      throw Refusal(Refusal::Why::Invalid, "no body is wanted here");
    (this->*route.Handle)(asked);
  } catch (const Refusal& refusal) {
    call->Answer(ProblemOf(refusal));
  }
}

// What is asked for.

void API::GetCameras(const Asked& asked) {
  Listing_.Make(asked.Who, asked.Call, [call = asked.Call](const auto& cameras) {
    auto response = JSONResponse({});
    response.Body = "{\"cameras\":[" + Joined(cameras, ",") + "]}";
    call->Answer(std::move(response));
  });
}

void API::GetCamera(const Asked& asked) {
  asked.Call->Answer(JSONResponse(CameraJSON(Gate_, *asked.Camera, asked.Who)));
}

void API::GetPresets(const Asked& asked) {
  asked.Call->Answer(JSONResponse({{"presets", PresetsJSON(*asked.Camera)}}));
}

void API::GetControl(const Asked& asked) {
  asked.Call->Answer(JSONResponse({{"holder", HolderJSON(*asked.Camera, asked.Who)}}));
}

void API::GetSeen(const Asked& asked) { asked.Call->Answer(JSONResponse(SeenJSON(*asked.Camera))); }

void API::GetMe(const Asked& asked) { asked.Call->Answer(JSONResponse(ClientJSON(Gate_, asked.Who))); }

void API::GetConnection(const Asked& asked) {
  asked.Camera->DemandAdministrator(asked.Who, "see the connection");
  asked.Call->Answer(JSONResponse(ConnectionJSON(*asked.Camera)));
}

// What is wished.

void API::ChangeConnection(const Asked& asked) {
  asked.Camera->DemandAdministrator(asked.Who, "change the connection");
  const auto changed = Reconnected(*asked.Camera, asked.Content);
  const auto name = asked.Camera->Name();
  const auto audit = [&](const char* outcome, const std::string& text) {
    Gate_.Journal().Audit(asked.Who, name, "change the connection", outcome, text);
  };
  try {
    ptzd::StoreCamera(changed.File, changed, true);
    Gate_.Reload(Gate_.Settings());
  } catch (const ptzd::InputError& error) {
    audit("failed", error.what());
    return asked.Call->Answer(Problem(500, error.what()));
  }
  audit("done", "");
  asked.Call->Answer(JSONResponse(ConnectionJSON(*Gate_.Find(name, asked.Who.User))));
}

void API::Carry(const Asked& asked, const Order& order) {
  const auto* wait = asked.Call->Asked().Parameter("wait");
  if (wait != nullptr && *wait != "sent" && *wait != "done")
    throw Refusal(Refusal::Why::Invalid, "wait: expected sent or done");
  const auto answer = [call = asked.Call](const ptzd::WishOutcome& outcome) {
    call->Answer(AnswerOf(outcome, false));
  };
  if (wait != nullptr && *wait == "sent")
    asked.Camera->Do(asked.Who, order, {}, answer);
  else
    asked.Camera->Do(asked.Who, order, answer);
}

void API::DoWish(const Asked& asked) {
  const auto word = asked.As.Path.substr(asked.As.Path.rfind('/') + 1);
  Carry(asked, FindWishable(word)->Read(asked.Content));
}

void API::GoPreset(const Asked& asked) { Carry(asked, GoToPreset{asked.Parts.at("preset")}); }

void API::ForgetPreset(const Asked& asked) { Carry(asked, ptzgate::ForgetPreset{asked.Parts.at("preset")}); }

void API::SavePreset(const Asked& asked) {
  Carry(asked, ptzgate::SavePreset{asked.Content.value("token", ""), asked.Content.value("name", "")});
}

void API::EndTour(const Asked& asked) { Carry(asked, ptzgate::EndTour()); }

void API::BeginDrive(const Asked& asked) {
  const auto held = std::make_shared<std::unique_ptr<HeldDrive>>();
  const std::pair key{asked.Who.Session, asked.Camera->Name()};
  const auto call = asked.Call;
  *held = asked.Camera->Drive(asked.Who, SpeedsOf(asked.Content, *asked.Camera), LeaseOf(asked.Content),
                              [call, held](const ptzd::WishOutcome& outcome) {
                                held->reset();
                                call->Answer(AnswerOf(outcome, true));
                              });
  std::erase_if(Drives_, [](const auto& drive) { return drive.second.expired(); });
  Drives_[key] = held;
  // Whoever is gone holds nothing.
  call->WhenGone([held, camera = std::weak_ptr(asked.Camera), session = asked.Who.Session] {
    held->reset();
    if (const auto there = camera.lock()) there->Forget(session);
  });
}

void API::RenewDrive(const Asked& asked) {
  const auto drive = Drives_.find({asked.Who.Session, asked.Camera->Name()});
  const auto held = drive == Drives_.end() ? nullptr : drive->second.lock();
  if (!held || !*held)
    throw Refusal(Refusal::Why::Invalid, "camera " + asked.Camera->Name() + " is not driven by you");
  if (!(*held)->Renew())
    throw Refusal(Refusal::Why::Held, "camera " + asked.Camera->Name() + " is not yours any more");
  asked.Call->Answer({.Status = 204});
}

void API::TakeControl(const Asked& asked) {
  asked.Camera->Take(asked.Who);
  GetControl(asked);
}

void API::ReleaseControl(const Asked& asked) {
  asked.Camera->Release(asked.Who);
  GetControl(asked);
}

void API::LogOut(const Asked& asked) { Access_.LogOut(asked.Call, {.Status = 204}); }

// What is told.

void API::BeginEvents(const Asked& asked) {
  auto reader = std::make_shared<Reader>(asked.Who);
  std::set<std::string> only;
  for (const auto& [name, value] : asked.Call->Asked().Query)
    if (name == "camera") only.insert(Gate_.Find(value, asked.Who.User)->Name());
  reader->FollowOnly(only);
  reader->To = asked.Call->BeginStream(
      {.Headers = {{"Content-Type", "text/event-stream"}, {"Cache-Control", "no-store"}}});
  Readers_.insert(reader);
  reader->To->WhenGone([this, life = std::weak_ptr(Life_), weak = std::weak_ptr(reader)] {
    if (life.lock()) Readers_.erase(weak.lock());
  });
  Listing_.Make(
      asked.Who, reader,
      [&reader = *reader](const auto& cameras) {
        std::string first;
        for (const auto& camera : cameras) first += EventText("camera", camera);
        reader.To->Send(first);
        reader.Greeted();
      },
      only);
}

void API::BeginSocket(const Asked& asked) {
  if (!asked.Call->WantsWebSocket()) {
    auto response = Problem(426, "a WebSocket is wanted here");
    response.Headers.emplace_back("Upgrade", "websocket");
    return asked.Call->Answer(std::move(response));
  }
  auto client = asked.Who;
  client.Session = NextSession();
  const auto socket = asked.Call->AcceptWebSocket();
  if (!socket) return;
  const auto live = std::make_shared<Live>(Gate_, std::move(client), socket);
  Sockets_.insert(live);
  live->Begin(Listing_, [this, life = std::weak_ptr(Life_), weak = std::weak_ptr(live)] {
    if (life.lock()) Sockets_.erase(weak.lock());
  });
}

template <typename Work>
void API::ForEachListener(const Work& work) {
  // One of them may go meanwhile.
  std::vector<std::shared_ptr<Listener>> all(Sockets_.begin(), Sockets_.end());
  all.insert(all.end(), Readers_.begin(), Readers_.end());
  for (const auto& listener : all) work(*listener);
}

void API::TellStreams(GateCamera& camera, Gate::Change change) {
  CameraTexts texts(Gate_, camera);
  bool isBehind = false, isHealth = true;
  if (change == Gate::Change::Removed) {
    Healths_.erase(camera.Name());
  } else {
    auto health = HealthOf(camera);
    auto& known = Healths_[camera.Name()];
    isHealth = known != health;
    known = std::move(health);
  }
  ForEachListener([&](Listener& listener) {
    listener.Tell(Gate_, camera, change, isHealth, texts);
    isBehind = isBehind || listener.IsBehind();
  });
  if (isBehind) CatchUpSoon();
}

/// Who was behind may be told of all that he missed when nothing changes any more.
void API::CatchUpSoon() {
  if (std::exchange(IsCatchingUp_, true)) return;
  CatchUpTimer_.expires_after(CatchUpPace);
  CatchUpTimer_.async_wait([this](const boost::system::error_code& error) {
    if (error) return;
    IsCatchingUp_ = false;
    bool isBehind = false;
    ForEachListener([&](Listener& listener) {
      listener.CatchUp(Gate_);
      isBehind = isBehind || listener.IsBehind();
    });
    if (isBehind) CatchUpSoon();
  });
}

void API::CheckStreams() {
  std::erase_if(Sockets_, [this](const auto& live) {
    if (Access_.StillKnows(live->Who())) return false;
    live->End();
    return true;
  });
  std::erase_if(Readers_, [this](const auto& reader) {
    if (Access_.StillKnows(reader->Who())) return false;
    reader->To->End();
    return true;
  });
}

/// A reader that has gone without a word is seen when it is written to.
void API::KeepStreams() {
  KeepTimer_.expires_after(StreamPace);
  KeepTimer_.async_wait([this](const boost::system::error_code& error) {
    if (error) return;
    for (const auto& reader : std::vector(Readers_.begin(), Readers_.end())) reader->To->Send(":\n\n");
    KeepStreams();
  });
}

}  // namespace ptzgate
