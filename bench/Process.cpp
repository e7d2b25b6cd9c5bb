#include "Process.h"

#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

std::string Place(const std::string& process, const char* what) { return "/proc/" + process + "/" + what; }

std::size_t Entries(const std::string& folder) {
  namespace fs = std::filesystem;
  return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

}  // namespace

void RaiseDescriptorLimit() {
  rlimit files{};
  getrlimit(RLIMIT_NOFILE, &files);
  files.rlim_cur = files.rlim_max;
  setrlimit(RLIMIT_NOFILE, &files);
}

std::size_t ResidentKiB(const std::string& process) {
  std::size_t all = 0, resident = 0;
  std::ifstream(Place(process, "statm")) >> all >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

std::size_t OpenDescriptors(const std::string& process) {
  const bool reads = process == "self";  // one of them reads the folder
  return Entries(Place(process, "fd")) - (reads ? 1 : 0);
}

std::size_t Threads(const std::string& process) { return Entries(Place(process, "task")); }

std::chrono::duration<double> ProcessorTime(const std::string& process) {
  // Its name, in brackets, may hold anything.
  std::string text;
  std::getline(std::ifstream(Place(process, "stat")), text);
  std::istringstream rest(text.substr(text.rfind(')') + 1));
  std::string passedOver;
  for (int i = 0; i < 11; ++i) rest >> passedOver;
  double user = 0, system = 0;
  rest >> user >> system;
  return std::chrono::duration<double>((user + system) / static_cast<double>(sysconf(_SC_CLK_TCK)));
}
