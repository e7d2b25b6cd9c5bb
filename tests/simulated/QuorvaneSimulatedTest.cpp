// The driver for another installation of the surveillance system, over real sockets.

#include "simulators/Quorvane.h"

#include <ptzd/Error.h>
#include <ptzd/PTZNamedPresets.h>
#include "support/Errors.h"
#include "support/Script.h"
#include "support/SimulatedCamera.h"

namespace ptzd {
namespace {

using test::ErrorOf;

class QuorvaneSimulated : public test::SimulatedCamera<ptzsim::Quorvane> {
 protected:
  void Connect(const std::string& feed, const std::string& user = "") {
    if (!Camera) Start();
    SimulatedCamera::Connect("QVPTZ.Quorvane", {{"Feed", feed}}, user);
    Camera->Log().Clear();
  }
  PTZNamedPresets& Presets() { return dynamic_cast<PTZNamedPresets&>(*Driver); }
};

TEST_F(QuorvaneSimulated, NamedPresets) {
  Connect("3");
  std::string listed;
  for (const auto& preset : Presets().GetNamedPresets())
    listed += std::to_string(preset.Index()) + " " + preset.ID() + ": " + preset.Name() + "\n";
  EXPECT_EQ(listed, "0 main gate: Main gate\n1 7: Ramp & <yard>\n");
  Presets().GotoNamedPreset("main gate");
  Settle();
  EXPECT_EQ(Camera->At("3").Pan, -317);
  EXPECT_EQ(Camera->At("3").Zoom, 2.5);
  Presets().GotoNamedPreset("7");
  Presets().GotoNamedPreset("nowhere");
  Settle();
  EXPECT_EQ(Camera->At("3").Pan, 905);

  Connect("north yard");
  EXPECT_TRUE(Presets().GetNamedPresets().empty()) << "the feed's id goes out as it stands, blank and all";
}

TEST_F(QuorvaneSimulated, CredentialsThatAreAskedFor) {
  Start();
  Camera->Faults().Set("basic=us er:p@ss");
  Connect("3");
  EXPECT_EQ(ErrorOf([&] { Presets().GetNamedPresets(); }), "17004 Invalid authentication details");
  EXPECT_FALSE(Driver->MoveBoth(5, 5));
  EXPECT_EQ(Driver->Pan(), 0) << "a move that was not taken is not counted";
  Connect("3", "us%20er:p%40ss@");
  EXPECT_EQ(Presets().GetNamedPresets().size(), 2U);
  EXPECT_TRUE(Driver->MoveBoth(5, 5));
  Connections = Camera->Log().ConnectionsOpened();  // another login may have one of its own
}

TEST_F(QuorvaneSimulated, PresetListsThatAreNone) {
  struct Row {
    const char* fault;
    const char* error;
  };
  Connect("3");
  for (const auto& [fault, error] : {
           Row{"status=503 Service Unavailable", "17001 HTTP error 503 Service Unavailable\r"},
           Row{"bare-body", "17001 Unrecognised HTTP reply"},
           Row{"close-before-reply", "13104 Failed to connect to the HTTP server."},
           Row{"short-body", "13106 Disconnected while recieving data"},
       }) {
    Camera->Faults().Set(fault);
    EXPECT_EQ(ErrorOf([&] { Presets().GetNamedPresets(); }), error) << fault;
    Camera->Faults().Clear();
  }
  Connect("4");
  EXPECT_FALSE(Driver->MoveBoth(1, 1)) << "a feed that is not there";
  EXPECT_EQ(ErrorOf([&] { Presets().GetNamedPresets(); }), "17001 HTTP error 404 Not Found\r");
  Connections = Camera->Log().ConnectionsOpened();  // what a fault closes is opened anew

  const ptzsim::Quorvane::Feed twice{"3", "Front Door", {{"a", "One"}, {"b", "Two"}, {"a", "Three"}}};
  Start({.Feeds = {twice}});
  Connect("3");
  EXPECT_EQ(ErrorOf([&] { Presets().GetNamedPresets(); }).substr(0, 4), "457 ");

  Start({.BadXML = true});
  Connect("3");
  try {
    Presets().GetNamedPresets();
    ADD_FAILURE() << "a list that breaks off is taken";
  } catch (const Error& error) {
    EXPECT_LT(error.Number(), 0);
    EXPECT_EQ(error.Source(), "MS XML");
    EXPECT_NE(error.Description(), "");
  }
}

// The address that the feed list is asked for leads nowhere and must not cost a look-up or a time-out.
TEST_F(QuorvaneSimulated, ARemoteSystemIsSent) {
  Start();
  Driver = CreateDriver("QVPTZ.Quorvane", {.Clock = &Clock});
  const auto options =
      test::CameraOptions({{"Feed", std::string("north yard")}, {"Reset", true}}, Camera->Addresses().at(0));
  EXPECT_TRUE(Driver->Connect(options));
  Driver->MoveTo(12, -5);
  Driver->Connect(options);
  Driver->MoveTo(12, -5);
  Driver->Move(DirectionUpLeft, 10);
  Driver->MoveBoth(2.5F, 0);
  Device2().MoveTo(4, 5, 1.5F);
  Driver->Zoom(ZoomOut);
  Device2().ZoomTo(2);
  Driver->MoveTo(4, 5);
  Continuous().ContinuousMove(0.5F, -20);
  Continuous().ContinuousMove(0.5F, -20);
  Continuous().ContinuousZoom(-3);
  for (int twice = 0; twice < 2; ++twice) Continuous().StopContinuous();
  Presets().GetNamedPresets();
  Presets().GotoNamedPreset("main gate");
  const std::string control = "GET /ptz/control.htm?feed=north+yard&", offset = control + "move=offset",
                    stop = control + "move=joystick&x=0&y=0\n" + control + "zoom=joystick&level=0\n";
  EXPECT_EQ(
      test::Script(Camera->Log()),
      "GET /\n" + offset + "\n" + offset + "&pan=12&tilt=-5\n" +                                          //
          "GET /\n" + offset + "&pan=-12&tilt=5\n" + offset + "&pan=12&tilt=-5\n" +                       //
          offset + "&pan=-10&tilt=10\n" + offset + "&pan=2\n" + offset + "&zoom=offset&level=1.5\n" +     //
          offset + "&zoom=offset&level=-0.25\n" + offset + "&zoom=offset&level=0.75\n" + offset + "\n" +  //
          control + "move=joystick&x=0.5&y=-20\n" + control + "zoom=joystick&level=-3\n" +                //
          stop + stop + "GET /ptz/presets.xml?feed=north%20yard\n" + control +
          "move=preset&preset=main%20gate\n");
}

}  // namespace
}  // namespace ptzd
