// From the call of `CameraControl::Stop` until the camera has read the stop, beside a bare exchange with the
// same camera in the same run. An asynchronous stop is two alike, of which the first counts. Prints JSON:
// microseconds, by situation; scripts/bench makes lines of it.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <ptzd/CameraControl.h>
#include <ptzd/PropertyBag.h>
#include "BareCurl.h"
#include "LoopbackServer.h"
#include "transport/HTTPClient.h"
#include "transport/HTTPClientHelper.h"

namespace {

using std::chrono::steady_clock;
using Manner = LoopbackServer::Manner;

constexpr int Repeats = 300;
constexpr int Queued = 1000;
constexpr int Site = 1000;  // cameras

double Microseconds(steady_clock::duration time) {
  return std::chrono::duration<double, std::micro>(time).count();
}

void Print(const char* name, std::vector<double> times) {
  std::ranges::sort(times);
  const auto at = [&times](double share) {
    return times[static_cast<std::size_t>(share * static_cast<double>(times.size() - 1))];
  };
  std::printf("{\"name\": \"%s\", \"median\": %.1f, \"p99\": %.1f, \"longest\": %.1f}\n", name, at(0.5),
              at(0.99), times.back());
  std::fflush(stdout);
}

std::string AddressOf(const LoopbackServer& server, int port = 0) {
  return "127.0.0.1:" + std::to_string(server.Port(port));
}

std::unique_ptr<ptzd::CameraControl> Control(const LoopbackServer& server, int port = 0,
                                             const char* driver = "QVPTZ.Axis") {
  ptzd::PropertyBag options;
  options.WriteProperty("Address", AddressOf(server, port));
  ptzd::CameraSettings settings;
  settings.Driver = driver;
  settings.Options = options.Contents();
  settings.WatchesMoves = false;
  settings.Lease = std::chrono::milliseconds(0);
  settings.StopTime = std::chrono::milliseconds(0);
  settings.IdleTime = std::chrono::milliseconds(200);
  return std::make_unique<ptzd::CameraControl>(std::move(settings));
}

/// Drives, and stops as soon as the drive was sent and `meanwhile` has been done.
double StopOnce(ptzd::CameraControl& control, const LoopbackServer& server,
                const std::function<void()>& meanwhile = {}) {
  auto drive = control.DriveAt({.PanTilt = ptzd::DriveSpeeds::Head{10, 0}});
  drive.Wish.Sent.wait();
  if (meanwhile) meanwhile();
  const auto called = steady_clock::now();
  control.Stop().Done.wait();
  drive.Leave();
  return Microseconds(server.StopSeen() - called);
}

/// Clients that each have a camera of their own to send to, and nobody reads what those answer.
class Senders {
 public:
  Senders(const LoopbackServer& cameras, int count) {
    for (int i = 0; i < count; ++i) {
      Clients_.push_back(std::make_unique<ptzd::HTTPClient>());
      URLs_.push_back("http://" + AddressOf(cameras, i) + "/axis-cgi/com/ptz.cgi?pan=5");
    }
  }

  /// On a thread of its own, so that the one that stops has not used up its share of the processor.
  void Send(int requests) {
    std::thread([&] {
      for (int i = 0; i < requests; ++i) {
        const auto sender = static_cast<std::size_t>(i) % Clients_.size();
        Clients_[sender]->GetResourceAsync(URLs_[sender], "", "");
      }
    }).join();
  }

  static void WaitUntilSent() {
    while (ptzd::AsyncHandles().Count() > 0) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }

 private:
  std::vector<std::unique_ptr<ptzd::HTTPClient>> Clients_;
  std::vector<std::string> URLs_;
};

template <typename Measure>
std::vector<double> Repeat(const Measure& measure, int times = Repeats) {
  std::vector<double> all;
  for (int i = 0; i < times; ++i) all.push_back(measure());
  return all;
}

}  // namespace

int main() {
  const LoopbackServer camera, silent(8, Manner::Silent), slow(1, Manner::FocusesSlowly), site(Site);
  BareCurl curl;
  const auto url = "http://127.0.0.1:" + std::to_string(camera.Port()) + "/axis-cgi/com/ptz.cgi?pan=5";
  Print("bare exchange", Repeat([&] {
          const auto began = steady_clock::now();
          curl.Get(url);
          return Microseconds(steady_clock::now() - began);
        }));

  const auto control = Control(camera);
  Print("idle", Repeat([&] { return StopOnce(*control, camera); }));
  Print("1000 wishes queued", Repeat([&] {
          return StopOnce(*control, camera, [&] {
            for (int i = 0; i < Queued; ++i) control->Iris(ptzd::IrisOpen);
          });
        }));
  {
    std::vector<std::unique_ptr<ptzd::CameraControl>> others;
    for (int i = 0; i < 8; ++i) others.push_back(Control(silent, i));
    for (const auto& other : others) other->Connect();
    Print("8 cameras silent", Repeat([&] { return StopOnce(*control, camera); }));
  }
  const auto asynchronous = Control(camera, 0, "QVPTZ.Sony");
  Print("asynchronous", Repeat([&] { return StopOnce(*asynchronous, camera); }));
  {
    Senders others(site, Site);
    const auto behind = [&](const auto& stop) {
      return Repeat(
          [&] {
            const double time = stop([&] { others.Send(Queued); });
            Senders::WaitUntilSent();
            return time;
          },
          50);
    };
    Print("behind 1000 sends", behind([&](const auto& send) { return StopOnce(*control, camera, send); }));
    Print("asynchronous, behind 1000 sends",
          behind([&](const auto& send) { return StopOnce(*asynchronous, camera, send); }));
    ptzd::HTTPClient client;
    Print("a command behind 1000 sends", behind([&](const auto& send) {
            send();
            const auto called = steady_clock::now();
            client.GetResource(url, "", "");
            return Microseconds(steady_clock::now() - called);
          }));
  }
  {
    Senders others(silent, 8);
    Print("asynchronous, behind 1000 to silent",
          Repeat([&] { return StopOnce(*asynchronous, camera, [&] { others.Send(Queued); }); }, 20));
  }
  const auto waits = Control(slow);
  Print("beyond a request under way", Repeat(
                                          [&] {
                                            StopOnce(*waits, slow, [&] {
                                              const auto before = slow.Requests();
                                              waits->Focus(ptzd::FocusFar);
                                              while (slow.Requests() == before) std::this_thread::yield();
                                            });
                                            return Microseconds(slow.StopSeen() - slow.SlowReplySent());
                                          },
                                          50));
  for (const bool oneIsSilent : {false, true}) {
    std::vector<std::unique_ptr<ptzd::CameraControl>> all;
    for (int i = 0; i + 1 < Site; ++i) all.push_back(Control(site, i));
    all.push_back(oneIsSilent ? Control(silent) : Control(site, Site - 1));
    all.back()->Connect();
    std::vector<double> times;
    for (int i = 0; i + 1 < Site; ++i) times.push_back(StopOnce(*all[i], site));
    Print(oneIsSilent ? "999 cameras beside a silent one" : "999 cameras of 1000", std::move(times));
  }
}
