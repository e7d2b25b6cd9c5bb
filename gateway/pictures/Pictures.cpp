#include "gateway/pictures/Pictures.h"

#include <boost/asio/post.hpp>

#include <algorithm>
#include <atomic>
#include <optional>
#include <thread>
#include <utility>

#include "cameras/InputWords.h"
#include "gateway/core/Refusal.h"

namespace ptzgate {

using std::chrono::steady_clock;

namespace {

constexpr std::size_t FetchingAtOnce = 8;
/// Who asks for a snapshot meanwhile gets the same.
constexpr std::chrono::milliseconds SnapshotLife(500);
constexpr std::size_t MostFilms = 64;
/// A viewer who has so much to read yet is left out of a picture.
constexpr std::size_t MuchToSend = 512 * 1024;
constexpr char Boundary[] = "ptzgate-picture";

PictureRequest RequestOf(const std::string& camera, const std::string& url, const PictureSettings& settings) {
  PictureRequest request{.URL = url};
  if (!settings.User.empty()) {
    const auto login = ptzd::LoginOf(camera, settings.User, settings.Password, {});
    request.User = login.User;
    request.Password = login.Password;
  }
  return request;
}

Response PictureResponse(const FetchedPicture& picture) {
  if (!picture.Problem.empty()) return Problem(502, "there is no picture: " + picture.Problem);
  return {.Headers = {{"Content-Type", picture.Type}, {"Cache-Control", "no-store"}}, .Body = picture.Bytes};
}

}  // namespace

struct Pictures::Snapshot {
  FetchedPicture Last;
  std::optional<steady_clock::time_point> When;
  std::vector<std::shared_ptr<Call>> Waiting;
  bool IsFetching = false;
};

struct Pictures::Film {
  template <typename To>
  using Viewers = std::vector<std::pair<Client, std::shared_ptr<To>>>;

  const std::string URL;
  std::shared_ptr<std::atomic<bool>> IsOver = std::make_shared<std::atomic<bool>>(false);
  Viewers<Call> Waiting;  ///< for the first picture
  Viewers<Stream> Watching;

  explicit Film(std::string url) : URL(std::move(url)) {}
  Film(const Film&) = delete;
  Film& operator=(const Film&) = delete;
  ~Film() { *IsOver = true; }
};

Pictures::Pictures(Gate& gate, HTTPAccess& access)
    : Gate_(gate), Access_(access), Fetching_(std::make_unique<boost::asio::thread_pool>(FetchingAtOnce)) {
  Access_.WhenKnownChanges([this] { CheckFilms(); });
}

Pictures::~Pictures() {
  for (const auto& [camera, film] : Films_) *film->IsOver = true;
  Fetching_->stop();
  // Cameras are stopped after this, which must not wait for a picture.
  std::thread([fetching = std::move(Fetching_)] { fetching->join(); }).detach();
}

bool Pictures::Has(const std::string& path) {
  const bool isOfCamera = path.starts_with("/api/v1/cameras/") && std::ranges::count(path, '/') == 5;
  return isOfCamera && (path.ends_with("/snapshot") || path.ends_with("/film"));
}

void Pictures::Handle(const std::shared_ptr<Call>& call) {
  if (call->Asked().Method != "GET") return call->Answer(MethodProblem(call->Asked(), "GET"));
  Access_.Identify(call, "api", [this, call](const Client& client) {
    try {
      Serve(call, client);
    } catch (const Refusal& refusal) {
      call->Answer(Problem(refusal.Reason() == Refusal::Why::Exhausted ? 503 : 404, refusal.what()));
    } catch (const ptzd::InputError& error) {
      Gate_.Journal().Warn(error.what());
      call->Answer(Problem(502, "there is no picture: the gateway has no password for it"));
    }
  });
}

void Pictures::Serve(const std::shared_ptr<Call>& call, const Client& client) {
  const auto segments = call->Asked().Segments();
  if (segments.size() != 5) throw Refusal(Refusal::Why::Unknown, "there is nothing at " + call->Asked().Path);
  const auto camera = Gate_.Find(segments[3], client.User);
  const auto& pictures = Gate_.Settings().Pictures;
  const auto settings = pictures.find(camera->Name());
  const bool isFilm = segments[4] == "film";
  if (settings == pictures.end() || (isFilm ? settings->second.MJPEG : settings->second.Snapshot).empty())
    throw Refusal(Refusal::Why::Unknown, "camera " + camera->Name() + " has no " + segments[4]);
  if (isFilm)
    ServeFilm(call, client, camera->Name(), settings->second);
  else
    ServeSnapshot(call, camera->Name(), settings->second);
}

void Pictures::ServeSnapshot(const std::shared_ptr<Call>& call, const std::string& camera,
                             const PictureSettings& settings) {
  auto& slot = Snapshots_[camera];
  if (!slot) slot = std::make_shared<Snapshot>();
  const auto snapshot = slot;
  if (snapshot->When && steady_clock::now() - *snapshot->When < SnapshotLife)
    return call->Answer(PictureResponse(snapshot->Last));
  auto request = RequestOf(camera, settings.Snapshot, settings);
  snapshot->Waiting.push_back(call);
  if (std::exchange(snapshot->IsFetching, true)) return;
  boost::asio::post(*Fetching_, [request = std::move(request), snapshot, &context = Gate_.Context()] {
    auto picture = FetchPicture(request);
    boost::asio::post(context, [picture = std::move(picture), snapshot]() mutable {
      snapshot->Last = std::move(picture);
      snapshot->When = steady_clock::now();
      snapshot->IsFetching = false;
      for (const auto& waiting : std::exchange(snapshot->Waiting, {}))
        waiting->Answer(PictureResponse(snapshot->Last));
    });
  });
}

void Pictures::ServeFilm(const std::shared_ptr<Call>& call, const Client& client, const std::string& camera,
                         const PictureSettings& settings) {
  if (const auto known = Films_.find(camera); known != Films_.end()) {
    known->second->Waiting.emplace_back(client, call);
    return;
  }
  if (Films_.size() >= MostFilms)
    throw Refusal(Refusal::Why::Exhausted, "as many films are shown as may be: " + std::to_string(MostFilms));
  auto request = RequestOf(camera, settings.MJPEG, settings);
  const auto film = std::make_shared<Film>(settings.MJPEG);
  film->Waiting.emplace_back(client, call);
  Films_[camera] = film;

  const auto show = [this, life = std::weak_ptr(Life_), camera, weak = std::weak_ptr(film)](
                        const std::string& type, const std::string& bytes) {
    const auto shown = weak.lock();
    if (!life.lock() || !shown) return;
    for (const auto& [who, waiting] : std::exchange(shown->Waiting, {}))
      shown->Watching.emplace_back(
          who,
          waiting->BeginStream(
              {.Headers = {{"Content-Type", std::string("multipart/x-mixed-replace; boundary=") + Boundary},
                           {"Cache-Control", "no-store"}}}));
    std::erase_if(shown->Watching, [](const auto& viewer) { return viewer.second->IsOver(); });
    if (shown->Watching.empty()) {
      *shown->IsOver = true;
      Films_.erase(camera);
      return;
    }
    const auto part = std::string("--") + Boundary + "\r\nContent-Type: " + type +
                      "\r\nContent-Length: " + std::to_string(bytes.size()) + "\r\n\r\n" + bytes + "\r\n";
    for (const auto& [who, viewer] : shown->Watching)
      if (viewer->Backlog() < MuchToSend) viewer->Send(part);
  };
  const auto end = [this, life = std::weak_ptr(Life_), camera,
                    weak = std::weak_ptr(film)](const std::string& why) {
    const auto shown = weak.lock();
    if (!life.lock() || !shown) return;
    for (const auto& [who, waiting] : shown->Waiting)
      waiting->Answer(Problem(502, "there is no film: " + why));
    for (const auto& [who, viewer] : shown->Watching) viewer->End();
    if (const auto known = Films_.find(camera); known != Films_.end() && known->second == shown)
      Films_.erase(known);
  };
  // A film goes on as long as somebody looks; it must not keep others from being fetched.
  std::thread([request = std::move(request), isOver = film->IsOver, show, end, &context = Gate_.Context()] {
    const auto why = FetchFilm(request, *isOver, [&](std::string type, std::string bytes) {
      boost::asio::post(context,
                        [show, type = std::move(type), bytes = std::move(bytes)] { show(type, bytes); });
    });
    boost::asio::post(context, [end, why] { end(why); });
  }).detach();
}

void Pictures::CheckFilms() {
  const auto& pictures = Gate_.Settings().Pictures;
  std::erase_if(Films_, [&](const auto& film) {
    const auto& camera = film.first;
    const auto& shown = film.second;
    const auto settings = pictures.find(camera);
    const bool isSame = settings != pictures.end() && settings->second.MJPEG == shown->URL;
    const auto mayNot = [&](const auto& viewer) {
      return !isSame || !Access_.StillKnows(viewer.first) ||
             Gate_.Users().RoleOf(viewer.first.User, camera) == Role::None;
    };
    std::erase_if(shown->Waiting, [&](const auto& viewer) {
      if (!mayNot(viewer)) return false;
      viewer.second->Answer(Problem(503, "the film, or who you are, has changed meanwhile"));
      return true;
    });
    std::erase_if(shown->Watching, [&](const auto& viewer) {
      if (!mayNot(viewer)) return false;
      viewer.second->End();
      return true;
    });
    return shown->Waiting.empty() && shown->Watching.empty();
  });
}

}  // namespace ptzgate
