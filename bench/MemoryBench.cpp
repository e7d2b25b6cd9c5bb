// Heap of 1000 drivers, created and connected, each to a camera of its own, beside 1000 connected libcurl
// handles.

#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

#include <ptzd/DriverFactory.h>
#include <ptzd/PropertyBag.h>
#include "BareCurl.h"
#include "LoopbackServer.h"

namespace {

constexpr int Count = 1000;

template <typename Work>
double KiBEach(const Work& work) {
  malloc_trim(0);
  const auto before = mallinfo2();
  work();
  const auto after = mallinfo2();
  return static_cast<double>(after.uordblks + after.hblkhd - before.uordblks - before.hblkhd) / 1024 / Count;
}

}  // namespace

int main() {
  const LoopbackServer server(Count);
  const auto address = [&](int i) { return "127.0.0.1:" + std::to_string(server.Port(i)); };
  curl_global_init(CURL_GLOBAL_ALL);

  std::vector<std::unique_ptr<BareCurl>> handles;
  handles.reserve(Count);
  const double bare = KiBEach([&] {
    for (int i = 0; i < Count; ++i) {
      handles.push_back(std::make_unique<BareCurl>());
      handles.back()->Get("http://" + address(i) + "/axis-cgi/com/ptz.cgi?query=position");
    }
  });
  handles.clear();

  std::vector<std::unique_ptr<ptzd::PTZDevice>> drivers;
  drivers.reserve(Count);
  const double created = KiBEach([&] {
    for (int i = 0; i < Count; ++i) drivers.push_back(ptzd::CreateDriver("QVPTZ.Axis"));
  });
  const double connected = created + KiBEach([&] {
                             for (int i = 0; i < Count; ++i) {
                               ptzd::PropertyBag options;
                               options.WriteProperty("Address", address(i));
                               if (!drivers[i]->Connect(options.Contents())) std::exit(1);
                             }
                           });

  std::printf("%d libcurl handles, connected   %7.2f KiB each\n", Count, bare);
  std::printf("%d drivers, created           %9.2f KiB each\n", Count, created);
  std::printf("%d drivers, connected         %9.2f KiB each   ratio %.2f\n", Count, connected,
              connected / bare);
}
