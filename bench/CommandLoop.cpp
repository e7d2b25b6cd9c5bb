// Sends so many commands over one connection; run under strace to count system calls.
//   command_loop driver|client|libcurl COUNT

#include <cstdlib>
#include <cstring>

#include <ptzd/DriverFactory.h>
#include <ptzd/PropertyBag.h>
#include "BareCurl.h"
#include "LoopbackServer.h"
#include "transport/HTTPClient.h"

int main(int argc, char** argv) {
  if (argc != 3) return 2;
  const int count = std::atoi(argv[2]);
  const LoopbackServer server;
  const auto address = "127.0.0.1:" + std::to_string(server.Port());
  const auto url = "http://" + address + "/axis-cgi/com/ptz.cgi?pan=5";

  if (std::strcmp(argv[1], "libcurl") == 0) {
    BareCurl curl;
    for (int i = 0; i < count; ++i) curl.Get(url);
  } else if (std::strcmp(argv[1], "client") == 0) {
    ptzd::HTTPClient client;
    for (int i = 0; i < count; ++i) client.GetResource(url, "", "");
  } else {
    const auto driver = ptzd::CreateDriver("QVPTZ.Axis");
    ptzd::PropertyBag options;
    options.WriteProperty("Address", address);
    if (!driver->Connect(options.Contents())) return 1;
    for (int i = 0; i < count; ++i) driver->Move(i % 2 ? ptzd::DirectionRight : ptzd::DirectionLeft, 5);
  }
}
