// A driver's command and a bare request, each against a reused libcurl handle that sends the same request.

#include <benchmark/benchmark.h>

#include <thread>

#include "BareCurl.h"
#include "LoopbackServer.h"
#include "catalogue/DriverFactory.h"
#include "contract/PropertyBag.h"
#include "transport/HTTPClient.h"
#include "transport/HTTPClientHelper.h"

namespace {

LoopbackServer& Server() {
  static LoopbackServer server;
  return server;
}

std::string Address() { return "127.0.0.1:" + std::to_string(Server().Port()); }

constexpr const char* Commands[] = {"/axis-cgi/com/ptz.cgi?pan=5", "/axis-cgi/com/ptz.cgi?pan=0"};

void BareCurlCommand(benchmark::State& state) {
  BareCurl curl;
  const std::string urls[] = {"http://" + Address() + Commands[0], "http://" + Address() + Commands[1]};
  unsigned turn = 0;
  curl.Get(urls[0]);
  for (auto _ : state) benchmark::DoNotOptimize(curl.Get(urls[++turn % 2]).data());
}
BENCHMARK(BareCurlCommand);

void ClientGetResource(benchmark::State& state) {
  ptzd::HTTPClient client;
  const std::string urls[] = {"http://" + Address() + Commands[0], "http://" + Address() + Commands[1]};
  unsigned turn = 0;
  client.GetResource(urls[0], "", "");
  for (auto _ : state) benchmark::DoNotOptimize(client.GetResource(urls[++turn % 2], "", "").data());
}
BENCHMARK(ClientGetResource);

void DriverMove(benchmark::State& state) {
  const auto driver = ptzd::CreateDriver("QVPTZ.Axis");
  ptzd::PropertyBag options;
  options.WriteProperty("Address", Address());
  driver->Connect(options.Contents());
  unsigned turn = 0;
  const int before = Server().Connections();
  for (auto _ : state) {
    if (!driver->Move(++turn % 2 ? ptzd::DirectionRight : ptzd::DirectionLeft, 5))
      state.SkipWithError("refused");
  }
  state.counters["connections"] = Server().Connections() - before - 1;
}
BENCHMARK(DriverMove);

void AsyncSend(benchmark::State& state) {
  ptzd::HTTPClient client;
  const auto url = "http://" + Address() + Commands[0];
  for (auto _ : state) {
    client.GetResourceAsync(url, "", "");
    state.PauseTiming();
    while (ptzd::AsyncHandles().Count() != 0) std::this_thread::yield();
    state.ResumeTiming();
  }
}
BENCHMARK(AsyncSend);

}  // namespace

BENCHMARK_MAIN();
