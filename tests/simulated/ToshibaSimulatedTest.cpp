// Both Toshiba drivers over real sockets against the models they are for.

#include "simulators/Toshiba.h"

#include "support/SimulatedCamera.h"
#include "transport/HTTPClient.h"

namespace ptzd {
namespace {

using namespace std::chrono_literals;

struct Model {
  const char *ProgID, *Name;
  std::vector<std::string> Script;
};

class ToshibaSimulated : public test::SimulatedCamera<ptzsim::Toshiba>,
                         public testing::WithParamInterface<Model> {
 protected:
  void SetUp() override {
    Start({.Model = GetParam().Name});
    Connect(GetParam().ProgID);
  }
  bool Grid() const { return Driver->Capabilities() == (CapabilityPan | CapabilityTilt); }
};

const std::vector<std::string> GridScript = {
    "/getcurrentptpointapi.htm",
    "/directmoveapi.cgi?cont_3=2820&ok=dummy.htm",  // points are pan times 256 and tilt: 11, 4
    "/directmoveapi.cgi?cont_3=2056&ok=dummy.htm",  // 8, 8
    "/directmoveapi.cgi?cont_3=2569&ok=dummy.htm",  // 10, 9
    "/directmoveapi.cgi?cont_3=2824&ok=dummy.htm",  // 11, 8
    "/directmoveapi.cgi?cont_3=4877&ok=dummy.htm",  // 19, 13
    "/directmoveapi.cgi?cont_3=1027&ok=dummy.htm",  // 4, 3
    "/directmoveapi.cgi?cont_3=771&ok=dummy.htm",   // 3, 3
    "/directmoveapi.cgi?cont_3=2820&ok=dummy.htm"};
const std::vector<std::string> FineScript = [] {
  std::vector<std::string> script = {"/api/wbgetptzposition.cgi"};
  const auto move = [&](const std::string& position) {
    script.push_back("/api/wbsetptpreset.cgi?type=PresetNumber-64&PresetName=Quorvane&" + position);
    script.push_back("/api/wbpresetapi.cgi?cont_4=320");
  };
  move("PanPosition=3858&TiltPosition=654");
  move("PanPosition=3395&TiltPosition=1112");
  move("PanPosition=3704&TiltPosition=1221");
  move("PanPosition=3858&TiltPosition=1069");
  move("PanPosition=8267&TiltPosition=5016");
  move("PanPosition=2800&TiltPosition=545");
  move("PanPosition=-551&TiltPosition=-3707");
  for (const char* way : {"Tele", "Wide", "Tele"})
    script.push_back(std::string("/api/wbsetzoom.cgi?type=Set&Zoom=") + way);
  move("PanPosition=3858&TiltPosition=654");
  return script;
}();

INSTANTIATE_TEST_SUITE_P(All, ToshibaSimulated,
                         testing::Values(Model{"QVPTZ.Toshiba", "IK-WB01", GridScript},
                                         Model{"QVPTZ.Toshiba", "IK-WB11", GridScript},
                                         Model{"QVPTZ.Toshiba2", "IK-WB15", FineScript},
                                         Model{"QVPTZ.Toshiba2", "IK-WB21", FineScript}),
                         [](const auto& row) { return std::string(row.param.Name).substr(3); });

TEST(ToshibaPresetPage, TheHighByteOfItsNumberSaysWhatToDo) {
  ptzsim::Toshiba camera({.Model = "IK-WB15", .Clock = ptzsim::ClockKind::Manual});
  HTTPClient host;
  const auto before = camera.Head().Pan;
  const std::pair<int, const char*> rows[] = {{512 + 7, "20"}, {256 + 3, "20"}, {768 + 3, "20"},
                                              {256 + 3, "40"}, {768 + 3, "40"}, {5 * 64 - 1, "40"}};
  for (const auto& [number, verdict] : rows) {
    const auto reply = host.GetResource(
        "http://" + camera.Addresses().at(0) + "/api/wbpresetapi.cgi?cont_4=" + std::to_string(number), "",
        "");
    EXPECT_EQ(std::string(reply.begin(), reply.begin() + 2), verdict) << number;
    camera.Time().Advance(60s);
  }
  EXPECT_NE(camera.Head().Pan, before) << "recalled";
  EXPECT_EQ(camera.Head().Presets, (std::map<int, std::string>{{7, ""}, {64, "Car park"}}));
}

TEST_P(ToshibaSimulated, SaysItInTheseBytes) {
  EXPECT_EQ(Driver->MoveTo(0, 0), Grid());
  EXPECT_EQ(Driver->Move(DirectionDownLeft, 21), Grid());
  EXPECT_EQ(Driver->MoveBoth(14.4F, -5.4F), Grid());
  EXPECT_EQ(Driver->Move(DirectionUpRight, 7), Grid());
  EXPECT_EQ(Driver->MoveTo(200, -200), Grid());
  Driver->SetPanTilt(-56, 5);
  EXPECT_EQ(Driver->Move(DirectionRight, 7.6F), Grid());
  EXPECT_EQ(Driver->MoveTo(-200, 200), Grid());
  for (const auto zoom : {ZoomIn, ZoomOut}) EXPECT_EQ(Driver->Zoom(zoom), !Grid());
  Camera->Faults().Set("empty-body");
  EXPECT_FALSE(Driver->Zoom(ZoomIn)) << "refused";
  Camera->Faults().Clear();
  WhileAway([&] { EXPECT_FALSE(Driver->MoveTo(7, 0)); });
  EXPECT_EQ(Driver->Pan(), Grid() ? -56 : 7) << "the grid counts no move that failed";
  EXPECT_EQ(Driver->MoveTo(0, 0), Grid());
  ExpectSent(GetParam().Script);
}

}  // namespace
}  // namespace ptzd
