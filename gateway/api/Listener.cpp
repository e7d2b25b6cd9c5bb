#include "gateway/api/Listener.h"

namespace ptzgate {

namespace {

constexpr std::size_t MuchToRead = 256 * 1024;

}  // namespace

void Listener::Tell(Gate& gate, GateCamera& camera, Gate::Change change, bool isHealth, CameraTexts& texts) {
  if (gate.Users().AreThere() && gate.Users().RoleOf(Client_.User, camera.Name()) == Role::None) return;
  if (!Follows(camera.Name()) && (Others_ == Others::Nothing || (Others_ == Others::Health && !isHealth)))
    return;
  if (!IsGreeted_) {
    Untold_.insert(camera.Name());
  } else if (change == Gate::Change::Removed) {
    Untold_.erase(camera.Name());
    TellGone(camera.Name());
  } else if (Backlog() > MuchToRead) {
    Untold_.insert(camera.Name());
  } else {
    Untold_.erase(camera.Name());
    TellCamera(camera, texts.For(Client_));
  }
}

void Listener::CatchUp(Gate& gate) {
  if (!IsGreeted_) return;
  for (auto name = Untold_.begin(); name != Untold_.end() && Backlog() <= MuchToRead;
       name = Untold_.erase(name))
    try {
      const auto camera = gate.Find(*name, Client_.User);
      TellCamera(*camera, CameraTexts(gate, *camera).For(Client_));
    } catch (const Refusal&) {
      TellGone(*name);  // from the site, or for him
    }
}

}  // namespace ptzgate
