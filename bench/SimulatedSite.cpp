#include "SimulatedSite.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "Process.h"
#include "simulators/Axis.h"
#include "simulators/Bosch.h"
#include "simulators/Elmo.h"
#include "simulators/Foscam.h"
#include "simulators/Grandeye.h"
#include "simulators/MeritLilin.h"
#include "simulators/Panasonic.h"
#include "simulators/PanasoniciPro.h"
#include "simulators/Panogenics.h"
#include "simulators/Pelco.h"
#include "simulators/Quorvane.h"
#include "simulators/Sanyo.h"
#include "simulators/Secubest.h"
#include "simulators/Sony.h"
#include "simulators/Toshiba.h"
#include "simulators/Vivotek.h"
#include "simulators/engine/Message.h"

namespace {

struct Make {
  const char* Driver;
  std::function<std::unique_ptr<ptzsim::Simulator>()> Camera;
};

template <class Camera>
Make For(const char* driver, typename Camera::Options options = {}) {
  return {driver, [options] { return std::make_unique<Camera>(options); }};
}

/// A camera for each driver.
std::array<Make, SimulatedSite::Makes> MakesOfAll() {
  using namespace ptzsim;
  return {{For<Axis>("QVPTZ.Axis"),
           For<Bosch>("QVPTZ.Bosch"),
           For<Elmo>("QVPTZ.Elmo"),
           For<Elmo>("QVPTZ.Elmo4", {.Model = "400"}),
           For<Elmo>("QVPTZ.Elmo402", {.Model = "PTC-402C"}),
           For<Foscam>("QVPTZ.Foscam"),
           For<Foscam>("QVPTZ.FoscamHD", {.Generation = Foscam::Kind::HD}),
           For<Grandeye>("QVPTZ.Grandeye"),
           For<MeritLilin>("QVPTZ.MeritLilin"),
           For<Panasonic>("QVPTZ.Panasonic"),
           For<PanasoniciPro>("QVPTZ.PanasoniciPro"),
           For<Panogenics>("QVPTZ.Panogenics"),
           For<Pelco>("QVPTZ.Pelco"),
           For<Quorvane>("QVPTZ.Quorvane"),
           For<Sanyo>("QVPTZ.Sanyo"),
           For<Secubest>("QVPTZ.Secubest"),
           For<Sony>("QVPTZ.Sony"),
           For<Toshiba>("QVPTZ.Toshiba"),
           For<Toshiba>("QVPTZ.Toshiba2", {.Model = "IK-WB15"}),
           For<Vivotek>("QVPTZ.Vivotek")}};
}

[[noreturn]] void Throw(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

/// Nothing where the other side has ended.
std::optional<std::string> TakeLine(std::FILE* from) {
  std::string line;
  for (int c = 0; (c = std::fgetc(from)) != '\n'; line += static_cast<char>(c))
    if (c == EOF) return std::nullopt;
  return line;
}

std::string ReadLine(std::FILE* from) {
  if (auto line = TakeLine(from)) return *std::move(line);
  throw std::runtime_error("the process of the simulated cameras has ended");
}

/// How many lines, and the lines.
void WriteLines(std::FILE* to, const std::vector<std::string>& lines) {
  std::fprintf(to, "%zu\n", lines.size());
  for (const auto& line : lines) std::fprintf(to, "%s\n", line.c_str());
  std::fflush(to);
}

std::vector<std::string> ReadLines(std::FILE* from) {
  std::vector<std::string> lines(std::stoul(ReadLine(from)));
  for (auto& line : lines) line = ReadLine(from);
  return lines;
}

constexpr char ViolationMark = '!';

std::vector<std::string> LinesOfLog(ptzsim::Simulator& camera) {
  auto& log = camera.Log();
  std::vector<std::string> lines;
  for (const auto& request : log.TakeRequests()) {
    const bool isHTTP = !request.Method.empty();
    lines.push_back(std::to_string(request.Time.count()) + " " +
                    (isHTTP ? SimulatedSite::KeyOf(request.Target, request.Body)
                            : SimulatedSite::KeyOf("", request.Raw)));
  }
  for (auto violation : log.Violations()) {
    std::ranges::replace(violation, '\n', ' ');
    lines.push_back(ViolationMark + violation);
  }
  return lines;
}

}  // namespace

std::string SimulatedSite::KeyOf(const std::string& target, const std::string& body) {
  return body.empty() ? target : target + " " + ptzsim::Hex(body);
}

void SimulatedSite::Serve(std::size_t count, const Wire& wire) {
  const auto makes = MakesOfAll();
  std::vector<std::unique_ptr<ptzsim::Simulator>> cameras;
  std::vector<std::string> addresses;
  for (std::size_t i = 0; i < count; ++i) {
    const auto& make = makes[i % makes.size()];
    cameras.push_back(make.Camera());
    const auto began = std::chrono::steady_clock::now().time_since_epoch().count();
    addresses.push_back(std::string(make.Driver) + " " + cameras.back()->Addresses().front() + " " +
                        std::to_string(began));
  }
  WriteLines(wire.Out, addresses);
  while (const auto line = TakeLine(wire.In)) {
    std::istringstream command(*line);
    std::string verb, fault;
    std::size_t number = 0;
    command >> verb >> number >> fault;
    auto& camera = *cameras.at(number);
    if (verb == "break") camera.Faults().Set(fault);
    if (verb == "mend") camera.Faults().Clear();
    WriteLines(wire.Out, verb == "take"    ? LinesOfLog(camera)
                         : verb == "state" ? std::vector{camera.State().dump()}
                                           : std::vector<std::string>());
  }
}

SimulatedSite::SimulatedSite(std::size_t cameras) {
  RaiseDescriptorLimit();
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) Throw("socketpair");
  Child_ = fork();
  if (Child_ < 0) Throw("fork");
  const bool isChild = Child_ == 0;
  const int own = ends[isChild ? 1 : 0];
  close(ends[isChild ? 0 : 1]);
  Wire_ = {fdopen(own, "r"), fdopen(fcntl(own, F_DUPFD_CLOEXEC, 0), "w")};
  if (isChild) {
    signal(SIGINT, SIG_IGN);  // it ends with its parent, and takes its terminals along
    int code = 0;
    try {
      Serve(cameras, Wire_);
    } catch (const std::exception& error) {
      std::fprintf(stderr, "simulated cameras: %s\n", error.what());
      code = 1;
    }
    std::_Exit(code);
  }
  for (const auto& line : ReadLines(Wire_.In)) {
    std::istringstream words(line);
    Camera camera;
    std::chrono::steady_clock::rep began = 0;
    words >> camera.Driver >> camera.Address >> began;
    camera.Began += std::chrono::steady_clock::duration(began);
    Cameras_.push_back(std::move(camera));
  }
}

SimulatedSite::~SimulatedSite() {
  std::fclose(Wire_.Out);
  std::fclose(Wire_.In);
  waitpid(Child_, nullptr, 0);
}

std::vector<std::string> SimulatedSite::Ask(const std::string& command) {
  const std::lock_guard lock(Mutex_);
  std::fprintf(Wire_.Out, "%s\n", command.c_str());
  std::fflush(Wire_.Out);
  return ReadLines(Wire_.In);
}

void SimulatedSite::Break(std::size_t camera, const std::string& fault) {
  Ask("break " + std::to_string(camera) + " " + fault);
}

void SimulatedSite::Mend(std::size_t camera) { Ask("mend " + std::to_string(camera)); }

SimulatedSite::Log SimulatedSite::Take(std::size_t camera) {
  Log log;
  for (const auto& line : Ask("take " + std::to_string(camera))) {
    if (line.starts_with(ViolationMark)) {
      log.Violations.push_back(line.substr(1));
      continue;
    }
    std::size_t digits = 0;
    // As the log counts them, in whole milliseconds: none of these moments is too early.
    log.When.push_back(Cameras_[camera].Began + std::chrono::milliseconds(std::stoll(line, &digits) + 1));
    log.Requests.push_back(line.substr(digits + 1));
  }
  return log;
}

bool SimulatedSite::IsMoving(std::size_t camera) {
  return Ask("state " + std::to_string(camera)).front().find("\"moving\":true") != std::string::npos;
}
