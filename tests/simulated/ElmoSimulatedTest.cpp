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

}  // namespace
}  // namespace ptzd
