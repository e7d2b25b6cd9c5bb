// libFuzzer's side of the targets: ptzd_fuzz TARGET [OPTIONS OF LIBFUZZER] [CORPUS].

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <string_view>

#include "Scratch.h"
#include "Target.h"

namespace {

using namespace ptzd::fuzz;

constexpr Target Targets[] = {
    {"access", Access},                // Gateway.cpp
    {"announcements", Announcements},  // Files.cpp
    {"api", Api},                      // Gateway.cpp
    {"arguments", Arguments},          // Words.cpp
    {"cameras", Cameras},              // Files.cpp
    {"codepages", CodePages},          // Values.cpp
    {"drivers", Drivers},              // Drivers.cpp
    {"gate", GateFile},                // Gateway.cpp
    {"headers", Headers},              // Values.cpp
    {"http", Http},                    // HTTP.cpp
    {"mqtt", Mqtt},                    // Gateway.cpp
    {"options", Options},              // Values.cpp
    {"simulators", Simulators},        // Simulators.cpp
    {"soap", Soap},                    // Gateway.cpp
    {"split", Split},                  // Values.cpp
    {"tours", Tours},                  // Files.cpp
    {"url", Url},                      // Values.cpp
    {"web", Web},                      // Gateway.cpp
    {"words", Words},                  // Words.cpp
    {"xml", Xml},                      // Values.cpp
};
constexpr char Variable[] = "PTZD_FUZZ_TARGET";

const Target* Chosen = nullptr;

const Target* Find(std::string_view name) {
  for (const auto& target : Targets)
    if (name == target.Name) return &target;
  return nullptr;
}

/// libFuzzer's timer, which it sets up late, ends no call of a target: a connect would fail of it.
bool ResumeAfterItsTimer() {
  struct sigaction timer {};
  sigaction(SIGALRM, nullptr, &timer);
  timer.sa_flags |= SA_RESTART;
  return sigaction(SIGALRM, &timer, nullptr) == 0;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  if (*argc > 1 && std::string_view((*argv)[1]) == "list") {
    for (const auto& target : Targets) std::puts(target.Name);
    std::exit(0);
  }
  if (*argc > 1) Chosen = Find((*argv)[1]);
  if (Chosen != nullptr) {
    // Processes that libFuzzer starts of its own, to merge, get its options only.
    setenv(Variable, Chosen->Name, 1);
    (*argv)[1] = (*argv)[0];
    ++*argv;
    --*argc;
  } else if (const char* name = std::getenv(Variable)) {
    Chosen = Find(name);
  }
  if (Chosen == nullptr) {
    std::fputs("ptzd_fuzz: which target? ptzd_fuzz list tells them\n", stderr);
    std::exit(2);
  }
  // Nothing of this machine plays a part.
  for (const char* variable : {"http_proxy", "https_proxy", "all_proxy", "HTTP_PROXY", "HTTPS_PROXY",
                               "ALL_PROXY", "PTZD_CAMERAS", "PTZD_PASSWORD"})
    unsetenv(variable);
  for (const char* folder : {"HOME", "XDG_CONFIG_HOME", "XDG_STATE_HOME"})
    setenv(folder, Scratch::Folder().c_str(), 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  [[maybe_unused]] static const bool resumes = ResumeAfterItsTimer();
  Chosen->Run({reinterpret_cast<const char*>(data), size});
  return 0;
}
