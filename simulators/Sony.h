#pragma once

#include <cstdint>
#include <initializer_list>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulators/engine/HTTPServer.h"
#include "simulators/engine/Motion.h"
#include "simulators/engine/Simulator.h"

namespace ptzsim {

/// A Sony SNC camera: inquiry.cgi, ptzf.cgi with CGI parameters or VISCA frames, and visca-inquiry.cgi, which
/// many models lack and answer with 404. Commands are answered with 204.
///
/// VISCA frames are checked byte by byte. Zoom and continuous speeds are clamped, positions of pan and tilt
/// come within their ranges.
class Sony : public Simulator {
 public:
  struct Options {
    std::string Model = "SNC-RZ50P";  ///< one of `Models`
    ClockKind Clock = ClockKind::Real;
    std::uint16_t Port = 0;
  };

  /// The camera's own units; zoom 0 (wide) to 16384.
  struct HeadState {
    long Pan, Tilt, Zoom;
    bool Moving;
  };

  /// SNC-RZ50P; SNC-RZ30N, whose units run against degrees; SNC-RX550N and SNC-RS46N, which turn without end;
  /// these four take VISCA. SNC-P5 has no VISCA and zooms by steps only; SNC-EP521 has no VISCA and CGI
  /// version 6.
  static std::vector<std::string> Models();

  /// Throws std::invalid_argument for an unknown model.
  explicit Sony(const Options& options);

  std::vector<std::string> Addresses() const override { return {Server_.Address()}; }
  nlohmann::json State() const override;
  HeadState Head() const;
  static const Make AtShell;

 private:
  struct Model;

  HTTPReply Answer(const Request& request);
  std::optional<std::string> Inquiry(std::string_view page) const;
  std::string AnswerVisca(std::string_view digits) const;
  void ObeyVisca(std::string_view digits);
  void ObeyCGI(std::string_view body);
  void TurnTo(long pan, long tilt, std::initializer_list<double> speeds);
  HeadState Now() const;

  mutable std::mutex Mutex_;
  const Model& Model_;
  Motion Pan_, Tilt_, Zoom_;
  HTTPServer Server_;
};

}  // namespace ptzsim
