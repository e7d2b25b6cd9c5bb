#include "Process.h"

#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace {

std::size_t Entries(const char* folder) {
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

std::size_t ResidentKiB() {
  std::size_t all = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> all >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE)) / 1024;
}

std::size_t OpenDescriptors() { return Entries("/proc/self/fd") - 1; }  // one reads the folder

std::size_t Threads() { return Entries("/proc/self/task"); }

std::chrono::duration<double> ProcessorTime() {
  rusage used{};
  getrusage(RUSAGE_SELF, &used);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return std::chrono::duration<double>(seconds(used.ru_utime) + seconds(used.ru_stime));
}
