#pragma once

// How a make is written
// =====================
// A simulated camera is a state, a rule table and a reply per rule, in one file pair of 80 to 200 lines named
// after the make (Axis.h, Axis.cpp). It is written from the camera's protocol and includes nothing of the
// library, so that a wrong digit cannot pass on both sides.
//
// 1. The state is in the camera's own units. What moves is a `Motion` on the simulator's `Clock`. It starts
//    from a telling place: no zeros, no two equal values, so that a value that was never sent or ended up in
//    the wrong field shows.
// 2. The rule table has one row for each request the camera knows: its name, what it takes, in which range,
//    what the head must be able to do, and what it does to the state (`Rule`, for makes with NAME=VALUE
//    parameters). A value outside a range is clamped where
//    the real camera clamps. What drivers of this make are known to send although the camera has no use for
//    it stands in the table as such.
// 3. The reply is in the make's own form: line ends, case of keys, status codes. For what it does not know
//    the camera answers in its own way, and the reply carries a `Violation` that says what was wrong: tests
//    demand that `Log().Violations()` is empty, and `ptzsim` exits non-zero otherwise.
// 4. The class derives from `Simulator`, owns its servers as its *last* members (they stop first), and guards
//    its state with a mutex: requests come on a server's thread, `State` is asked for on any.
// 5. `AtShell` offers it with its options at the shell (Make.h); a line in Makes.cpp lists it.
//
//     class Toy : public Simulator {
//      public:
//       Toy() : Simulator(ClockKind::Real),
//               Pan_(Time(), 33, {-170, 170}, 90),
//               Server_(*this, Mutex_, 0, [this](const Request& r) { return Answer(r); }) {}
//       std::vector<std::string> Addresses() const override { return {Server_.Address()}; }
//       nlohmann::json State() const override;
//       static const Make AtShell;
//      private:
//       HTTPReply Answer(const Request& request);
//       mutable std::mutex Mutex_;
//       Motion Pan_;
//       HTTPServer Server_;
//     };
//
// Makes that do not speak HTTP give a `MessageHandler` to a `TCPServer` or a `Terminal` in place of the
// handler of an `HTTPServer`: it takes one message after the other off the bytes that came. Faults, log and
// clock are the same.

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "simulators/engine/Clock.h"
#include "simulators/engine/Faults.h"
#include "simulators/engine/RequestLog.h"

namespace ptzsim {

struct Make;

/// What all simulated devices have in common, whatever they are reached by. It runs from its construction to
/// its destruction.
class Simulator {
 public:
  explicit Simulator(ClockKind clock) : Time_(clock) {}
  virtual ~Simulator();
  Simulator(const Simulator&) = delete;
  Simulator& operator=(const Simulator&) = delete;

  /// Where it can be reached: "127.0.0.1:40123" or the path of a terminal. Any thread.
  virtual std::vector<std::string> Addresses() const = 0;
  /// The state in camera units, as of now. Any thread.
  virtual nlohmann::json State() const = 0;

  Clock& Time() { return Time_; }
  RequestLog& Log() { return Log_; }
  FaultSwitches& Faults() { return Faults_; }

 private:
  Clock Time_;
  RequestLog Log_;
  FaultSwitches Faults_;
};

}  // namespace ptzsim
