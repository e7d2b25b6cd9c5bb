// A driver's frame against a bare write of the same bytes, what a reader at the speed of the line sees of
// frames offered to it, and how late a timed move ends. The line is a pseudo-terminal.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>
#include <vector>

#include <ptzd/DriverFactory.h>
#include <ptzd/PTZContinuousControl.h>
#include <ptzd/PropertyBag.h>
#include <ptzd/SerialPortPool.h>

namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr std::uint8_t Frame[] = {0xFF, 0x01, 0x00, 0x02, 0x3F, 0x00, 0x42};  // Pelco-D, pan right
constexpr int FramesABatch = 256;  // less than the line's buffer holds

class Line {
 public:
  Line() : FarEnd(posix_openpt(O_RDWR | O_NOCTTY)) {
    if (FarEnd < 0 || grantpt(FarEnd) != 0 || unlockpt(FarEnd) != 0) {
      std::perror("pseudo-terminal");
      std::exit(1);
    }
    Path = ptsname(FarEnd);
  }
  ~Line() { close(FarEnd); }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  void Drain(std::size_t count) const {
    std::uint8_t bytes[4096];
    while (count > 0) {
      const auto got = read(FarEnd, bytes, std::min(count, sizeof bytes));
      if (got <= 0) return;
      count -= static_cast<std::size_t>(got);
    }
  }

  int FarEnd;
  std::string Path;
};

std::unique_ptr<ptzd::PTZDevice> ConnectedDriver(const Line& line, std::int32_t moveInterval = 50) {
  const auto ports = std::make_shared<ptzd::SharedSerialPorts>();
  ports->MapDevice(1, line.Path);
  ptzd::UseSerialPortPool(ports);
  auto driver = ptzd::CreateDriver("QVPTZ.Pelco");
  ptzd::PropertyBag options;
  options.WriteProperty("COMPort", 1);
  options.WriteProperty("MoveInterval", moveInterval);
  if (!driver->Connect(options.Contents())) {
    std::fputs("the driver did not connect\n", stderr);
    std::exit(1);
  }
  return driver;
}

/// The time of a frame in batches, the far end being emptied between them.
template <typename Write>
void MeasureBatches(benchmark::State& state, const Line& line, const Write& write) {
  for (auto _ : state) {
    const auto start = SteadyClock::now();
    for (int i = 0; i < FramesABatch; ++i) write();
    state.SetIterationTime(std::chrono::duration<double>(SteadyClock::now() - start).count());
    line.Drain(FramesABatch * sizeof Frame);
  }
  state.counters["frames"] = FramesABatch;
}

void BareWrite(benchmark::State& state) {
  const Line line;
  const int file = open(line.Path.c_str(), O_RDWR | O_NOCTTY);
  termios raw{};
  tcgetattr(file, &raw);
  cfmakeraw(&raw);
  tcsetattr(file, TCSANOW, &raw);
  MeasureBatches(state, line, [&] {
    if (write(file, Frame, sizeof Frame) != sizeof Frame) state.SkipWithError("not written");
  });
  close(file);
}
BENCHMARK(BareWrite)->UseManualTime();

void DriverFrame(benchmark::State& state) {
  const Line line;
  const auto driver = ConnectedDriver(line);
  auto& control = dynamic_cast<ptzd::PTZContinuousControl&>(*driver);
  MeasureBatches(state, line, [&] { control.ContinuousMove(63, 0); });
}
BENCHMARK(DriverFrame)->UseManualTime();

/// Takes a byte each time the line would have carried one, and reports the longest wait for a byte that was
/// due, in byte times.
void PacedReader(benchmark::State& state) {
  constexpr int Frames = 24;
  constexpr auto ByteTime = std::chrono::nanoseconds(10'000'000'000LL / 2400);  // ten bits
  const Line line;
  const auto driver = ConnectedDriver(line);
  auto& control = dynamic_cast<ptzd::PTZContinuousControl&>(*driver);
  double longestGap = 0;
  for (auto _ : state) {
    std::thread reader([&] {
      std::uint8_t byte = 0;
      if (read(line.FarEnd, &byte, 1) != 1) return;
      auto due = SteadyClock::now();
      for (std::size_t i = 1; i < Frames * sizeof Frame; ++i) {
        due += ByteTime;
        std::this_thread::sleep_until(due);
        const auto asked = SteadyClock::now();
        if (read(line.FarEnd, &byte, 1) != 1) return;
        longestGap =
            std::max(longestGap, std::chrono::duration<double>(SteadyClock::now() - asked) / ByteTime);
      }
    });
    for (int i = 0; i < Frames; ++i) control.ContinuousMove(63, 0);
    reader.join();
  }
  state.counters["longest_gap"] = longestGap;
}
BENCHMARK(PacedReader)->Iterations(1);

/// How much longer a timed move takes than its wait; both frames are in it. The argument is milliseconds.
void TimedMoveLateness(benchmark::State& state) {
  const Line line;
  const auto wait = static_cast<std::int32_t>(state.range(0));
  const auto driver = ConnectedDriver(line, 5);  // a millisecond a degree
  for (auto _ : state) {
    driver->SetPanTilt(0, 0);
    const auto start = SteadyClock::now();
    driver->MoveTo(static_cast<float>(wait), 0);
    const auto late = SteadyClock::now() - start - std::chrono::milliseconds(wait);
    state.SetIterationTime(std::chrono::duration<double>(late).count());
    line.Drain(2 * sizeof Frame);
  }
}
BENCHMARK(TimedMoveLateness)->Arg(1)->Arg(20)->Arg(250)->UseManualTime()->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
