// A driver's command and a bare request, each against a reused libcurl handle that sends the same request,
// and an asynchronous send to a camera that never answers against a blocking command to one that does.
// Prints JSON: medians in microseconds, and the median of the ratios to what was timed right beside it, so
// that what else the machine does falls on both. scripts/bench runs all of it on one processor.

#include <time.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <ptzd/DriverFactory.h>
#include <ptzd/PropertyBag.h>
#include "BareCurl.h"
#include "LoopbackServer.h"
#include "transport/HTTPClient.h"
#include "transport/HTTPClientHelper.h"

namespace {

constexpr int Rounds = 3000;
constexpr int CommandsPerRound = 10;  ///< of each kind; few, so that most rounds are not interrupted
constexpr int Sends = 300;
constexpr std::chrono::milliseconds Pause{10};

constexpr const char* Paths[] = {"/axis-cgi/com/ptz.cgi?pan=5", "/axis-cgi/com/ptz.cgi?pan=0"};

double Microseconds(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

double Median(std::vector<double> values) {
  std::ranges::nth_element(values, values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2));
  return values[values.size() / 2];
}

double MedianRatio(const std::vector<double>& values, const std::vector<double>& bases) {
  std::vector<double> ratios;
  std::ranges::transform(values, bases, std::back_inserter(ratios), std::divides<>());
  return Median(std::move(ratios));
}

std::string AddressOf(const LoopbackServer& server) { return "127.0.0.1:" + std::to_string(server.Port()); }

/// A kind of command, and what one took in each round.
struct Kind {
  const char* Name;
  std::function<void(unsigned turn)> Command;
  std::vector<double> Latency{}, CPU{};

  void Measure() {
    Command(0);  // brings back what the other kinds drove from the caches
    const double began = Microseconds(CLOCK_MONOTONIC), used = Microseconds(CLOCK_THREAD_CPUTIME_ID);
    for (unsigned turn = 1; turn <= CommandsPerRound; ++turn) Command(turn);
    CPU.push_back((Microseconds(CLOCK_THREAD_CPUTIME_ID) - used) / CommandsPerRound);
    Latency.push_back((Microseconds(CLOCK_MONOTONIC) - began) / CommandsPerRound);
  }
};

void Commands(const LoopbackServer& camera) {
  const std::string urls[] = {"http://" + AddressOf(camera) + Paths[0],
                              "http://" + AddressOf(camera) + Paths[1]};
  BareCurl curl;
  curl.Get(urls[0]);
  const int before = camera.Connections();
  const auto driver = ptzd::CreateDriver("QVPTZ.Axis");
  ptzd::PropertyBag options;
  options.WriteProperty("Address", AddressOf(camera));
  if (!driver->Connect(options.Contents())) throw std::runtime_error("did not connect");

  ptzd::HTTPClient client;
  Kind kinds[] = {
      {"BareCurlCommand", [&](unsigned turn) { curl.Get(urls[turn % 2]); }},
      {"ClientGetResource", [&](unsigned turn) { client.GetResource(urls[turn % 2], "", ""); }},
      {"DriverMove",
       [&](unsigned turn) {
         if (!driver->Move(turn % 2 ? ptzd::DirectionRight : ptzd::DirectionLeft, 5))
           throw std::runtime_error("refused");
       }},
  };
  constexpr auto count = std::size(kinds);
  for (std::size_t round = 0; round < Rounds; ++round)
    for (std::size_t i = 0; i < count; ++i) kinds[(round + i) % count].Measure();

  const auto& base = kinds[0];
  for (const auto& kind : kinds)
    std::printf(
        "{\"name\": \"%s\", \"latency\": %.2f, \"cpu\": %.2f, \"latency_ratio\": %.3f,"
        " \"cpu_ratio\": %.3f}\n",
        kind.Name, Median(kind.Latency), Median(kind.CPU), MedianRatio(kind.Latency, base.Latency),
        MedianRatio(kind.CPU, base.CPU));
  // Those of a thread share theirs.
  std::printf("{\"name\": \"Connections\", \"count\": %d}\n", camera.Connections() - before);
}

/// Both after a pause, as by hand. The send finds the worker idle, and the requests before it unanswered.
void AsyncSends(const LoopbackServer& camera) {
  constexpr int mostUnanswered = 64;
  const LoopbackServer silent(1, LoopbackServer::Manner::Silent);
  const auto timed = [](const auto& call) {
    std::this_thread::sleep_for(Pause);
    const double began = Microseconds(CLOCK_MONOTONIC);
    call();
    return Microseconds(CLOCK_MONOTONIC) - began;
  };
  const auto url = "http://" + AddressOf(silent) + Paths[0];
  const auto answeringURL = "http://" + AddressOf(camera) + Paths[0];
  ptzd::HTTPClient blocking;
  std::vector<double> sends, commands;
  while (sends.size() < Sends) {
    ptzd::HTTPClient client;
    for (int i = 0; i < mostUnanswered; ++i) {
      const int before = silent.Requests();
      commands.push_back(timed([&] { blocking.GetResource(answeringURL, "", ""); }));
      sends.push_back(timed([&] { client.GetResourceAsync(url, "", ""); }));
      while (silent.Requests() == before) std::this_thread::yield();
    }
  }
  while (ptzd::AsyncHandles().Count() > 0) std::this_thread::yield();
  std::printf("{\"name\": \"AsyncSend\", \"latency\": %.2f, \"command\": %.2f, \"ratio\": %.3f}\n",
              Median(sends), Median(commands), MedianRatio(sends, commands));
}

}  // namespace

int main() {
  const LoopbackServer camera;
  Commands(camera);
  AsyncSends(camera);
}
