// The Panogenics driver over real sockets against a camera with eight views.

#include "simulators/Panogenics.h"

#include "support/SimulatedCamera.h"

namespace ptzd {
namespace {

using namespace std::chrono_literals;

class PanogenicsSimulated : public test::SimulatedCamera<ptzsim::Panogenics>,
                            public testing::WithParamInterface<bool> {
 protected:
  void Connect(const test::OptionValues& options) { SimulatedCamera::Connect("QVPTZ.Panogenics", options); }
};

INSTANTIATE_TEST_SUITE_P(Replies, PanogenicsSimulated, testing::Bool(),
                         [](const auto& row) { return row.param ? "Wrapped" : "Bare"; });

TEST_P(PanogenicsSimulated, SaysItInTheseBytes) {
  Start({.Wrapped = GetParam()});
  Connect({{"Port", 4}});  // at -122 and -33, zoom 4.5
  EXPECT_EQ(Driver->Pan(), -122);
  EXPECT_TRUE(Driver->MoveTo(-170.5F, 5.5F));
  EXPECT_TRUE(Driver->Move(DirectionUpLeft, 12));
  EXPECT_TRUE(Driver->MoveBoth(4, -30.2F));
  EXPECT_TRUE(Driver->Zoom(ZoomIn));
  Device2().Zoom(ZoomOut, 0.5F);
  Device2().ZoomTo(12);
  Device2().ZoomTo(-1);
  Device2().MoveTo(0, 0, 1);
  Settle();
  EXPECT_TRUE(Driver->Move(DirectionDownRight, 1)) << "from where the head is";
  EXPECT_TRUE(Driver->PresetSave(0) && Driver->PresetGoto(5));
  EXPECT_TRUE(Driver->PresetGoto(3)) << "a preset nobody saved; the driver does not read the refusal";
  for (const char* view : {"view=4", "view=8"}) {
    Camera->Faults().Set("next=1,at=" + std::string(view) + ",empty-body");
    EXPECT_FALSE(Driver->MoveTo(5, 6)) << "refused by either";
    EXPECT_EQ(Driver->Pan(), 5) << "and counted all the same";
  }
  Connect({{"Port", 2}, {"LinkViews", false}});
  EXPECT_TRUE(Driver->MoveTo(7, 8));
  std::vector<std::string> sent = {"/admin/listcamparam.cgi", "/ptz/listptz.cgi?view=4"};
  const auto move = [&](const std::string& position) {
    for (const char* view : {"4", "8"}) sent.push_back("/ptz/ptz.cgi?view=" + (view + ("&" + position)));
  };
  move("apan=-170&atilt=6&azoom=225");
  move("apan=178&atilt=18&azoom=225");
  move("apan=-178&atilt=-13&azoom=225");
  move("apan=-178&atilt=-13&azoom=238");
  move("apan=-178&atilt=-13&azoom=212");
  move("apan=-178&atilt=-13&azoom=500");
  move("apan=-178&atilt=-13&azoom=0");
  move("apan=0&atilt=0&azoom=50");
  sent.push_back("/ptz/listptz.cgi?view=4");
  move("apan=1&atilt=-1&azoom=50");
  sent.push_back("/presets/setpreset.cgi?view=4&index=1&name=Quorvane%20preset%201&used=1");
  sent.push_back("/presets/gotopreset.cgi?view=4&index=6");
  sent.push_back("/presets/gotopreset.cgi?view=4&index=4");
  sent.push_back("/ptz/ptz.cgi?view=4&apan=5&atilt=6&azoom=50");
  move("apan=5&atilt=6&azoom=50");
  sent.insert(sent.end(), {"/admin/listcamparam.cgi", "/ptz/listptz.cgi?view=2",
                           "/ptz/ptz.cgi?view=2&apan=7&atilt=8&azoom=175"});
  ExpectSent(sent);
}

}  // namespace
}  // namespace ptzd
