// The list of the simulated makes. What each offers at the shell stands with its camera.

#include "simulators/Makes.h"

#include "simulators/Axis.h"
#include "simulators/Bosch.h"
#include "simulators/Elmo.h"
#include "simulators/Foscam.h"
#include "simulators/Grandeye.h"
#include "simulators/MeritLilin.h"
#include "simulators/Panasonic.h"
#include "simulators/PanasoniciPro.h"
#include "simulators/Panogenics.h"
#include "simulators/Pelco.h"
#include "simulators/Quorvane.h"
#include "simulators/Replay.h"
#include "simulators/Sanyo.h"
#include "simulators/Secubest.h"
#include "simulators/Sony.h"
#include "simulators/Toshiba.h"
#include "simulators/Vivotek.h"

namespace ptzsim {

const std::vector<const Make*>& Makes() {
  static const std::vector<const Make*> makes = {
      &Axis::AtShell,          &Bosch::AtShell,      &Elmo::AtShell,       &Foscam::AtShell,
      &Foscam::HDAtShell,      &Grandeye::AtShell,   &MeritLilin::AtShell, &Panasonic::AtShell,
      &PanasoniciPro::AtShell, &Panogenics::AtShell,
#ifndef _WIN32  // has no pseudo-terminals
      &Pelco::AtShell,
#endif
      &Quorvane::AtShell,      &Replay::AtShell,     &Sanyo::AtShell,      &Secubest::AtShell,
      &Sony::AtShell,          &Toshiba::AtShell,    &Vivotek::AtShell,
  };
  return makes;
}

}  // namespace ptzsim
