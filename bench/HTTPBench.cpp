// A driver's command and a bare request, each against a reused libcurl handle that sends the same request,
// and an asynchronous send to a camera that never answers. scripts/bench runs all of it on one processor.

#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include <ptzd/DriverFactory.h>
#include <ptzd/PropertyBag.h>
#include "BareCurl.h"
#include "LoopbackServer.h"
#include "transport/HTTPClient.h"
#include "transport/HTTPClientHelper.h"

namespace {

using SteadyClock = std::chrono::steady_clock;

LoopbackServer& Server() {
  static LoopbackServer server;
  return server;
}

std::string AddressOf(const LoopbackServer& server) { return "127.0.0.1:" + std::to_string(server.Port()); }

std::string UrlOf(const LoopbackServer& server, const char* command) {
  return "http://" + AddressOf(server) + command;
}

constexpr const char* Commands[] = {"/axis-cgi/com/ptz.cgi?pan=5", "/axis-cgi/com/ptz.cgi?pan=0"};

void BareCurlCommand(benchmark::State& state) {
  BareCurl curl;
  const std::string urls[] = {UrlOf(Server(), Commands[0]), UrlOf(Server(), Commands[1])};
  unsigned turn = 0;
  curl.Get(urls[0]);
  for (auto _ : state) benchmark::DoNotOptimize(curl.Get(urls[++turn % 2]).data());
}
BENCHMARK(BareCurlCommand);

void ClientGetResource(benchmark::State& state) {
  ptzd::HTTPClient client;
  const std::string urls[] = {UrlOf(Server(), Commands[0]), UrlOf(Server(), Commands[1])};
  unsigned turn = 0;
  client.GetResource(urls[0], "", "");
  for (auto _ : state) benchmark::DoNotOptimize(client.GetResource(urls[++turn % 2], "", "").data());
}
BENCHMARK(ClientGetResource);

void DriverMove(benchmark::State& state) {
  const int before = Server().Connections();
  const auto driver = ptzd::CreateDriver("QVPTZ.Axis");
  ptzd::PropertyBag options;
  options.WriteProperty("Address", AddressOf(Server()));
  if (!driver->Connect(options.Contents())) return state.SkipWithError("did not connect");
  unsigned turn = 0;
  for (auto _ : state) {
    if (!driver->Move(++turn % 2 ? ptzd::DirectionRight : ptzd::DirectionLeft, 5))
      state.SkipWithError("refused");
  }
  state.counters["connections"] = Server().Connections() - before;
}
BENCHMARK(DriverMove);

/// Each send finds the worker idle, as a send by hand does, and the requests before it unanswered.
void AsyncSend(benchmark::State& state) {
  constexpr int mostUnanswered = 64;
  static LoopbackServer camera(1, LoopbackServer::Manner::Silent);
  const auto url = UrlOf(camera, Commands[0]);
  auto client = std::make_unique<ptzd::HTTPClient>();
  int unanswered = 0;
  const auto waitUntil = [](const auto& done) {
    while (!done()) std::this_thread::yield();
  };
  const auto giveUpAll = [&] {
    client = std::make_unique<ptzd::HTTPClient>();
    waitUntil([] { return ptzd::AsyncHandles().Count() == 0; });
    unanswered = 0;
  };
  for (auto _ : state) {
    const int before = camera.Requests();
    const auto start = SteadyClock::now();
    client->GetResourceAsync(url, "", "");
    state.SetIterationTime(std::chrono::duration<double>(SteadyClock::now() - start).count());
    waitUntil([&] { return camera.Requests() > before; });
    if (++unanswered == mostUnanswered) giveUpAll();
  }
  giveUpAll();
}
BENCHMARK(AsyncSend)->UseManualTime()->Iterations(256);

}  // namespace

BENCHMARK_MAIN();
