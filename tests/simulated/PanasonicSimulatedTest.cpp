// The Panasonic driver over real sockets against cameras that take angles and cameras that take clicks.

#include "simulators/Panasonic.h"

#include <algorithm>

#include "support/SimulatedCamera.h"

namespace ptzd {
namespace {

using namespace std::chrono_literals;
using Mount = ptzsim::Panasonic::Mount;

class PanasonicSimulated : public test::SimulatedCamera<ptzsim::Panasonic> {
 protected:
  void Connect(const std::string& model, const char* firmware = "2.32", Mount mounted = Mount::NotTold,
               const test::OptionValues& options = {}) {
    Start({.Model = model, .Firmware = firmware, .Mounted = mounted});
    SimulatedCamera::Connect("QVPTZ.Panasonic", options);
  }
  /// The driver's degrees are whole, and a click keeps what reading the first position rounded away.
  void Settle() {
    Camera->Time().Advance(60s);
    EXPECT_NEAR(Camera->Head().Pan, Driver->Pan(), 0.5);
    EXPECT_NEAR(Camera->Head().Tilt, Driver->Tilt(), 0.5);
  }
};

TEST_F(PanasonicSimulated, EveryModelGoesWhereItIsSent) {
  for (const auto& model : ptzsim::Panasonic::Models())
    for (const char* firmware : {"2.32", "1.22"}) {
      SCOPED_TRACE(model + " " + firmware);
      Connect(model, firmware);
      Settle();
      for (const float pan : {-999.0F, -37.0F, 0.0F, 1.0F, 38.0F, 999.0F})
        for (const float tilt : {-999.0F, -8.0F, 0.0F, 3.0F, 999.0F}) {
          EXPECT_TRUE(Driver->MoveTo(pan, tilt));
          Settle();
          const auto head = Camera->Head();
          EXPECT_EQ(Driver->Pan(), std::clamp<double>(pan, head.PanEnds.Min, head.PanEnds.Max));
          EXPECT_EQ(Driver->Tilt(), std::clamp<double>(tilt, head.TiltEnds.Min, head.TiltEnds.Max));
        }
      EXPECT_TRUE(Driver->Move(DirectionDownLeft, 7));
      Settle();
      EXPECT_TRUE(Driver->MoveBoth(2.4F, -1));
      Settle();
    }
}

TEST_F(PanasonicSimulated, SaysItInTheseBytes) {
  Connect("BB-HCM581A", "1.23", Mount::NotTold, {{"Reset", true}});
  EXPECT_TRUE(Driver->MoveTo(-41.5F, 12.5F));
  EXPECT_TRUE(Driver->Move(DirectionDownLeft, 7));
  EXPECT_TRUE(Driver->Move(DirectionUpRight, 0.6F));
  EXPECT_TRUE(Driver->MoveBoth(2.4F, -1));
  EXPECT_TRUE(Driver->MoveTo(999, -999));
  Camera->Faults().Set("next=1,status=503 Busy");
  EXPECT_FALSE(Driver->MoveTo(1, 2));
  EXPECT_EQ(Driver->Pan(), 175) << "a refused move is not counted";
  Driver->SetPanTilt(-200, 91);
  EXPECT_TRUE(Driver->Move(DirectionRight, 5.6F));
  for (const auto zoom : {ZoomIn, ZoomOut}) EXPECT_TRUE(Driver->Zoom(zoom));
  for (const auto iris : {IrisOpen, IrisClose, IrisAuto}) EXPECT_TRUE(Driver->Iris(iris));
  for (const auto focus : {FocusNear, FocusFar, FocusAuto}) EXPECT_TRUE(Driver->Focus(focus));
  ExpectSent({"/Get?Func=Model&Kind=1", "/Get?Func=Pan&Kind=1", "/Get?Func=Tilt&Kind=1",
              "/nphPtzf?Func=Set&PanAng=0&PanAngRate=-1&TiltAng=0&TiltAngRate=-1&Sync=1",
              "/nphPtzf?Func=Set&PanAng=4200&PanAngRate=-1&TiltAng=1200&TiltAngRate=-1&Sync=1",
              "/nphPtzf?Func=Set&PanAng=4900&PanAngRate=-1&TiltAng=500&TiltAngRate=-1&Sync=1",
              "/nphPtzf?Func=Set&PanAng=4800&PanAngRate=-1&TiltAng=600&TiltAngRate=-1&Sync=1",
              "/nphPtzf?Func=Set&PanAng=4600&PanAngRate=-1&TiltAng=500&TiltAngRate=-1&Sync=1",
              "/nphPtzf?Func=Set&PanAng=-17500&PanAngRate=-1&TiltAng=-12000&TiltAngRate=-1&Sync=1",
              "/nphPtzf?Func=Set&PanAng=-100&PanAngRate=-1&TiltAng=200&TiltAngRate=-1&Sync=1",
              "/nphPtzf?Func=Set&PanAng=16900&PanAngRate=-1&TiltAng=9000&TiltAngRate=-1&Sync=1",
              "/Set?Func=Zoom&Kind=0&ZoomMode=4", "/Set?Func=Zoom&Kind=0&ZoomMode=6",
              "/nphControlCamera?Direction=Brighter", "/nphControlCamera?Direction=DefaultBrightness",
              "/nphControlCamera?Direction=Darker", "/Set?Func=Focus&Kind=0&FocusMode=4",
              "/Set?Func=Focus&Kind=0&FocusMode=6", "/Set?Func=Focus&Kind=0&FocusMode=5"});
}

TEST_F(PanasonicSimulated, ClicksIntoThePictureInTheseBytes) {
  const std::pair<const char*, const char*> rows[] = {
      {"BB-HCM381", "Width=4400&Height=3300&Direction=Direct&NewPosition.x=-3100&NewPosition.y=2050"},
      {"BL-C131E", "Width=4450&Height=3337.5&Direction=Direct&NewPosition.x=-3075&NewPosition.y=2068"},
      {"BB-HCM715", "Width=0&Height=0&Direction=Direct&NewPosition.x=-5300&NewPosition.y=400"},
  };
  for (const auto& [model, click] : rows) {
    Connect(model, "1.22");
    EXPECT_TRUE(Driver->MoveTo(-20, 3));
    ExpectSent({"/Get?Func=Model&Kind=1", "/Get?Func=Pan&Kind=1", "/Get?Func=Tilt&Kind=1",
                std::string("/nphControlCamera?") + click});
  }
}

TEST_F(PanasonicSimulated, TheMountingMovesALimit) {
  Connect("BL-C131E", "2.32", Mount::Ceiling);
  EXPECT_TRUE(Driver->MoveTo(0, 999));
  Settle();
  EXPECT_EQ(Camera->Head().Tilt, 90);
  Connect("BB-HCM715", "1.1", Mount::Desk);
  EXPECT_TRUE(Driver->MoveTo(0, -999));
  Settle();
  EXPECT_EQ(Camera->Head().Tilt, -120);
}

}  // namespace
}  // namespace ptzd
