// The Bosch driver over real sockets against a dome written from the protocol.

#include "simulators/Bosch.h"

#include "support/Script.h"
#include "support/SimulatedCamera.h"

namespace ptzd {
namespace {

class BoschSimulated : public test::SimulatedCamera<ptzsim::Bosch> {
 protected:
  void SetUp() override {
    Start();
    Connect("QVPTZ.Bosch");
  }
};

TEST_F(BoschSimulated, ADomeIsSent) {
  Driver->MoveTo(190, 0);
  Driver->MoveTo(-170, -10);
  Device2().ZoomTo(-3);
  Device2().ZoomTo(2);
  Driver->Zoom(ZoomIn);
  Device2().Move(DirectionUp, 5);
  Driver->MoveBoth(20, 5);
  Continuous().ContinuousMove(10, -5);
  Continuous().ContinuousMove(10, -5);
  Continuous().ContinuousMove(-20, 20);
  Continuous().StopContinuous();
  Continuous().StopContinuous();
  Camera->Time().Advance(std::chrono::minutes(1));  // the driver asks again at once
  Driver->MoveTo(0, 2);
  std::string wanted;
  for (const char* message : {
           "810006011201",       "810006011301",       "810006011401",  // asks
           "800006011202EE9E",
           "8000060113020000",  // 350 degrees to the left of behind, level
           "800006011302F92F",  // -1745
           "8000060114020000",  // as wide as it goes
           "800006011402005A",
           "8000060114020065",  // 90, 101
           "800006011302F5C6",  // down, whatever it is told
           "800006011202E0FC",
           "800006011302F92F",  // 330 degrees
           "800006011085F80400", "8000060110850FFF00", "800006011085000000", "810006011201", "810006011301",
           "810006011401",  //
           "8000060112027AB8",
           "800006011302015D",  // ahead, 349
       })
    wanted += std::string("GET /rcp.xml?command=0x09A5&type=P_OCTET&direction=WRITE&num=1&payload=0x") +
              message + "\n";
  EXPECT_EQ(test::Script(Camera->Log()), wanted);
}

}  // namespace
}  // namespace ptzd
