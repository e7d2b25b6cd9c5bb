// ptzgate over a site of simulated cameras of all makes, used by clients of all its interfaces at once, while
// cameras go away and come back and clients are killed in mid-drive. Prints what a command costs more than by
// CameraControl in the same process, what a gateway of that size needs, what became of all wishes, and how
// long stops took. Ends with exit code 1 when something was lost or a limit was broken.
//   gate_load [--gate PTZGATE] [--cameras 1000] [--clients 200] [--time 10m]

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <fstream>
#include <functional>
#include <set>
#include <stdexcept>

#include "GateBook.h"
#include "GateClients.h"
#include "GateProcess.h"
#include "LoadCamera.h"
#include "Process.h"
#include "Soak.h"

namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using Seconds = std::chrono::duration<double>;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr std::size_t AwayShare = 20;  ///< of the cameras that say anything, one of so many
constexpr auto AwayTime = 10s, ReturnLimit = 90s;
constexpr auto CalmTime = 16s;  ///< a request that met the silence has ended by then
constexpr std::chrono::milliseconds DriveOfLearning = 1s;

// What must hold.
/// A move through the gateway, as many times as long; by MQTT two more processes have a hand in it.
constexpr double LatencyLimit = 6, BrokerLatencyLimit = 12;
constexpr Seconds LeastToGrow = 5min;  ///< before that, what is kept of each camera's exchanges fills up
constexpr double CutOffLimit = 0.005;  ///< of all wishes
/// Growth. The last exchanges of each camera are kept, and of 1000 these fill up for minutes.
constexpr double MemoryLimit = 0.05, DescriptorLimit = 0.05;

double At(const std::vector<double>& sorted, double share) {
  return sorted[static_cast<std::size_t>(share * static_cast<double>(sorted.size() - 1))];
}

std::string LastLine(const std::string& file) {
  std::ifstream lines(file);
  std::string last;
  for (std::string line; std::getline(lines, line);) last = line;
  return last;
}

class GateLoad {
 public:
  GateLoad(const std::string& program, std::size_t cameras, std::string output);

  void MeasureStart();
  void MeasureLatency();
  void Learn();
  void Endure(std::size_t clients, Seconds time);
  void Conclude();
  std::vector<std::string> Faults() const;

 private:
  void Demand(bool holds, const std::string& what) {
    if (!holds) Book_.Complain(what);
  }
  /// The makes that a few cameras of each are enough to know.
  void LearnMake(std::size_t first);
  /// `after`: what came towards the end of a drive.
  std::set<std::string> KeysOf(HTTPLine& line, std::size_t camera, const GateWish& wish,
                               std::set<std::string>& after);
  /// Has cameras go away and come back.
  void Direct(const std::atomic<bool>& stop);
  void LetReturn(HTTPLine& line, bool all);
  double Metric(const std::string& name);
  GateClient::Place PlaceOfClients() { return {Gate_.Port(), Broker_.Port(), Book_, Makes_}; }
  /// Waits for what the site comes to; complains where it does not.
  void Await(const std::string& what, const std::function<std::string()>& remains);

  const std::string Output_;
  OwnFolder Folder_;
  SimulatedSite Site_;  // before this process has threads
  BrokerProcess Broker_;
  SteadyClock::time_point Began_ = SteadyClock::now();
  GateProcess Gate_;
  GateBook Book_;
  std::vector<std::unique_ptr<Station>> Stations_;
  std::mutex MakesMutex_;
  std::map<std::string, GateMake> Makes_;
  std::map<std::size_t, SteadyClock::time_point> Away_, Returning_;  ///< since when
  std::vector<std::unique_ptr<Follower>> Followers_;
  std::minstd_rand Random_{1};
  double WishesBefore_ = 0, StopsBefore_ = 0, RefusalsBefore_ = 0, LeasesBefore_ = 0;
};

GateLoad::GateLoad(const std::string& program, std::size_t cameras, std::string output)
    : Output_(std::move(output)),
      Site_(cameras),
      Broker_(Folder_),
      Gate_(program, Folder_, Site_, Broker_.Port()) {
  for (std::size_t i = 0; i < cameras; ++i) Stations_.push_back(std::make_unique<Station>(Site_, i));
  std::printf("%zu cameras; ptzgate listens after %.2f s%s\n", cameras,
              Seconds(SteadyClock::now() - Began_).count(),
              Broker_.Port() == 0 ? "; there is no broker, so nobody comes by MQTT" : "");
}

void GateLoad::Await(const std::string& what, const std::function<std::string()>& remains) {
  const auto limit = SteadyClock::now() + ReturnLimit;
  for (std::string still; !(still = remains()).empty(); std::this_thread::sleep_for(200ms))
    if (SteadyClock::now() > limit) return Book_.Complain(what + " in vain: " + still);
}

void GateLoad::MeasureStart() {
  HTTPLine line(Gate_.Port());
  // Those that move when they are connected are left alone until they are needed.
  std::map<std::string, int> before;
  Await("cameras were connected", [&] {
    std::map<std::string, int> links;
    for (const auto& camera : line.Get("/api/v1/cameras")["cameras"]) ++links[camera["link"]];
    const bool isOver = links == std::exchange(before, links) && links["connecting"] + links["lost"] == 0;
    return isOver ? "" : std::to_string(links["connecting"] + links["lost"]);
  });
  std::printf("all connected after %.2f s and %.2f s of the processor\n",
              Seconds(SteadyClock::now() - Began_).count(), ProcessorTime(Gate_.Number()).count());
  std::this_thread::sleep_for(7s);  // their threads end when there is nothing to do
  const auto processor = ProcessorTime(Gate_.Number());
  std::this_thread::sleep_for(5s);
  std::printf("idle: %.1f MiB (%.1f KiB a camera), %zu descriptors, %zu threads, %.2f %% of a processor\n",
              static_cast<double>(ResidentKiB(Gate_.Number())) / 1024,
              static_cast<double>(ResidentKiB(Gate_.Number())) / static_cast<double>(Stations_.size()),
              OpenDescriptors(Gate_.Number()), Threads(Gate_.Number()),
              (ProcessorTime(Gate_.Number()) - processor).count() / 5 * 100);
}

// What a move costs more by way of the gateway.

void GateLoad::MeasureLatency() {
  using Kind = GateClient::Kind;
  constexpr unsigned rounds = 180;  // a WebSocket takes 200 messages at once
  const auto ports = std::make_shared<ptzd::SharedSerialPorts>();
  const auto direct = [&](std::size_t index) {
    return std::make_unique<LoadCamera>(Site_.Cameras()[index], ports, 0);
  };
  // A make that cannot tell where it is, and whose moves are one exchange: over when they are sent.
  std::size_t first = 0;
  for (bool isFound = false; first < SimulatedSite::Makes && !isFound; first += isFound ? 0 : 1) {
    if (Site_.Cameras()[first].Address.starts_with('/')) continue;
    const auto candidate = direct(first);
    isFound = candidate->Replies() && candidate->Data().Source() == ptzd::PositionSource::Estimate &&
              ptzd::IsDone(candidate->Try(LoadCamera::Kind::Step).Result) &&
              candidate->Try(LoadCamera::Kind::Step).Exchanges.size() == 1;
  }
  const GateWish moves[] = {{"move", {{"by", {{"pan", -8}, {"tilt", -6}}}}, {}},
                            {"move", {{"by", {{"pan", 8}, {"tilt", 6}}}}, {}}};
  std::printf("\nA move of %s until it is known to be done, beside one by CameraControl in this process\n",
              Site_.Cameras().at(first).Driver.c_str());
  const auto timed = [](const std::function<bool()>& move) {
    const auto began = SteadyClock::now();
    if (!move()) throw std::runtime_error("a move of a camera at rest was not done");
    return Milliseconds(SteadyClock::now() - began).count();
  };
  HTTPLine line(Gate_.Port());
  // Each on a camera of its own, since whoever moves one holds it.
  std::size_t index = first;
  for (const auto& [how, kind] :
       {std::pair("HTTP", Kind::HTTP), {"a WebSocket", Kind::Live}, {"MQTT", Kind::MQTT}}) {
    if (kind == Kind::MQTT && Broker_.Port() == 0) continue;
    const double limit = kind == Kind::MQTT ? BrokerLatencyLimit : LatencyLimit;
    auto& station = *Stations_[index];
    const auto own = direct(index);
    std::unique_ptr<GateClient> client;
    if (kind != Kind::HTTP) client = GateClient::Make(kind, PlaceOfClients(), {&station}, 1000);
    index += SimulatedSite::Makes;
    std::vector<double> bare, through, ratios;
    for (unsigned turn = 0; turn < rounds; ++turn) {
      bare.push_back(
          timed([&] { return ptzd::IsDone(own->Make(LoadCamera::Kind::Step, turn).Done.get().Result); }));
      through.push_back(timed([&] {
        return (client ? client->Do(station, moves[turn % 2])
                       : line.Wish(GateProcess::NameOf(station.Index()), moves[turn % 2]))
            .IsDone;
      }));
      ratios.push_back(through.back() / bare.back());
    }
    for (auto* values : {&bare, &through, &ratios}) std::ranges::sort(*values);
    std::printf("  by %-12s median %.3f ms, beside %.3f; 99 %% %.2f, beside %.2f; ratio %.2f (limit %.0f)\n",
                how, At(through, 0.5), At(bare, 0.5), At(through, 0.99), At(bare, 0.99), At(ratios, 0.5),
                limit);
    Demand(At(ratios, 0.5) <= limit, std::string("the latency of a move by ") + how);
  }
}

// What cameras get of each wish.

std::set<std::string> GateLoad::KeysOf(HTTPLine& line, std::size_t camera, const GateWish& wish,
                                       std::set<std::string>& after) {
  auto& station = *Stations_[camera];
  // What came just before is not to be taken for this: the log's times are no finer than that.
  std::this_thread::sleep_for(10ms);
  const auto began = SteadyClock::now();
  auto sent = wish;
  if (sent.IsDrive()) sent.Body["lease_ms"] = DriveOfLearning.count();
  const auto answer = line.Wish(GateProcess::NameOf(camera), sent, !wish.IsMove());
  if (!answer.IsDone && !(wish.IsDrive() && answer.Result == "stopped")) return {};
  // What went out to a line that says nothing may be on its way.
  if (!station.Replies()) std::this_thread::sleep_for(300ms);
  const auto middle = wish.IsDrive() ? began + DriveOfLearning * 3 / 4 : SteadyClock::time_point::max();
  after = station.GotBetween(middle, SteadyClock::time_point::max());
  return station.GotBetween(began, middle);
}

void GateLoad::LearnMake(std::size_t first) {
  HTTPLine line(Gate_.Port());
  const GateWish wishes[] = {{"position", {}, {}},
                             {"stop", {}, {}},
                             {"drive", {{"part", {{"pan", 0.5}}}}, {}},
                             {"drive", {{"part", {{"pan", -0.5}}}}, {}},
                             {"go", {{"preset", "1"}}, {}},
                             {"move", {{"to", {{"pan", 10}, {"tilt", 5}}}}, {}},
                             {"move", {{"to", {{"pan", -10}, {"tilt", 8}}}}, {}},
                             {"move", {{"by", {{"pan", 8}, {"tilt", 6}}}}, {}},
                             {"zoom", {{"by", 1}}, {}},
                             {"iris", {{"level", "open"}}, {}},
                             {"iris", {{"level", "close"}}, {}},
                             {"focus", {{"level", "near"}}, {}},
                             {"focus", {{"level", "far"}}, {}}};
  constexpr std::size_t count = std::size(wishes);
  using Times = std::vector<std::set<std::string>>;
  std::set<std::string> readings;
  Times all[count], afterwards[count];
  for (const auto camera : {first, first + SimulatedSite::Makes})
    for (int again = 0; again < 2; ++again)
      for (std::size_t i = 0; i < count; ++i) {
        std::set<std::string> after;
        all[i].push_back(KeysOf(line, camera, wishes[i], after));
        afterwards[i].push_back(std::move(after));
        if (wishes[i].Word == "position") readings.insert(all[i].back().begin(), all[i].back().end());
      }
  // What came of it each time, but for readings, which come at any time.
  const auto always = [&](const Times& times) {
    std::set<std::string> keys;
    for (const auto& key : times.front())
      if (!readings.contains(key) &&
          std::ranges::all_of(times, [&](const auto& other) { return other.contains(key); }))
        keys.insert(key);
    return keys;
  };
  GateMake make;
  for (std::size_t i = 0; i < count; ++i) {
    auto wish = wishes[i];
    wish.Keys = always(all[i]);
    if (wish.IsDrive()) {
      const GateWish stop{"stop", {}, always(afterwards[i])};
      if (!wish.Keys.empty() && !stop.Keys.empty()) make.Drives.push_back({wish, stop});
    } else if (wish.Word == "stop") {
      if (!wish.Keys.empty()) make.Wishes.push_back(wish);
    } else if (std::ranges::all_of(all[i], [&](const auto& keys) {
                 return std::ranges::any_of(keys, [&](const auto& key) { return !readings.contains(key); });
               })) {
      // From where the camera is then, it is something else each time.
      wish.Keys = readings;
      wish.IsAnyOther = true;
      make.Wishes.push_back(wish);
    }
  }
  // Whoever moved a camera holds it.
  for (const auto camera : {first, first + SimulatedSite::Makes})
    line.Ask("DELETE", "/api/v1/cameras/" + GateProcess::NameOf(camera) + "/control");
  const auto& driver = Site_.Cameras()[first].Driver;
  const std::lock_guard lock(MakesMutex_);
  Demand(!make.Wishes.empty(), driver + " gets nothing that could be known again");
  Makes_[driver] = std::move(make);
}

void GateLoad::Learn() {
  std::vector<std::thread> threads;
  for (std::size_t first = 0; first < SimulatedSite::Makes; ++first)
    threads.emplace_back([this, first] {
      try {
        LearnMake(first);
      } catch (const std::exception& error) {
        Book_.Complain(error.what());
      }
    });
  for (auto& thread : threads) thread.join();
  std::printf("\nwhat is wished of each make, and known again in the log of its cameras:\n");
  for (const auto& [driver, make] : Makes_) {
    std::printf("  %-20s", driver.c_str());
    if (!make.Drives.empty()) std::printf(" drive");
    std::set<std::string> words;
    for (const auto& wish : make.Wishes) words.insert(wish.Word);
    for (const auto& word : words) std::printf(" %s", word.c_str());
    std::printf("\n");
  }
}

// The run.

void GateLoad::LetReturn(HTTPLine& line, bool all) {
  const auto now = SteadyClock::now();
  std::erase_if(Away_, [&](const auto& away) {
    if (!all && now < away.second + AwayTime) return false;
    Stations_[away.first]->Return();
    Returning_[away.first] = now;
    return true;
  });
  std::erase_if(Returning_, [&](const auto& returning) {
    const auto link = line.Get("/api/v1/cameras/" + GateProcess::NameOf(returning.first))["link"];
    const bool isLate = now > returning.second + ReturnLimit;
    Demand(!isLate, Stations_[returning.first]->Driver() + " returned, and is still " + std::string(link));
    // One that moves when it is connected was perhaps never connected before.
    const bool isCalm = now > returning.second + CalmTime;
    if ((link == "lost" || link == "connecting" || !isCalm) && !isLate) return false;
    Stations_[returning.first]->IsBack();
    return true;
  });
}

void GateLoad::Direct(const std::atomic<bool>& stop) {
  HTTPLine line(Gate_.Port());
  while (!stop) {
    LetReturn(line, false);
    while (Away_.size() < Stations_.size() / AwayShare) {
      const auto number = Random_() % Stations_.size();
      auto& camera = *Stations_[number];
      if (!camera.Replies() || !camera.IsHere()) continue;
      camera.Leave(Random_() % 4 == 0 ? "refuse" : "silent");
      Away_[number] = SteadyClock::now() - std::chrono::milliseconds(Random_() % 5000);
    }
    std::this_thread::sleep_for(250ms);
  }
}

double GateLoad::Metric(const std::string& name) {
  HTTPLine line(Gate_.Port());
  const auto text = line.Ask("GET", "/metrics").Body;
  const auto at = text.find("\n" + name + " ");
  if (at == std::string::npos) throw std::runtime_error("/metrics does not tell " + name);
  return std::stod(text.substr(at + name.size() + 2));
}

void GateLoad::Endure(std::size_t clients, Seconds time) {
  using Kind = GateClient::Kind;
  Book_.TakeStops();
  WishesBefore_ = Metric("ptzgate_wishes_total");
  RefusalsBefore_ = Metric("ptzgate_refusals_total");
  LeasesBefore_ = Metric("ptzgate_leases_ended_total");
  StopsBefore_ = Metric("ptzgate_stop_seconds_count") + Metric("ptzgate_stops_failed_total");
  // Of ten clients one looks on, one is an NVR, one an automation, three speak HTTP, four sit before a page.
  constexpr Kind turns[] = {Kind::Live, Kind::HTTP, Kind::Live, Kind::SOAP, Kind::HTTP,
                            Kind::Live, Kind::MQTT, Kind::HTTP, Kind::Live};
  const auto followers = clients / 10, movers = clients - followers;
  for (std::size_t i = 0; i < followers; ++i) Followers_.push_back(std::make_unique<Follower>(Gate_.Port()));
  std::vector<std::vector<Station*>> shares(movers);
  for (std::size_t i = 0; i < Stations_.size(); ++i) shares[i % movers].push_back(Stations_[i].get());

  std::atomic<bool> stop = false, stopDirecting = false;
  std::vector<std::thread> threads;
  const auto place = PlaceOfClients();
  for (std::size_t i = 0; i < movers; ++i) {
    auto kind = turns[i % std::size(turns)];
    if (kind == Kind::MQTT && Broker_.Port() == 0) kind = Kind::HTTP;
    threads.emplace_back([this, i, kind, &place, &stop, &share = shares[i]] {
      try {
        GateClient::Make(kind, place, std::move(share), static_cast<unsigned>(i) + 1)->Run(stop);
      } catch (const std::exception& error) {
        Book_.Complain(std::string("a client cannot begin: ") + error.what());
      }
    });
  }
  std::thread director([this, &stopDirecting] { Direct(stopDirecting); });

  const auto began = SteadyClock::now();
  const auto processor = ProcessorTime(Gate_.Number());
  const auto interval =
      std::chrono::duration_cast<SteadyClock::duration>(std::clamp<Seconds>(time / 100, 1s, 10s));
  std::vector<SoakSample> samples;
  std::vector<double> stops;
  while (SteadyClock::now() - began < time && Gate_.Runs()) {
    std::this_thread::sleep_for(interval);
    auto since = Book_.TakeStops();
    std::ranges::sort(since);
    stops.insert(stops.end(), since.begin(), since.end());
    samples.push_back({Seconds(SteadyClock::now() - began).count(), ResidentKiB(Gate_.Number()),
                       OpenDescriptors(Gate_.Number()), Threads(Gate_.Number()), Book_.Now().Wished,
                       since.empty() ? 0 : At(since, 0.5), since.empty() ? 0 : since.back()});
  }
  const auto used = ProcessorTime(Gate_.Number()) - processor;
  const auto took = Seconds(SteadyClock::now() - began);
  const auto wished = Book_.Now().Wished;
  Demand(Gate_.Runs(), "ptzgate ended");
  stop = true;
  for (auto& thread : threads) thread.join();
  stopDirecting = true;
  director.join();

  std::size_t events = 0;
  for (const auto& follower : Followers_) events += follower->Events();
  std::printf("\n%zu clients for %.0f s: %.0f wishes a second, %.0f events a second to those who look on\n",
              clients, took.count(), static_cast<double>(wished) / took.count(),
              static_cast<double>(events) / took.count());
  const auto& last = samples.back();
  std::printf(
      "ptzgate: %.2f ms of the processor a wish (%.0f %% of one), %.1f MiB, %zu descriptors, %zu threads\n",
      used.count() * 1e3 / static_cast<double>(wished), used / took * 100,
      static_cast<double>(last.ResidentKiB) / 1024, last.Descriptors, last.Threads);
  std::ranges::sort(stops);
  if (stops.empty()) return Book_.Complain("no stop was measured");
  std::printf(
      "%zu stops, from the client's request until the camera had it: median %.2f ms, 95 %% %.2f, 99 %% %.2f,"
      " longest %.1f (%s)\n",
      stops.size(), At(stops, 0.5), At(stops, 0.95), At(stops, 0.99), stops.back(),
      Book_.DriverOfLongestStop().c_str());
  auto killed = Book_.KilledStops();
  std::ranges::sort(killed);
  if (!killed.empty())
    std::printf(
        "%zu clients killed in mid-drive: their cameras had a stop after %.2f ms in the median, longest "
        "%.1f\n",
        killed.size(), At(killed, 0.5), killed.back());
  if (!Output_.empty()) WriteTable(Output_, samples);
  if (time < LeastToGrow) return;
  const double memory = Growth(samples, &SoakSample::ResidentKiB);
  const double descriptors = Growth(samples, &SoakSample::Descriptors);
  std::printf(
      "from the second fifth of the time to the last, memory grew by %.2f %% (limit %.0f), descriptors by"
      " %.2f %% (limit %.0f)\n",
      memory * 100, MemoryLimit * 100, descriptors * 100, DescriptorLimit * 100);
  Demand(memory <= MemoryLimit, "memory grows");
  Demand(descriptors <= DescriptorLimit, "descriptors grow");
}

void GateLoad::Conclude() {
  HTTPLine line(Gate_.Port());
  Await("cameras returned", [&] {
    LetReturn(line, true);
    return Returning_.empty() ? "" : std::to_string(Returning_.size());
  });
  Await("all stops were taken", [&] {
    const auto left = Metric("ptzgate_queued_wishes") + Metric("ptzgate_stops_pending");
    return left == 0 ? "" : std::to_string(left);
  });
  Await("cameras came to rest", [&]() -> std::string {
    for (const auto& camera : Stations_)
      if (Site_.IsMoving(camera->Index())) return camera->Driver();
    return "";
  });
  // Nothing changes any more; whoever looks on knows all that was told last.
  Await("all that changed was told", [&]() -> std::string {
    for (const auto& camera : line.Get("/api/v1/cameras")["cameras"])
      for (const auto& follower : Followers_)
        if (follower->IsLost() ||
            follower->VersionOf(camera["name"]) != camera["version"].get<std::uint64_t>())
          return follower->IsLost() ? "a follower was dropped" : camera["name"].get<std::string>();
    return "";
  });
  const auto all = Book_.Now();
  const auto judged =
      all.Done + all.Superseded + all.Needless + all.Absent + all.Killed + all.CutOff + all.Lost;
  std::printf(
      "\n%zu wishes: %zu done, %zu superseded, %zu needless, %zu to cameras that were absent, %zu whose "
      "client"
      " was killed, %zu whose client was cut off, %zu lost, %zu unanswered\n",
      all.Wished, all.Done, all.Superseded, all.Needless, all.Absent, all.Killed, all.CutOff, all.Lost,
      all.Wished - judged);
  Demand(static_cast<double>(all.CutOff) <= CutOffLimit * static_cast<double>(all.Wished),
         "clients who read all the time were cut off");
  const auto agree = [&](const char* what, double told, std::size_t least, std::size_t most) {
    std::printf("  /metrics tells %.0f %s, its clients %zu\n", told, what, least);
    Demand(told >= static_cast<double>(least) && told <= static_cast<double>(most),
           std::string("/metrics and clients agree on ") + what);
  };
  agree("wishes", Metric("ptzgate_wishes_total") - WishesBefore_, all.Wished - all.Refused - all.CutOff,
        all.Wished);
  agree("stops", Metric("ptzgate_stop_seconds_count") + Metric("ptzgate_stops_failed_total") - StopsBefore_,
        all.Stops - std::min(all.Stops, all.CutOff), all.Stops + all.CutOff);
  agree("refusals", Metric("ptzgate_refusals_total") - RefusalsBefore_, all.Refused, all.Refused);
  agree("leases that ended", Metric("ptzgate_leases_ended_total") - LeasesBefore_, all.Leases,
        all.Leases + all.UnseenLeases + all.CutOff);
  Demand(all.Lost == 0 && all.Wished == judged, "wishes were lost");
  for (const auto& camera : Stations_)
    for (const auto& violation : camera->Violations())
      Book_.Complain(camera->Driver() + " was sent what no such camera knows: " + violation);
  Followers_.clear();
  const auto began = SteadyClock::now();
  if (const int code = Gate_.End(); code != 0)
    Book_.Complain("ptzgate ended with " + std::to_string(code) + ": " + LastLine(Folder_ / "gate.log"));
  std::printf("ptzgate ended in %.2f s\n", Seconds(SteadyClock::now() - began).count());
}

std::vector<std::string> GateLoad::Faults() const { return Book_.Complaints(); }

int Run(int argc, char** argv) {
  std::string program = PTZGATE, output;
  std::size_t cameras = 1000, clients = 200;
  double time = 60;
  CLI::App app("Has clients use ptzgate over a site of simulated cameras, and says what was lost.");
  app.add_option("--gate", program, "The program")->capture_default_str();
  app.add_option("--cameras", cameras, "How many")->check(CLI::Range(40, 4000))->capture_default_str();
  app.add_option("--clients", clients, "How many")->check(CLI::Range(10, 2000))->capture_default_str();
  app.add_option("--output", output, "Where memory and stops over time go, as .csv");
  const std::map<std::string, double> units = {{"s", 1}, {"m", 60}, {"h", 3600}};
  app.add_option("--time", time, "How long: 30s, 10m, 1h")->transform(CLI::AsNumberWithUnit(units));
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  GateLoad load(program, cameras, output);
  load.MeasureStart();
  load.MeasureLatency();
  load.Learn();
  load.Endure(clients, Seconds(time));
  load.Conclude();
  const auto faults = load.Faults();
  for (const auto& fault : faults) std::printf("  %s\n", fault.c_str());
  std::printf(faults.empty() ? "\nNothing was lost, all within limits.\n" : "\nFAILED, as told above.\n");
  return faults.empty() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return Run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "gate_load: %s\n", error.what());
    return 2;
  }
}
