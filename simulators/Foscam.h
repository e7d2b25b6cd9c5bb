#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "simulators/engine/HTTPServer.h"
#include "simulators/engine/Motion.h"
#include "simulators/engine/Query.h"
#include "simulators/engine/Simulator.h"

namespace ptzsim {

/// A Foscam camera of the older generation (numbered commands to decoder_control.cgi) or an HD one (named
/// commands to CGIProxy.fcgi, with the credentials in the query). Neither tells where it looks.
///
/// The older one turns by so many degrees, the same on both axes of a diagonal, or runs until it is stopped.
/// Hosts ask for diagonals by a degree that can be 0 or less: it acknowledges and stays where it is, and that
/// is no violation, while a negative degree in a straight direction is one. Credentials are asked for as
/// everywhere, by the faults "basic" and "digest".
///
/// The HD one runs at the speed that was set, 0 (fastest) to 4; at speed 1 it turns by one degree in 10 ms. A
/// new speed holds for the motion that is on too. On a diagonal each axis has three quarters of the speed.
///
/// A name that is saved keeps its first place. To save it again or one more than fits, to recall one nobody
/// saved and to come with wrong credentials are answered as the cameras do and count no violation.
class Foscam : public Simulator {
 public:
  enum class Kind { Older, HD };
  struct Options {
    Kind Generation = Kind::Older;
    std::string User{}, Password{};  ///< HD only; without a user everybody may steer it
    ClockKind Clock = ClockKind::Real;
    std::uint16_t Port = 0;
  };

  /// Degrees, pan to the right and tilt upwards.
  struct HeadState {
    double Pan, Tilt;
    bool Moving;
    int Speed;  ///< as last set; of HD cameras
    std::map<std::string, std::array<double, 2>>
        Presets;  ///< pan and tilt by number ("0" to "15") or by name
  };

  explicit Foscam(const Options& options);

  std::vector<std::string> Addresses() const override { return {Server_.Address()}; }
  nlohmann::json State() const override;
  HeadState Head() const;
  static const Make AtShell, HDAtShell;

 private:
  struct Way;

  HTTPReply Answer(const Request& request);
  std::string ObeyNumbered(const Query& query);
  int ObeyNamed(const Query& query, std::string& wrong);
  void Run(const Way& way, double speed);
  bool Recall(const std::string& name);
  void Save(const std::string& name) { Presets_[name] = {Pan_.Position(), Tilt_.Position()}; }

  mutable std::mutex Mutex_;
  Kind Kind_;
  std::string User_, Password_;
  Motion Pan_, Tilt_;
  int Speed_ = 3;
  const Way* Running_ = nullptr;  // the motion that only a stop or another command ends
  std::map<std::string, std::array<double, 2>> Presets_;
  HTTPServer Server_;
};

}  // namespace ptzsim
