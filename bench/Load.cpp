// A site of simulated cameras of all makes, each under its control in this one process, driven by one and by
// many operators, while cameras go away and come back and some say nothing. Prints how long stops took in
// each situation, what became of all wishes, the throughput beside bare libcurl's, and whether memory and
// descriptors stay. Ends with exit code 1 when a command was lost or a limit was broken.
//   load [--cameras 1000] [--soak 1h [--output FILE]]

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "BareCurl.h"
#include "LoadCamera.h"
#include "Process.h"
#include "SimulatedSite.h"
#include "Soak.h"
#include "transport/HTTPClient.h"
#include "transport/HTTPClientHelper.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Kind = LoadCamera::Kind;
using Seconds = std::chrono::duration<double>;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr unsigned ManyOperators = 64;
constexpr std::size_t SilentShare = 20;  ///< one of so many
constexpr double WishesPerSecond = 400;  ///< of all operators of an endurance run together
constexpr std::size_t MostOutstanding = 4;
constexpr auto AwayTime = 3s;

// What must hold.
constexpr double StopLimit = 2;  ///< milliseconds, the median beyond a bare exchange's
constexpr double MemoryLimit = 0.03, DescriptorLimit = 0.05;  ///< growth
constexpr double ThroughputLimit = 0.25;                      ///< of bare libcurl's
constexpr std::size_t MostFaults = 40;                        ///< that are told
constexpr auto ReturnLimit = 15s;  ///< from a camera's return until it is under control again

std::mutex FaultsMutex;
std::set<std::string> Faults;  ///< limits that were broken

void Demand(bool holds, const std::string& what) {
  const std::lock_guard lock(FaultsMutex);
  if (!holds && Faults.size() < MostFaults) Faults.insert(what);
}

/// All that is measured: the cameras and who has them.
class Load {
 public:
  explicit Load(std::size_t cameras) : Site_(cameras) {
    const auto ports = std::make_shared<ptzd::SharedSerialPorts>();
    for (const auto& camera : Site_.Cameras()) {
      const auto number = static_cast<std::int32_t>(Cameras_.size()) + 1;
      if (camera.Address.starts_with('/')) ports->MapDevice(number, camera.Address);
      Cameras_.push_back(std::make_unique<LoadCamera>(camera, ports, number));
    }
  }

  void ConnectAll();
  /// Finds out what each driver does, once.
  void FindKinds();
  void MeasureThroughput();
  void MeasureStops();
  /// Lets operators wish for things; answers what was measured meanwhile.
  std::vector<SoakSample> Endure(unsigned operators, Seconds time, const std::string& name);
  /// The account of all, and whether anything was lost.
  void Conclude();

 private:
  /// Those whose stops are measured; operators leave them alone.
  static bool IsReserved(std::size_t camera) { return camera / SimulatedSite::Makes % 10 == 0; }
  const std::vector<Kind>& KindsOf(const LoadCamera& camera) const { return Kinds_.at(camera.Driver()); }
  bool Does(const LoadCamera& camera, Kind kind) const {
    return std::ranges::find(KindsOf(camera), kind) != KindsOf(camera).end();
  }

  struct StopTime {
    double Stop;                 ///< milliseconds
    std::optional<double> Bare;  ///< of an exchange just before, where the camera speaks HTTP
  };
  struct StopSituation {
    int Queued = 0;                     ///< wishes that wait for the camera
    std::function<void()> Meanwhile{};  ///< done once the camera is driven
    const char* Driver = nullptr;       ///< null for any
  };
  /// Nothing where the camera took no drive.
  std::optional<StopTime> StopOnce(LoadCamera& camera, const StopSituation& situation);
  /// Reserved cameras that know a continuous motion; of one driver, or of all where it is null.
  std::vector<LoadCamera*> Stoppable(const char* driver) const;
  void StopColumn(const char* name, std::size_t count, const StopSituation& situation);
  /// Asynchronous sends to other cameras; blocks until they are handed over.
  void SendToAll();
  static void Print(const std::string& name, std::vector<StopTime> times);

  struct Rate {
    double PerSecond, Processor;  ///< seconds of the processor for each
  };
  Rate OurRate(unsigned threads, Seconds time);
  Rate BareRate(unsigned threads, Seconds time);

  void Silence(std::size_t count);
  void Operate(unsigned index, unsigned operators, const std::atomic<bool>& stop);
  /// Has cameras go away and come back, and compares what they took with what is said of it.
  void Direct(const std::atomic<bool>& stop);
  void Settle();
  /// Waits until every camera is under control again.
  void AwaitReturn();
  void Return(std::size_t number);
  Answers Account() const;

  SimulatedSite Site_;
  std::vector<std::unique_ptr<LoadCamera>> Cameras_;
  std::map<std::string, std::vector<Kind>> Kinds_;  ///< by driver
  std::map<std::string, Kind> Quick_;               ///< of these the one that takes least time
  std::vector<std::size_t> Silent_;
  std::vector<std::unique_ptr<ptzd::HTTPClient>> Senders_;
  std::map<std::size_t, Clock::time_point> Away_, Returning_;  ///< since when
  std::minstd_rand Random_{1};                                 ///< who leaves; used by one thread at a time
  unsigned Stops_ = 0;
};

void Load::ConnectAll() {
  const auto began = Clock::now();
  std::vector<ptzd::Wish> wishes;
  for (const auto& camera : Cameras_) wishes.push_back(camera->Control().Connect());
  for (std::size_t i = 0; i < wishes.size(); ++i) {
    const auto outcome = wishes[i].Done.get();
    Demand(ptzd::IsDone(outcome.Result), Cameras_[i]->Driver() + " did not connect: " + outcome.Text);
  }
  std::printf("%zu cameras connected in %.1f s: %.1f MiB, %zu descriptors, %zu threads\n", Cameras_.size(),
              Seconds(Clock::now() - began).count(), static_cast<double>(ResidentKiB()) / 1024,
              OpenDescriptors(), Threads());
}

void Load::FindKinds() {
  for (const auto& camera : Cameras_) {
    if (Kinds_.contains(camera->Driver())) continue;
    auto& kinds = Kinds_[camera->Driver()];
    std::chrono::nanoseconds least = std::chrono::nanoseconds::max();
    for (const auto kind : LoadCamera::Kinds) {
      const auto began = Clock::now();
      // Not accounted for: it is here that one learns what a make cannot do.
      const auto outcome = camera->Try(kind);
      const auto took = Clock::now() - began;
      if (!LoadCamera::IsFulfilled(kind, outcome)) continue;
      kinds.push_back(kind);
      if (outcome.Exchanges.empty() || kind == Kind::Drive) continue;
      const auto each = took / static_cast<long>(outcome.Exchanges.size());
      if (each < least) Quick_[camera->Driver()] = kind, least = each;
    }
    if (kinds.empty()) throw std::runtime_error(camera->Driver() + " does nothing that was wished");
  }
}

double At(const std::vector<double>& sorted, double share) {
  return sorted[static_cast<std::size_t>(share * static_cast<double>(sorted.size() - 1))];
}

double Median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::ranges::sort(values);
  return At(values, 0.5);
}

void Load::Print(const std::string& name, std::vector<StopTime> times) {
  if (times.empty()) return Demand(false, "no stop was measured: " + name);
  std::vector<double> stops, bare;
  for (const auto& time : times) {
    stops.push_back(time.Stop);
    if (time.Bare) bare.push_back(*time.Bare);
  }
  std::ranges::sort(stops);
  const double base = Median(bare), beyond = At(stops, 0.5) - base;
  std::printf("  %-38s%6zu%9.2f%9.2f%9.2f%9.2f%9.2f\n", name.c_str(), stops.size(), base, At(stops, 0.5),
              At(stops, 0.95), At(stops, 0.99), stops.back());
  std::fflush(stdout);
  Demand(beyond <= StopLimit, "stop, " + name + ": " + std::to_string(beyond) + " ms beyond an exchange");
}

std::optional<Load::StopTime> Load::StopOnce(LoadCamera& camera, const StopSituation& situation) {
  using std::chrono::system_clock;
  StopTime time{};
  auto& control = camera.Control();
  const auto speeds =
      ptzd::DriveSpeeds{.PanTilt = ptzd::DriveSpeeds::Head{++Stops_ % 2 == 0 ? 5.F : -5.F, 0}};
  auto drive = control.DriveAt(speeds, 10s);
  if (const auto sent = drive.Wish.Sent.get(); !ptzd::IsDone(sent.Result)) {
    Demand(false, camera.Driver() + ", which was there all the time, took no drive: " + sent.Text);
    return std::nullopt;
  }
  if (const auto url = camera.BareURL(); !url.empty()) {
    thread_local BareCurl curl;
    curl.Get(url);
    const auto began = Clock::now();
    curl.Get(url);
    time.Bare = Milliseconds(Clock::now() - began).count();
  }
  if (situation.Meanwhile) situation.Meanwhile();
  for (int i = 0; i < situation.Queued; ++i) camera.Make(Kind::Reading, 0);
  const auto called = system_clock::now();
  const auto outcome = camera.Stop().Done.get();
  drive.Leave();
  if (!ptzd::IsDone(outcome.Result) || outcome.Exchanges.empty()) {
    Demand(false, camera.Driver() + ", which was there all the time, took no stop: " + outcome.Text);
    return std::nullopt;
  }
  const auto& first = outcome.Exchanges.front();
  time.Stop = Milliseconds(first.When - called + first.Took).count();
  return time;
}

std::vector<LoadCamera*> Load::Stoppable(const char* driver) const {
  std::vector<LoadCamera*> cameras;
  for (std::size_t i = 0; i < Cameras_.size(); ++i)
    if (IsReserved(i) && Does(*Cameras_[i], Kind::Drive) &&
        (driver == nullptr || Cameras_[i]->Driver() == driver))
      cameras.push_back(Cameras_[i].get());
  return cameras;
}

void Load::StopColumn(const char* name, std::size_t count, const StopSituation& situation) {
  const auto cameras = Stoppable(situation.Driver);
  std::vector<StopTime> times;
  for (std::size_t i = 0; i < count; ++i)
    if (const auto time = StopOnce(*cameras[i % cameras.size()], situation)) times.push_back(*time);
  Print(name, std::move(times));
}

void Load::SendToAll() {
  std::thread([this] {
    for (std::size_t i = 0; i < Cameras_.size(); ++i) {
      const auto url = Cameras_[i]->BareURL();
      if (IsReserved(i) || url.empty()) continue;
      Senders_.resize(Cameras_.size());
      if (!Senders_[i]) Senders_[i] = std::make_unique<ptzd::HTTPClient>();
      Senders_[i]->GetResourceAsync(url, "", "");
    }
  }).join();
}

void Load::MeasureStops() {
  std::printf("\nStop, from the call until the camera has answered it, in ms\n  %-38s%6s%9s%9s%9s%9s%9s\n",
              "", "stops", "exchange", "median", "95 %", "99 %", "longest");
  StopColumn("idle", 300, {});
  StopColumn("10 wishes queued", 300, {.Queued = 10});
  StopColumn("100 wishes queued", 200, {.Queued = 100});
  StopColumn("1000 wishes queued", 100, {.Queued = 1000});
  StopColumn("asynchronous", 100, {.Driver = "QVPTZ.Sony"});
  StopColumn("asynchronous, behind sends to all", 30,
             {.Meanwhile = [this] { SendToAll(); }, .Driver = "QVPTZ.Sony"});
  while (ptzd::AsyncHandles().Count() > 0) std::this_thread::sleep_for(1ms);
  Senders_.clear();
  for (const std::size_t silent : {std::size_t(8), Cameras_.size() / SilentShare}) {
    Silence(silent);
    const auto keepBusy = [this] {
      for (const auto number : Silent_)
        if (Cameras_[number]->Outstanding() < MostOutstanding) Cameras_[number]->Make(Kind::Reading, 0);
    };
    StopColumn((std::to_string(Silent_.size()) + " cameras silent").c_str(), 200, {.Meanwhile = keepBusy});
  }
}

void Load::Silence(std::size_t count) {
  for (std::size_t i = 1; Silent_.size() < count && i < Cameras_.size(); i += 7) {
    if (IsReserved(i) || !Cameras_[i]->Replies() || !Cameras_[i]->IsHere()) continue;
    Cameras_[i]->Is(LoadCamera::Presence::Away);
    Site_.Break(i, "silent");
    Silent_.push_back(i);
  }
}

Load::Rate Load::OurRate(unsigned threads, Seconds time) {
  std::atomic<bool> stop = false;
  const auto exchanges = [this] {
    std::size_t all = 0;
    for (const auto& camera : Cameras_) all += camera->Ledger().Exchanges();
    return all;
  };
  const auto before = exchanges();
  const auto processor = ProcessorTime();
  const auto began = Clock::now();
  std::vector<std::thread> operators;
  for (unsigned index = 0; index < threads; ++index)
    operators.emplace_back([this, index, threads, &stop] {
      for (unsigned turn = 0; !stop; ++turn)
        for (std::size_t i = index; i < Cameras_.size() && !stop; i += threads) {
          auto& camera = *Cameras_[i];
          if (!camera.BareURL().empty()) camera.Make(Quick_.at(camera.Driver()), turn).Sent.wait();
        }
    });
  std::this_thread::sleep_for(time);
  stop = true;
  for (auto& thread : operators) thread.join();
  const auto count = static_cast<double>(exchanges() - before);
  return {count / Seconds(Clock::now() - began).count(), (ProcessorTime() - processor).count() / count};
}

Load::Rate Load::BareRate(unsigned threads, Seconds time) {
  std::atomic<bool> stop = false;
  std::atomic<std::size_t> exchanges = 0;
  const auto processor = ProcessorTime();
  const auto began = Clock::now();
  std::vector<std::thread> operators;
  for (unsigned index = 0; index < threads; ++index)
    operators.emplace_back([this, index, threads, &stop, &exchanges] {
      std::map<std::size_t, BareCurl> handles;
      while (!stop)
        for (std::size_t i = index; i < Cameras_.size() && !stop; i += threads) {
          const auto url = Cameras_[i]->BareURL();
          if (url.empty()) continue;
          handles[i].Get(url);
          ++exchanges;
        }
    });
  std::this_thread::sleep_for(time);
  stop = true;
  for (auto& thread : operators) thread.join();
  const auto count = static_cast<double>(exchanges.load());
  return {count / Seconds(Clock::now() - began).count(), (ProcessorTime() - processor).count() / count};
}

void Load::MeasureThroughput() {
  constexpr int rounds = 3;
  constexpr Seconds time = 2s;
  std::printf("\nThroughput over HTTP, exchanges a second, and processor time of this process for each\n");
  for (const unsigned threads : {1U, ManyOperators}) {
    std::vector<double> rates, ratios, costs;
    for (int i = 0; i < rounds; ++i) {
      const auto bare = BareRate(threads, time), ours = OurRate(threads, time);
      rates.push_back(ours.PerSecond);
      ratios.push_back(ours.PerSecond / bare.PerSecond);
      costs.push_back(ours.Processor * 1e6);
    }
    const double ratio = Median(ratios);
    std::printf("  %2u operators: %8.0f, %6.1f us, ratio to bare libcurl %.2f (limit %.2f)\n", threads,
                Median(rates), Median(costs), ratio, ThroughputLimit);
    std::fflush(stdout);
    Demand(ratio >= ThroughputLimit, "throughput with " + std::to_string(threads) + " operators");
  }
}

void Load::Operate(unsigned index, unsigned operators, const std::atomic<bool>& stop) {
  std::minstd_rand random(index + 1);
  const auto pause = std::chrono::duration_cast<Clock::duration>(Seconds(operators / WishesPerSecond));
  for (auto next = Clock::now(); !stop; next += pause) {
    std::this_thread::sleep_until(next);
    const auto number = random() % (Cameras_.size() / operators) * operators + index;
    auto& camera = *Cameras_[number];
    if (IsReserved(number) || !camera.TakesWishes() || camera.Outstanding() >= MostOutstanding) continue;
    const auto& kinds = KindsOf(camera);
    const auto turn = static_cast<unsigned>(random());
    if (turn % 16 == 0 && Does(camera, Kind::Drive))
      camera.Stop();
    else
      camera.Make(kinds[turn / 16 % kinds.size()], turn / 256);
  }
}

void Load::Return(std::size_t number) {
  auto& camera = *Cameras_[number];
  camera.Is(LoadCamera::Presence::Returning);
  Site_.Mend(number);
  // Only who tries finds out that a line which answers nothing has broken.
  camera.Make(KindsOf(camera).front(), 0);
  Returning_[number] = Clock::now();
}

void Load::Direct(const std::atomic<bool>& stop) {
  using Presence = LoadCamera::Presence;
  std::map<std::size_t, int> leaving;  ///< for how many seconds nothing was wished of it
  for (unsigned second = 0; !stop; ++second) {
    // What was written to a camera that answers nothing may still be on its way.
    for (auto entry = leaving.begin(); entry != leaving.end();) {
      const auto number = entry->first;
      auto& calm = entry->second;
      calm = Cameras_[number]->Outstanding() > 0 ? 0 : calm + 1;
      if (calm < 2) {
        ++entry;
        continue;
      }
      Site_.Break(number, "refuse");
      Cameras_[number]->Is(Presence::Away);
      Away_[number] = Clock::now();
      entry = leaving.erase(entry);
    }
    for (std::size_t i = 0; i < Cameras_.size() / 100; ++i) {
      const std::size_t number = Random_() % Cameras_.size();
      auto& camera = *Cameras_[number];
      if (IsReserved(number) || !camera.IsHere()) continue;
      camera.Is(Presence::Leaving);
      if (!camera.Replies()) {
        leaving[number] = 0;
        continue;
      }
      camera.Is(Presence::Away);
      Site_.Break(number, "refuse");
      Away_[number] = Clock::now();
    }
    for (auto entry = Away_.begin(); entry != Away_.end();) {
      if (entry->second + AwayTime > Clock::now()) {
        ++entry;
        continue;
      }
      Return(entry->first);
      entry = Away_.erase(entry);
    }
    for (int i = 0; i < 10 && !stop; ++i) {
      std::this_thread::sleep_for(100ms);
      std::erase_if(Returning_, [this](const auto& entry) {
        const bool late = Clock::now() > entry.second + ReturnLimit;
        if (late) Demand(false, Cameras_[entry.first]->Driver() + " returned and was not connected again");
        return Cameras_[entry.first]->IsBack() || late;
      });
    }
    if (second % 10 == 9) Settle();
  }
  for (const auto& entry : leaving) Cameras_[entry.first]->Is(Presence::Here);
}

void Load::Settle() {
  for (std::size_t i = 0; i < Cameras_.size(); ++i) {
    const auto log = Site_.Take(i);
    Cameras_[i]->Ledger().Settle(log.Requests);
    for (const auto& violation : log.Violations)
      Demand(false, Cameras_[i]->Driver() + " was sent what no such camera knows: " + violation);
  }
}

std::vector<SoakSample> Load::Endure(unsigned operators, Seconds time, const std::string& name) {
  Silence(Cameras_.size() / SilentShare);
  std::atomic<bool> stop = false;
  std::vector<std::thread> threads;
  for (unsigned i = 0; i < operators; ++i)
    threads.emplace_back([this, i, operators, &stop] { Operate(i, operators, stop); });
  threads.emplace_back([this, &stop] { Direct(stop); });

  const Seconds interval = std::clamp<Seconds>(time / 360, 1s, 10s);
  const auto began = Clock::now();
  std::vector<SoakSample> samples;
  std::vector<StopTime> all;
  std::vector<double> since;
  const auto stoppable = Stoppable(nullptr);
  std::size_t turn = 0;
  for (auto next = began + interval; Clock::now() - began < time;) {
    if (const auto stopped = StopOnce(*stoppable[turn++ % stoppable.size()], {})) {
      all.push_back(*stopped);
      since.push_back(stopped->Stop);
    }
    std::this_thread::sleep_for(100ms);
    if (Clock::now() < next || since.empty()) continue;
    next += std::chrono::duration_cast<Clock::duration>(interval);
    samples.push_back({Seconds(Clock::now() - began).count(), ResidentKiB(), OpenDescriptors(), Threads(),
                       Account().All(), Median(since), std::ranges::max(since)});
    since.clear();
  }
  stop = true;
  for (auto& thread : threads) thread.join();
  Print(name, std::move(all));
  return samples;
}

Answers Load::Account() const {
  Answers all;
  for (const auto& camera : Cameras_) all += camera->Account();
  return all;
}

void Load::AwaitReturn() {
  for (const auto& [number, since] : std::exchange(Away_, {})) Return(number);
  for (const auto number : std::exchange(Silent_, {})) Return(number);
  const auto limit = Clock::now() + 2 * ReturnLimit;
  for (const auto& [number, since] : std::exchange(Returning_, {}))
    while (!Cameras_[number]->IsBack()) {
      if (Clock::now() > limit) {
        Demand(false, Cameras_[number]->Driver() + " returned and was not connected again");
        break;
      }
      std::this_thread::sleep_for(10ms);
    }
  for (const auto& camera : Cameras_)
    while (camera->Outstanding() > 0 && Clock::now() < limit) std::this_thread::sleep_for(10ms);
}

void Load::Conclude() {
  AwaitReturn();
  // What was written last to cameras that answer nothing is read by then.
  std::this_thread::sleep_for(2s);
  Settle();
  const auto all = Account();
  std::size_t exchanges = 0, missing = 0;
  for (const auto& camera : Cameras_) {
    exchanges += camera->Ledger().Exchanges();
    const auto lost = camera->Ledger().Missing();
    missing += lost.size();
    for (const auto& key : lost)
      Demand(false, camera->Driver() + " never got what it is said to have taken: " + key);
    for (const auto& complaint : camera->Complaints()) Demand(false, "lost: " + complaint);
  }
  std::printf(
      "\n%zu wishes: %zu done, %zu superseded, %zu needless, %zu to cameras that were absent, %zu lost, %zu "
      "unanswered\n",
      all.Wished, all.Done, all.Superseded, all.Needless, all.Absent, all.Lost, all.Wished - all.All());
  std::printf("%zu exchanges, of which %zu were said to be taken and never came\n", exchanges, missing);
  std::printf("%.1f MiB, %zu descriptors, %zu threads at the end\n",
              static_cast<double>(ResidentKiB()) / 1024, OpenDescriptors(), Threads());
  Demand(all.Lost == 0 && all.Wished == all.All(), "commands were lost");
}

void DemandFlat(const std::vector<SoakSample>& samples) {
  const double memory = Growth(samples, &SoakSample::ResidentKiB);
  const double descriptors = Growth(samples, &SoakSample::Descriptors);
  std::printf(
      "\nFrom the second fifth of the time to the last, memory grew by %.2f %% (limit %.0f), descriptors by"
      " %.2f %% (limit %.0f)\n",
      memory * 100, MemoryLimit * 100, descriptors * 100, DescriptorLimit * 100);
  Demand(memory <= MemoryLimit, "memory grows");
  Demand(descriptors <= DescriptorLimit, "descriptors grow");
}

int Run(int argc, char** argv) {
  std::size_t cameras = 1000;
  double soak = 0;
  std::string output = "soak";
  CLI::App app("Drives a site of simulated cameras of all makes, and says what was lost.");
  app.add_option("--cameras", cameras, "How many")->check(CLI::Range(200, 4000))->capture_default_str();
  const std::map<std::string, double> units = {{"s", 1}, {"m", 60}, {"h", 3600}};
  app.add_option("--soak", soak, "Only a soak of this time: 90s, 5m, 1h")
      ->transform(CLI::AsNumberWithUnit(units));
  app.add_option("--output", output, "Of a soak: where its curves go, as .csv and .svg")
      ->capture_default_str();
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }

  Load load(cameras);
  load.ConnectAll();
  load.FindKinds();
  if (soak > 0) {
    const auto samples = load.Endure(ManyOperators, Seconds(soak), "64 operators");
    load.Conclude();
    WriteTable(output + ".csv", samples);
    WritePicture(output + ".svg", samples, std::to_string(cameras) + " cameras, 64 operators");
    DemandFlat(samples);
  } else {
    load.MeasureThroughput();
    load.MeasureStops();
    load.Endure(1, 20s, "1 operator, 5 % silent, 1 % leave a second");
    load.Endure(ManyOperators, 20s, "64 operators, the same");
    load.Conclude();
  }
  for (const auto& fault : Faults) std::printf("  %s\n", fault.c_str());
  std::printf(Faults.empty() ? "\nNothing was lost, all within limits.\n" : "\nFAILED, as told above.\n");
  return Faults.empty() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "load: %s\n", error.what());
    return 2;
  }
}
