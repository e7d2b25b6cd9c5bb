#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "simulators/engine/HTTPServer.h"
#include "simulators/engine/Motion.h"
#include "simulators/engine/Simulator.h"

namespace ptzsim {

/// A Bosch dome: rcp.xml with the command that carries a message to the head, byte by byte in hexadecimal.
/// It is answered with an XML document and status 200, whether the message was known or not.
///
/// The dome pans without end and takes the short way around. Tilt and zoom stop at their ends, and a message
/// that asks for more counts no violation, for a host cannot know them.
class Bosch : public Simulator {
 public:
  /// Whether the camera takes part.
  enum class Support {
    Full,
    Silent,   ///< messages that are in order are not acted on; the reply has an empty `str`
    Refusing  ///< the same; the reply has `err` in place of a result
  };
  struct Replies {
    Support Of = Support::Full;
    bool UpperCase = false;  ///< digits of `str`
    bool Padded = false;     ///< line ends and blanks around the text of `str`
    bool Longer = false;     ///< two bytes more than were asked for
  };
  struct Options {
    Replies Form{};
    ClockKind Clock = ClockKind::Real;
    std::uint16_t Port = 0;
  };

  /// Degrees, right and up positive; pan above -180 up to 180, tilt -90 to 18; zoom 0 to 30.
  struct HeadState {
    double Pan, Tilt, Zoom;
    bool Moving;
  };

  explicit Bosch(Options options);

  std::vector<std::string> Addresses() const override { return {Server_.Address()}; }
  nlohmann::json State() const override;
  HeadState Head() const;
  /// How messages are answered from now on. Any thread.
  void Reply(Replies replies);
  static const Make AtShell;

 private:
  using Bytes = std::vector<unsigned>;

  HTTPReply Answer(const Request& request);
  std::string Result(const Bytes& message);
  void Set(unsigned object, unsigned value);
  void Run(const Bytes& data);
  unsigned Value(unsigned object) const;

  mutable std::mutex Mutex_;
  Replies Replies_;
  Motion Pan_, Tilt_, Zoom_;
  HTTPServer Server_;
};

}  // namespace ptzsim
