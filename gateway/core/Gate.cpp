#include "gateway/core/Gate.h"

#include <algorithm>
#include <utility>

#include "cameras/CameraFile.h"
#include "cameras/CameraList.h"
#include "cameras/InputWords.h"

namespace ptzgate {

using namespace ptzd;
using std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

namespace {

/// Faces are told of changes that come more quickly together.
constexpr Milliseconds ToldTogether(40);

std::vector<NamedCamera> CamerasOf(const GateSettings& settings) {
  return CameraList(settings.CameraFile).All();
}

/// What those who are slow or away may do; a gateway has nobody to ask for a password.
CameraSettings Reachable(const NamedCamera& camera, SerialLines& lines) {
  return SettingsOf(camera, AskPassword(), lines);
}

}  // namespace

Gate::Gate(boost::asio::io_context& context, GateSettings settings, const std::string& stateFolder,
           ptzgate::Journal& journal)
    : Context_(context),
      Journal_(journal),
      Names_(stateFolder),
      Places_(stateFolder),
      Marks_(stateFolder),
      Logins_(context, [this]() -> const ptzgate::Users& { return Users_; }),
      DirtyTimer_(context) {
  Reload(std::move(settings));
}

Gate::~Gate() {
  IsEnding_ = true;
  for (const auto& [name, camera] : Cameras_) Leave(camera);
  for (const auto& leaving : Leaving_) leaving.wait();
}

void Gate::Reload(GateSettings settings, const std::function<void(const GateSettings&)>& last) {
  const auto cameras = CamerasOf(settings);
  for (const auto& odd : CheckGate(settings, cameras)) Journal_.Warn(odd);
  // All that can fail comes first, so that nothing is half new.
  std::map<std::string, CameraSettings> fresh;
  for (const auto& camera : cameras) {
    const auto known = Cameras_.find(camera.Name);
    if (known == Cameras_.end() || !AreAlike(known->second->Description(), camera))
      fresh.emplace(camera.Name, Reachable(camera, Lines_));
  }
  try {
    Journal_.AuditTo(settings.AuditFile);
  } catch (const std::runtime_error& error) {
    throw InputError(error.what());
  }
  try {
    if (last) last(settings);
  } catch (...) {
    Journal_.AuditTo(Settings_.AuditFile);
    throw;
  }

  Settings_ = std::move(settings);
  Users_ = ptzgate::Users(Settings_.Users, Settings_.Groups);
  Logins_.Forget();
  std::vector<std::shared_ptr<GateCamera>> gone, come;
  for (auto& [name, camera] : Cameras_) {
    const auto there = std::ranges::find(cameras, name, &NamedCamera::Name);
    if (there == cameras.end() || fresh.contains(name)) gone.push_back(camera);
  }
  for (const auto& camera : gone) {
    Cameras_.erase(camera->Name());
    Tell(*camera, Change::Removed);
    Leave(camera);
  }
  for (const auto& [name, camera] : Cameras_) camera->UsersChanged();
  for (const auto& camera : cameras) {
    const auto made = fresh.find(camera.Name);
    if (made == fresh.end()) continue;
    come.push_back(std::make_shared<GateCamera>(*this, camera, std::move(made->second)));
    Cameras_[camera.Name] = come.back();
  }
  for (const auto& camera : come) {
    camera->Begin();
    Tell(*camera, Change::Added);
  }
  if (Cameras_.empty()) Journal_.Warn("there are no cameras: `ptzctl add` makes one, or a file of cameras");
  Journal_.Info(std::to_string(Cameras_.size()) + " cameras, " + std::to_string(come.size()) +
                " of them new; " + std::to_string(gone.size()) + " have gone or were made anew");
}

/// A camera that was moving is stopped, which may take as long as it does not answer.
void Gate::Leave(const std::shared_ptr<GateCamera>& camera) {
  std::erase_if(Leaving_, [](const auto& leaving) {
    return leaving.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  });
  Leaving_.push_back(
      std::async(std::launch::async, [control = camera->End()]() mutable { control.reset(); }));
}

void Gate::StopAll() {
  if (std::exchange(IsEnding_, true)) return;
  for (const auto& [name, camera] : Cameras_) {
    const auto motion = camera->State().Motion;
    if (Marks_.IsSet(name) || motion == CameraMotion::Driven || motion == CameraMotion::Moving)
      Stopping_[name] = camera->StopAtEnd();
  }
}

std::size_t Gate::End(Milliseconds longest) {
  const auto deadline = steady_clock::now() + longest;
  StopAll();
  std::vector<std::unique_ptr<CameraControl>> controls;
  for (const auto& [name, camera] : Cameras_) controls.push_back(camera->End());
  std::size_t unstopped = 0;
  for (const auto& [name, done] : Stopping_) {
    if (done.wait_until(deadline) == std::future_status::ready && IsDone(done.get().Result)) {
      Marks_.Clear(name);
      continue;
    }
    ++unstopped;
    Journal_.Warn("camera " + name + " has not taken its stop");
  }
  // Those end on threads of their own; whoever still waits for a camera is not waited for.
  for (auto& control : controls)
    Leaving_.push_back(
        std::async(std::launch::async, [control = std::move(control)]() mutable { control.reset(); }));
  for (const auto& leaving : Leaving_) leaving.wait_until(deadline);
  Cameras_.clear();
  return unstopped;
}

std::vector<std::shared_ptr<GateCamera>> Gate::Cameras() const {
  std::vector<std::shared_ptr<GateCamera>> cameras;
  for (const auto& [name, camera] : Cameras_) cameras.push_back(camera);
  return cameras;
}

std::vector<std::shared_ptr<GateCamera>> Gate::CamerasFor(const std::string& user) const {
  auto cameras = Cameras();
  if (Users_.AreThere())
    std::erase_if(cameras,
                  [&](const auto& camera) { return Users_.RoleOf(user, camera->Name()) == Role::None; });
  return cameras;
}

std::shared_ptr<GateCamera> Gate::Find(const std::string& name, const std::string& user) const {
  const auto camera = Cameras_.find(name);
  if (camera == Cameras_.end() || (Users_.AreThere() && Users_.RoleOf(user, name) == Role::None))
    throw Refusal(Refusal::Why::Unknown, "there is no camera " + name);
  return camera->second;
}

std::shared_ptr<void> Gate::Watch(Watcher watcher) {
  auto kept = std::make_shared<Watcher>(std::move(watcher));
  std::erase_if(Watchers_, [](const auto& gone) { return gone.expired(); });
  Watchers_.push_back(kept);
  return kept;
}

void Gate::Tell(GateCamera& camera, Change change) {
  // One of them may come or go meanwhile.
  const auto watchers = Watchers_;
  for (const auto& weak : watchers)
    if (const auto watcher = weak.lock()) (*watcher)(camera, change);
}

void Gate::TellSoon(const std::shared_ptr<GateCamera>& camera) {
  const bool isFirst = Dirty_.empty();
  Dirty_[camera->Name()] = camera;
  if (!isFirst) return;
  DirtyTimer_.expires_after(ToldTogether);
  DirtyTimer_.async_wait([this](const auto& error) {
    if (error) return;
    for (const auto& [name, weak] : std::exchange(Dirty_, {}))
      if (const auto changed = weak.lock(); changed && Cameras_.contains(name) && Cameras_[name] == changed)
        Tell(*changed, Change::Changed);
  });
}

}  // namespace ptzgate
