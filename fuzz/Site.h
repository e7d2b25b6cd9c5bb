#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "gateway/core/Gate.h"
#include "gateway/core/GateFile.h"

namespace ptzd::fuzz {

/// The gateway with two cameras, "door" and "yard", and all faces that are reached by HTTP: its own server,
/// connections and requests, without a socket that listens, a thread of a camera, or time. What its cameras
/// do is told by `ControlLog`.
class Site {
 public:
  /// `settings` is a gate.toml without the cameras.
  explicit Site(const ptzgate::GateSettings& settings);
  ~Site();
  Site(const Site&) = delete;
  Site& operator=(const Site&) = delete;

  /// Makes settings of a text that is in order.
  static ptzgate::GateSettings SettingsOf(const std::string& text);

  /// Sends bytes on the connection, which is made where there is none, and answers all that came back. What
  /// has a password is waited for until that was looked at.
  std::string Send(std::string_view bytes, bool isLogin = false);
  /// The peer goes.
  void Leave();
  /// Everything that can be done without waiting for time.
  void Poll();
  /// For a face that is no part of it.
  ptzgate::Gate& Gate();

 private:
  struct State;
  std::unique_ptr<State> State_;
};

}  // namespace ptzd::fuzz
