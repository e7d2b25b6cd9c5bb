#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "common/Numbers.h"
#include "drivers/kit/ContinuousDriver.h"
#include "drivers/kit/HTTPDriver.h"
#include "drivers/kit/WithZoom.h"

namespace ptzd {

/// Sony SNC network cameras (`QVPTZ.Sony`), over their CGI interface: VISCA commands where the camera lets
/// them through, its own CGI parameters where not.
///
/// Options: Address; Reset, True to go to camera position 0, 0 and zoom 0 on connecting.
///
/// `Connect` asks the camera and blocks for each answer. It raises 17003 without an address; 17001 where the
/// camera does not answer, answers with another status than 200 or names no model; 17002 for a model that is
/// not in the table; 6, 9 or 13 for numbers that are out of range, missing or none; 11 for a camera that
/// leaves out the movement range that its model's scale comes from.
///
/// Commands are sent and not waited for: they return at once and their failures only show in the log, so
/// `PTZDevice` moves and `Zoom` answer True while connected. The position is the last one commanded or, where
/// the camera reports it (firmware 6 and up, or VISCA), one read at most every 5 seconds; a reading that
/// fails keeps it. Moves end at the camera's limits, except that relative pan goes around on endless heads.
///
/// Zoom is 0 at the widest and counts 5200 camera units; 1 is short of full tele. Below 0 is 0, above 12.6
/// raises 6. There is no iris, focus, home or preset. Continuous speeds are the camera's divided by 4 for pan
/// (rounded) and tilt, by 8 for zoom; a motion is ended by `ContinuousMove(0, 0)`, for `StopContinuous` sends
/// nothing.
class Sony final : public WithZoom<HTTPDriver>, public ContinuousDriver {
 public:
  static const DriverData Data;

  explicit Sony(const Platform& platform = {});

  float Pan() override;
  float Tilt() override;
  /// Of the commands made; the camera is not asked.
  float ZoomLevel() override { return ToSingle(Current_.Zoom); }

  void ContinuousMove(float pan, float tilt) override;
  void ContinuousZoom(float amount) override;

 private:
  struct Model;
  struct Position {
    std::int32_t Pan, Tilt;  // camera units
  };
  /// Limits in camera units. Their ends are reversed where units run against degrees.
  struct Range {
    std::int32_t Min = 0, Max = 0;
    std::int32_t Low() const { return std::min(Min, Max); }
    std::int32_t High() const { return std::max(Min, Max); }
  };
  /// What a camera tells of itself and what follows from its model.
  struct Head {
    double CgiVersion = 0;
    std::string ModelName;
    ptzd::Capabilities Flags{};
    Range PanRange, TiltRange;
    std::int32_t MaxVelocity = 0;
    std::optional<Position> At;
    bool EndlessPan = false;
    double PanScale = 0, TiltScale = 0;  // camera units per degree, to four decimals
    float TiltCentre = 0;                // degrees at unit 0, to two decimals
    bool ViscaInquiry = false;

    void Read(std::string_view reply, std::string_view tiltRangeKey);
    void Apply(const Model& model);
    bool ReportsPtzf() const;
    bool Has(ptzd::Capabilities capability) const { return (Flags & capability) == capability; }
  };
  struct Speeds {
    std::int32_t Pan = 0;
    float Tilt = 0;
    float Zoom = 0;
  };

  void ReadOptions() override;
  bool Open() override;
  bool GoTo(HeadPosition target) override;
  bool StepBy(double pan, double tilt) override;
  bool ZoomAt(double zoom) override;
  void QueryPosition() override;

  static Position PtzfPosition(std::string_view value);
  static std::optional<Position> ReadablePosition(std::string_view value);
  static std::optional<Position> ViscaPosition(std::string_view reply);

  void GoToUnits(HeadPosition target);
  void SendContinuous(const Speeds& speeds);
  void Store(const std::optional<Position>& position);
  std::string Inquire(std::string_view path);
  std::string ViscaMove(std::int32_t pan, std::int32_t tilt) const;
  void SendVisca(const std::string& command);
  void SendCGI(const std::string& body);
  void SendAsync(std::string_view path, const std::string& body);

  Head Head_;
  Speeds Continuous_;
};

}  // namespace ptzd
