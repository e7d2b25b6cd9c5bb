// The three Elmo drivers over real sockets against cameras of their series.

#include "simulators/Elmo.h"

#include "support/SimulatedCamera.h"

namespace ptzd {
namespace {

using namespace std::chrono_literals;
using ptzsim::ElmoNumbers;

struct Series {
  const char *ProgID, *Model;
  bool Reads;  // tells its position and zooms to one
  const char *Path, *Script;
  ElmoNumbers Numbers = ElmoNumbers::Plain;
};

class ElmoSimulated : public test::SimulatedCamera<ptzsim::Elmo>, public testing::WithParamInterface<Series> {
 protected:
  void SetUp() override {
    Start({.Model = GetParam().Model, .Numbers = GetParam().Numbers});
    Connect(GetParam().ProgID, {{"Reset", true}});
    Settle();
  }
  bool Reads() const { return GetParam().Reads; }
};

constexpr char Script200[] =
    "/cgi-bin/ctrl pana=8714&tlta=1722 pana=9293&tlta=1536 pana=8712&tlta=960 pana=7579&tlta=1901 "
    "tlta=1959 pana=17424&tlta=6912 pana=0&tlta=0 zoom=0 zoom=3 iris=3 iris=1 iris=4 fcus=0 fcus=3 fcus=4 "
    "/cgi-bin/pmem?1 prst=5 prst=6 pana=58 pana=348 /cgi-bin/ctrl";
constexpr char Script400[] =
    "/cgi-bin/list?group=pos c_span=9805 c_tilt=659 /cgi-bin/list?group=pos c_span=9275 c_tilt=139 "
    "/cgi-bin/list?group=pos c_span=8188 c_tilt=399 c_tilt=451 c_span=18550 c_tilt=11024 c_span=0 c_tilt=0 "
    "c_zoom=712 c_zoom=604 c_pmem=1 c_prst=5 c_prst=6 c_prst=17 /cgi-bin/list?group=pos c_zoom=496 "
    "c_span=9328 c_zoom=1144 c_span=9275 c_zoom=64 c_span=9540 /cgi-bin/list?group=pos";
constexpr char Script402[] =
    "/cgi-bin/pget?g_pos x_pospan=9805&x_postilt=659&x_poszoom=627 /cgi-bin/pget?g_pos "
    "x_pospan=9275&x_postilt=139&x_poszoom=627 /cgi-bin/pget?g_pos x_pospan=8188&x_postilt=399&x_poszoom=627 "
    "x_pospan=8188&x_postilt=451&x_poszoom=627 x_pospan=18550&x_postilt=11024&x_poszoom=627 "
    "x_pospan=0&x_postilt=0&x_poszoom=627 x_pospan=0&x_postilt=0&x_poszoom=731.5 "
    "x_pospan=0&x_postilt=0&x_poszoom=627 x_preprst=HOME /cgi-bin/pget?g_pos "
    "x_pospan=9275&x_postilt=832&x_poszoom=418 x_pospan=9328&x_postilt=832&x_poszoom=418 "
    "x_pospan=9328&x_postilt=832&x_poszoom=1045 x_pospan=9275&x_postilt=832&x_poszoom=0 "
    "x_pospan=9540&x_postilt=832&x_poszoom=0 /cgi-bin/pget?g_pos";

Series PTC402C(ElmoNumbers numbers) {
  return {"QVPTZ.Elmo402", "PTC-402C", true, "/cgi-bin/exec?", Script402, numbers};
}
INSTANTIATE_TEST_SUITE_P(All, ElmoSimulated,
                         testing::Values(Series{"QVPTZ.Elmo", "200", false, "/cgi-bin/ctrl?", Script200},
                                         Series{"QVPTZ.Elmo4", "400", true, "/cgi-bin/set?", Script400},
                                         PTC402C(ElmoNumbers::Plain), PTC402C(ElmoNumbers::Remarked),
                                         PTC402C(ElmoNumbers::Bracketed)),
                         [](const auto& row) {
                           return std::string(row.param.ProgID).substr(6) + std::to_string(row.index);
                         });

TEST_P(ElmoSimulated, SaysItInTheseBytes) {
  Driver->MoveTo(10.005F, 3.33F);
  Settle();
  EXPECT_TRUE(Driver->Move(DirectionUpLeft, 10));
  Camera->Time().Advance(60s);
  Driver->SetPanTilt(1, 2);  // is taken where nothing can be read, else asks anew
  EXPECT_TRUE(Driver->MoveBoth(-20.51F, -5));
  EXPECT_TRUE(Driver->Move(DirectionDown, 1));
  Driver->MoveTo(300, -300);
  Driver->MoveTo(-300, 300);
  for (const auto zoom : {ZoomIn, ZoomOut}) EXPECT_TRUE(Driver->Zoom(zoom));
  for (const auto iris : {IrisOpen, IrisClose, IrisAuto}) EXPECT_EQ(Driver->Iris(iris), !Reads());
  for (const auto focus : {FocusNear, FocusFar, FocusAuto}) EXPECT_EQ(Driver->Focus(focus), !Reads());
  EXPECT_FALSE(Driver->PresetSave(Driver->PresetCount()) || Driver->PresetGoto(Driver->PresetCount()));
  const bool presets = Driver->PresetCount() > 0;
  EXPECT_EQ(Driver->PresetSave(0), presets);
  EXPECT_EQ(Driver->PresetGoto(4), presets);
  EXPECT_FALSE(Driver->PresetGoto(5)) << "which nobody saved";
  EXPECT_EQ(Driver->Home(), Reads());
  Camera->Time().Advance(60s);
  if (Reads()) Device2().Zoom(ZoomIn, 1);
  EXPECT_TRUE(Driver->Move(DirectionRight, 1));
  if (Reads()) {
    Device2().ZoomTo(2.5F);
    Device2().MoveTo(0, 0, -1);
  }
  const auto before = Driver->Pan();
  Camera->Faults().Set("next=1,empty-body");
  EXPECT_FALSE(Driver->MoveBoth(5, 0));
  EXPECT_EQ(Driver->Pan(), Reads() ? before + 5 : before) << "a refused move counts where it can be read";
  Camera->Faults().Set("next=1,empty-body");
  EXPECT_FALSE(Driver->Connect(test::CameraOptions({}, Camera->Addresses()[0]))) << "no camera of this make";
  ExpectSent(GetParam().Path, GetParam().Script);
}

}  // namespace
}  // namespace ptzd
