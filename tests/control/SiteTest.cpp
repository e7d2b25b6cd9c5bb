#include "control/Site.h"

#include <gtest/gtest.h>

#include <cmath>
#include <optional>
#include <string>
#include <tuple>

namespace ptzd {
namespace {

CameraSettings HungFromTheCeiling() {
  CameraSettings settings;
  settings.InvertTilt = true;
  settings.PanLimits = CameraLimits{-90, 45};
  settings.TiltLimits = CameraLimits{-10, 20};
  settings.ZoomLimits = CameraLimits{1, 8};
  return settings;
}

CameraPosition Standing(float pan, float tilt, float zoom) {
  return {.Kind = PositionKind::Estimated, .Pan = pan, .Tilt = tilt, .Zoom = zoom};
}

TEST(Site, SaysWhatSpeaksAgainstAPlaceAStepAndASpeed) {
  const DriverData data{.PanRange = ValueRange{-60, 170},
                        .TiltRange = ValueRange{.Greatest = 5},
                        .ZoomRange = ValueRange{.Least = 3, .Unit = "steps"},
                        .PanSpeed = ValueRange{-5, 5, "speeds", Beyond::Overflows},
                        .TiltSpeed = ValueRange{-5, 5, "speeds", Beyond::Limited}};
  const auto settings = HungFromTheCeiling();
  const Site site(settings);
  const auto from = Standing(-80, 15, 7);
  const struct {
    std::optional<std::string> Refusal;
    std::string Told;
  } rows[] = {
      {site.Refusal(CameraPlace{-60, -5, 3}, data), "-"},
      {site.Refusal(CameraPlace{45, 20, 8}, data), "-"},
      {site.Refusal(CameraPlace{-61, {}, 9}, data), "pan: -61 is not between -60 and 170 degrees"},
      {site.Refusal(CameraPlace{46}, data), "pan: 46 is not between -90 and 45, the limits of this camera"},
      {site.Refusal(CameraPlace{{}, -6}, data), "tilt: 6 is above 5 degrees"},
      {site.Refusal(CameraPlace{{}, 21}, data),
       "tilt: 21 is not between -10 and 20, the limits of this camera"},
      {site.Refusal(CameraPlace{{}, {}, 2}, data), "zoom: 2 is below 3 steps"},
      {site.Refusal(CameraPlace{NAN}, data), "pan is no number"},

      {site.Refusal(CameraPlace{-10, 5, 1}, from), "-"},
      {site.Refusal(CameraPlace{-11, 6}, from),
       "pan: -91 is not between -90 and 45, the limits of this camera"},
      {site.Refusal(CameraPlace{0, 6, 2}, from),
       "tilt: 21 is not between -10 and 20, the limits of this camera"},
      {site.Refusal(CameraPlace{{}, {}, 2}, from),
       "zoom: 9 is not between 1 and 8, the limits of this camera"},
      {site.Refusal(CameraPlace{10}, Standing(-120, 0, 1)), "-"},  // back towards them
      {site.Refusal(CameraPlace{-10}, Standing(120, 0, 1)), "-"},
      {site.Refusal(CameraPlace{0}, Standing(120, 0, 1)), "-"},
      {site.Refusal(CameraPlace{-99}, CameraPosition{}), "-"},

      {site.Refusal(DriveSpeeds{.PanTilt = DriveSpeeds::Head{5, 9}, .Zoom = 0}, data), "-"},
      {site.Refusal(DriveSpeeds{.PanTilt = DriveSpeeds::Head{6, 0}}, data),
       "pan speed: 6 is not between -5 and 5 speeds"},
      {site.Refusal(DriveSpeeds{.PanTilt = DriveSpeeds::Head{0, HUGE_VALF}}, data),
       "tilt speed is no number"},
      {site.Refusal(DriveSpeeds{.PanTilt = {}, .Zoom = 1}, data), "zoom speed: this make has no such motion"},
  };
  for (const auto& row : rows) EXPECT_EQ(row.Refusal.value_or("-"), row.Told);
}

TEST(Site, KeepsStepsAndSpeedsWithinItsLimits) {
  const auto settings = HungFromTheCeiling();
  const Site site(settings);
  const auto step = [&](const Target& by, const CameraPosition& from) {
    const auto within = site.Within(by, from);
    return std::tuple(within.Pan, within.Tilt, within.Zoom);
  };
  using Amounts = std::tuple<float, float, std::optional<float>>;
  EXPECT_EQ(step({-20, 20, 9.F}, Standing(-80, 15, 7)), Amounts(-10, 5, 1));
  EXPECT_EQ(step({-20, 20, 9.F}, CameraPosition{}), Amounts(-20, 20, 9));
  EXPECT_EQ(step({20, 0, {}}, Standing(-120, 30, 7)), Amounts(20, 0, std::nullopt)) << "from beyond them";
  EXPECT_EQ(step({-20, 5, {}}, Standing(-120, 30, 7)), Amounts(0, 0, std::nullopt));

  const auto speed = [&](const DriveSpeeds& speeds, const CameraPosition& from) {
    const auto within = site.Within(speeds, from);
    return std::tuple(within.PanTilt->Pan, within.PanTilt->Tilt, within.Zoom);
  };
  const DriveSpeeds out{.PanTilt = DriveSpeeds::Head{-1, 2}, .Zoom = 3},
      back{.PanTilt = DriveSpeeds::Head{1, -2}};
  EXPECT_EQ(speed(out, Standing(-90, 20, 8)), Amounts(0, 0, 0));
  EXPECT_EQ(speed(out, Standing(-89, 19, 7)), Amounts(-1, 2, 3));
  EXPECT_EQ(speed(out, CameraPosition{}), Amounts(-1, 2, 3));
  EXPECT_EQ(speed(back, Standing(-90, 20, 8)), Amounts(1, -2, std::nullopt));
  EXPECT_EQ(speed(back, Standing(45, -10, 8)), Amounts(0, 0, std::nullopt));
}

TEST(Site, TurnsOnlyTheAxesThatAreTurned) {
  const auto turned = [](bool pan, bool tilt, int direction) {
    CameraSettings settings;
    settings.InvertPan = pan;
    settings.InvertTilt = tilt;
    return static_cast<int>(Site(settings).Turned(static_cast<Directions>(direction)));
  };
  EXPECT_EQ(turned(true, false, DirectionUp), DirectionUp);
  EXPECT_EQ(turned(true, false, DirectionUp | DirectionLeft), DirectionUp | DirectionRight);
  EXPECT_EQ(turned(false, true, DirectionRight), DirectionRight);
  EXPECT_EQ(turned(false, true, DirectionUp | DirectionLeft), DirectionDown | DirectionLeft);
  EXPECT_EQ(turned(false, false, DirectionUp | DirectionLeft), DirectionUp | DirectionLeft);
}

}  // namespace
}  // namespace ptzd
