// What a driver makes of its camera's status, beyond the requests for it: a step of nowhere for which it asks
// where the camera is, against the same step when it knows and bare requests for the same replies. No wire
// and no camera are in either. scripts/bench tells the difference.

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <ptzd/DriverFactory.h>
#include <ptzd/PropertyBag.h>
#include "CannedInternet.h"
#include "transport/HTTPClient.h"

namespace {

constexpr const char* Address = "camera1";
constexpr std::int32_t PositionLifetime = 5000;  // milliseconds

struct Place {
  float Pan, Tilt;
};

/// A make's driver, how many requests it reads a status with, and what they tell.
struct Make {
  std::string Name, ProgID;
  std::size_t Requests;
  Place Told;
  std::vector<Page> Pages;
};

std::string BoschReply(const std::string& payload, const std::string& value) {
  return R"(<?xml version="1.0" encoding="ISO-8859-1"?>
<rcp>
<command>
<hex>0x09a5</hex>
<dec>      2469</dec>
</command>
<type>P_OCTET</type>
<direction>WRITE</direction>
<num>1</num>
<idstring></idstring>
<payload>0x)" +
         payload + R"(</payload>
<cltid>0x0046</cltid>
<sessionid>0x00000000</sessionid>
<auth>2</auth>
<protocol>TCP</protocol>
<result>
<len>8</len>
<str>)" + value +
         R"( </str>
</result>
</rcp>
)";
}

// The page that tells where the camera is comes first, behind it what else a connection takes. A command gets
// an empty answer.
const Make Makes[] = {
    {"Axis",
     "QVPTZ.Axis",
     1,
     {37, -12},
     {{"query=position",
       "pan=37.4000\r\ntilt=-12.2500\r\nzoom=2400\r\niris=1250\r\nfocus=4711\r\nautofocus=on\r\n"
       "autoiris=on\r\n"},
      {"param.cgi",
       "root.PTZ.Limit.L1.MaxZoom=9999\nroot.PTZ.Support.S1.AbsolutePan=true\n"
       "root.PTZ.Support.S1.AbsoluteTilt=true\nroot.PTZ.Support.S1.AbsoluteZoom=true\n"}}},
    {"Bosch",
     "QVPTZ.Bosch",
     3,
     {0.8F, 5},
     {{"0x810006011201", BoschReply("810006011201", "81 00 06 01 12 01 7a 1b")},
      {"0x810006011301", BoschReply("810006011301", "81 00 06 01 13 01 03 69")},
      {"0x810006011401", BoschReply("810006011401", "81 00 06 01 14 01 00 5a")}}},
    {"Elmo 4",
     "QVPTZ.Elmo4",
     1,
     {50, -10},
     {{"group=pos",
       "command:list\r\ngroup:pos\r\nc_tilt:1352\r\nc_span:11925\r\nc_fcus:311\r\nc_zoom:928\r\n"
       "Return:0\r\n"}}},
    {"Elmo 402",
     "QVPTZ.Elmo402",
     1,
     {50, -10},
     {{"g_pos",
       "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<pget>\r\n<pos>\r\n"
       "<s_posfocus>311 (near)</s_posfocus>\r\n<s_pospan>11925 (50.0)</s_pospan>\r\n"
       "<s_postilt>1352 (-10.0)</s_postilt>\r\n<s_poszoom>836 (2.0)</s_poszoom>\r\n</pos>\r\n</pget>\r\n"}}},
    {"Grandeye",
     "QVPTZ.Grandeye",
     1,
     {-64, 7},
     {{"getparam.cgi", "vcamAPan0=64.00\nvcamATilt0=52.00\nvcamAZoom0=6894.00\n"}}},
    {"Merit Lilin",
     "QVPTZ.MeritLilin",
     1,
     {-139, -23},
     {{"getallposdegree",
       "autopan=0\npanposdegree=41\ntiltposdegree=23\nzoomposdegree=3.50\nfocuspos=812\n"}}},
    {"Panasonic i-Pro",
     "QVPTZ.PanasoniciPro",
     1,
     {33.7F, -14.3F},
     {{"absget", "PAN=2087&nbsp\r\nTILT=143&nbsp\r\nZOOM=22&nbsp\r\nFOCUS=4711&nbsp\r\nIRIS=128&nbsp\r\n"},
      {"getinfo", "MAC=0080F0A1B2C3\r\nSERIAL=KLB00417\r\nNAME=WV-SC384\r\nTITLE=Gate=west\r\nZOOM=1\r\n"}}},
    {"Panogenics",
     "QVPTZ.Panogenics",
     1,
     {-170, -10},
     {{"listptz", "<html><body>view=1 apan:190 atilt:-10 azoom:250</body></html>"}}},
    {"Sanyo",
     "QVPTZ.Sanyo",
     1,
     {23.75F, -14.5F},
     {{"pol=1",
       {"\x01\x1E\x07\xD2\x34\x44\x0B\x2C\x58\x13\x61\x9F\x05\x80\x04\x38\x09\x47\xFA\x56\x01\x77"
        "\xFF\xD8\xFF\xE0picture\xFF\xD9"}}}},
    {"Sony VISCA",
     "QVPTZ.Sony",
     1,
     {6.94F, -46.39F},
     {{"visca-inquiry", "9050000006040F0F0308FF\r\n"},
      {"inq=system", "CGIVersion=3.05&PanTiltFunc=1&ZoomFunc=1\r\n"},
      {"inq=sysinfo", "PanTiltMaxVelocity=24&ModelName=SNC-RZ50P\r\n"}}},
    {"Sony",
     "QVPTZ.Sony",
     1,
     {7.14F, -17.86F},
     {{"inq=ptzf",
       "AbsolutePTZF=0064,FF38,0c00,1F40&PanMovementRange=F6B4,094C&TiltMovementRange=0000,0001"
       "&TiltPanoramaRange=FC10,00A8&PanTiltMaxVelocity=22\r\n"},
      {"inq=system", "CGIVersion=6.00&PanTiltFunc=1&ZoomFunc=1\r\n"},
      {"inq=sysinfo", "PanTiltMaxVelocity=22&ModelName=SNC-EP521\r\n"}}},
};

class StillClock : public ptzd::Clock {
 public:
  std::int32_t TickCount() override { return static_cast<std::int32_t>(Ticks); }
  TimePoint Now() override { return {}; }
  void SleepUntil(TimePoint) override {}
  std::uint32_t Ticks = 0;  // they wrap
};

/// A connected driver of a make.
class Camera {
 public:
  explicit Camera(const Make& make) : Internet_(make.Pages) {
    ptzd::PropertyBag options;
    options.WriteProperty("Address", std::string(Address));
    Driver_ = ptzd::CreateDriver(make.ProgID, {.Internet = &Internet_, .Clock = &Clock_});
    if (!Driver_->Connect(options.Contents())) Fail(make, "did not connect");

    Internet_.Keeps = true;
    StepThatAsks();
    StatusUrls_ = Internet_.TakeAsked();
    Step();
    StatusUrls_.resize(StatusUrls_.size() - Internet_.TakeAsked().size());  // a command goes out last
    Internet_.Keeps = false;
    for (auto& url : StatusUrls_) url = std::string("http://") + Address + url;
    if (StatusUrls_.size() != make.Requests) Fail(make, "reads with other requests");
    const auto tells = [](float value, float expected) { return std::abs(value - expected) < 0.01F; };
    if (!tells(Driver_->Pan(), make.Told.Pan) || !tells(Driver_->Tilt(), make.Told.Tilt))
      Fail(make, "reads another position");
  }

  void Step() { Driver_->MoveBoth(0, 0); }
  void StepThatAsks() {
    Clock_.Ticks += PositionLifetime;
    Step();
  }
  void Ask() {
    for (const auto& url : StatusUrls_) benchmark::DoNotOptimize(Client_.GetResource(url, "", "").data());
  }

 private:
  [[noreturn]] static void Fail(const Make& make, const char* what) {
    std::fprintf(stderr, "%s %s\n", make.Name.c_str(), what);
    std::exit(1);
  }

  CannedInternet Internet_;
  StillClock Clock_;
  std::unique_ptr<ptzd::PTZDevice> Driver_;
  ptzd::HTTPClient Client_{Internet_};
  std::vector<std::string> StatusUrls_;
};

void Status(benchmark::State& state, const Make& make) {
  Camera camera(make);
  for (auto _ : state) camera.StepThatAsks();
  state.counters["requests"] = static_cast<double>(make.Requests);
}

void Requests(benchmark::State& state, const Make& make) {
  Camera camera(make);
  for (auto _ : state) {
    camera.Step();
    camera.Ask();
  }
}

}  // namespace

int main(int argc, char** argv) {
  for (const auto& make : Makes) {
    benchmark::RegisterBenchmark(("Status/" + make.Name).c_str(), Status, make);
    benchmark::RegisterBenchmark(("Requests/" + make.Name).c_str(), Requests, make);
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
