// The three Elmo drivers over real sockets against cameras of their series.

#include "simulators/Elmo.h"

#include "support/SimulatedCamera.h"

namespace ptzd {
namespace {

using namespace std::chrono_literals;
using ptzsim::ElmoNumbers;

struct Series {
  const char *ProgID, *Model;
  float PanEnd, TiltMin, TiltMax;  // degrees
  double PanStep, TiltStep;        // degrees of a motor step
  double ZoomScale, Widest, Tele;  // camera units: to one of the interface, and the ends
  ElmoNumbers Numbers = ElmoNumbers::Plain;
};

class ElmoSimulated : public test::SimulatedCamera<ptzsim::Elmo>, public testing::WithParamInterface<Series> {
 protected:
  void SetUp() override {
    Start({.Model = GetParam().Model, .Numbers = GetParam().Numbers});
    Connect(GetParam().ProgID, {{"Reset", true}});
    Settle();
  }
  void ExpectAt(double pan, double tilt) {
    const auto head = Camera->Head();
    EXPECT_NEAR(head.Pan, pan, GetParam().PanStep);
    EXPECT_NEAR(head.Tilt, tilt, GetParam().TiltStep);
    EXPECT_NEAR(Driver->Pan(), head.Pan, 0.001);
    EXPECT_NEAR(Driver->Tilt(), head.Tilt, 0.001);
  }
  bool Reads() const { return GetParam().ZoomScale != 0; }
};

Series PTC402C(ElmoNumbers numbers) {
  return {"QVPTZ.Elmo402", "PTC-402C", 175, -196, 16, 1 / 53.0, 1 / 52.0, 418, 0, 7524, numbers};
}
INSTANTIATE_TEST_SUITE_P(
    All, ElmoSimulated,
    testing::Values(Series{"QVPTZ.Elmo", "200", 150, -90, 30, 1 / 58.08, 1 / 57.6, 0, 0, 1000},
                    Series{"QVPTZ.Elmo4", "400", 175, -196, 16, 1 / 53.0, 1 / 52.0, 432, 64, 9568},
                    PTC402C(ElmoNumbers::Plain), PTC402C(ElmoNumbers::Remarked),
                    PTC402C(ElmoNumbers::Bracketed)),
    [](const auto& row) { return std::string(row.param.ProgID).substr(6) + std::to_string(row.index); });

TEST_P(ElmoSimulated, GoesWhereItIsSent) {
  const auto& row = GetParam();
  if (!Reads()) ExpectAt(0.0344, 0.1042);  // the reset
  for (const float pan : {-row.PanEnd, -row.PanEnd / 3, -0.3F, 0.0F, 77.77F, row.PanEnd})
    for (const float tilt : {row.TiltMin, row.TiltMin / 7, 0.0F, 3.33F, row.TiltMax}) {
      EXPECT_EQ(Driver->MoveTo(pan, tilt), !Reads());
      Settle();
      ExpectAt(pan, tilt);
    }
  Driver->MoveTo(row.PanEnd + 300, row.TiltMin - 300);
  Settle();
  ExpectAt(row.PanEnd, row.TiltMin);
  EXPECT_TRUE(Driver->Move(DirectionUpLeft, 10));
  Settle();
  ExpectAt(row.PanEnd - 10, row.TiltMin + 10);
  EXPECT_TRUE(Driver->MoveBoth(-20, 5));
  Settle();
  ExpectAt(row.PanEnd - 30, row.TiltMin + 15);

  EXPECT_EQ(Driver->Home(), Reads());
  EXPECT_EQ(Driver->PresetGoto(1), Driver->PresetCount() > 0);
  Settle();
  if (!Reads()) return;
  EXPECT_TRUE(Driver->MoveBoth(0, 0)) << "reads where the camera went by itself";
  ExpectAt(Camera->Head().Pan, Camera->Head().Tilt);
}

TEST_P(ElmoSimulated, StoresPresets) {
  if (Driver->PresetCount() == 0) return;
  for (const std::int32_t preset : {0, Driver->PresetCount() - 1}) {
    Driver->MoveTo(40.0F + static_cast<float>(preset), -20);
    Settle();
    const auto there = Camera->Head();
    EXPECT_TRUE(Driver->PresetSave(preset));
    Driver->MoveTo(0, 0);
    Settle();
    EXPECT_TRUE(Driver->PresetGoto(preset));
    Settle();
    EXPECT_EQ(Camera->Head().Pan, there.Pan);
    EXPECT_EQ(Camera->Head().Tilt, there.Tilt);
  }
  EXPECT_FALSE(Driver->PresetGoto(3)) << "nobody stored it";
}

TEST_P(ElmoSimulated, ZoomsAndFocuses) {
  const auto& row = GetParam();
  const auto before = Camera->Head();
  EXPECT_TRUE(Driver->Zoom(ZoomIn));
  Settle();
  EXPECT_GT(Camera->Head().Zoom, before.Zoom);
  if (Reads()) {
    for (const float zoom : {0.0F, 0.25F, 1.0F, 7.75F, 17.0F}) {
      Device2().ZoomTo(zoom);
      Settle();
      EXPECT_EQ(Camera->Head().Zoom, row.Widest + zoom * row.ZoomScale);
      Device2().MoveBoth(1, 0);
      EXPECT_EQ(Device2().ZoomLevel(), zoom) << "as the camera tells it";
      Settle();
    }
    Device2().ZoomTo(99);
    Settle();
    EXPECT_EQ(Camera->Head().Zoom, row.Tele);
    return;
  }
  EXPECT_TRUE(Driver->Zoom(ZoomOut) && Driver->Iris(IrisOpen) && Driver->Focus(FocusFar));
  Settle();
  EXPECT_EQ(Camera->Head().Zoom, before.Zoom);
  EXPECT_GT(Camera->Head().Iris, before.Iris);
  EXPECT_GT(Camera->Head().Focus, before.Focus);
  EXPECT_TRUE(Driver->Iris(IrisClose) && Driver->Focus(FocusNear));
  Settle();
  EXPECT_EQ(Camera->Head().Iris, before.Iris);
  EXPECT_EQ(Camera->Head().Focus, before.Focus);
  EXPECT_FALSE(Camera->Head().IrisIsAuto || Camera->Head().FocusIsAuto);
  EXPECT_TRUE(Driver->Iris(IrisAuto) && Driver->Focus(FocusAuto));
  EXPECT_TRUE(Camera->Head().IrisIsAuto && Camera->Head().FocusIsAuto);
}

}  // namespace
}  // namespace ptzd
