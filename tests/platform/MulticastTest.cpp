#include "platform/Multicast.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <set>

namespace ptzd {
namespace {

TEST(Multicast, AFloodedInterfaceLeavesTheOthersATurn) {
  const std::set<std::string> interfaces{"127.0.0.1", "127.0.0.2", "127.0.0.3"};
  for (const std::string silent : {"", "127.0.0.2"}) {
    SCOPED_TRACE(silent);
    const int asked = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ASSERT_EQ(bind(asked, reinterpret_cast<sockaddr*>(&address), size), 0);
    getsockname(asked, reinterpret_cast<sockaddr*>(&address), &size);

    const auto multicast = MakeMulticast();
    for (const auto& each : interfaces) ASSERT_EQ(multicast->OpenToAsk(each), 0);
    ASSERT_EQ(multicast->Ask("127.0.0.1", ntohs(address.sin_port), "?"), 0);  // a group of one
    std::set<std::string> answering, heard;
    for (std::size_t i = 0; i < interfaces.size(); ++i) {
      char question = 0;
      sockaddr_in from{};
      ASSERT_EQ(recvfrom(asked, &question, 1, 0, reinterpret_cast<sockaddr*>(&from), &size), 1);
      if (inet_ntoa(from.sin_addr) == silent) continue;
      answering.insert(inet_ntoa(from.sin_addr));
      for (int answers = 0; answers < 3; ++answers)
        ASSERT_EQ(sendto(asked, "!", 1, 0, reinterpret_cast<sockaddr*>(&from), size), 1);
    }
    close(asked);
    for (std::size_t i = 0; i < answering.size(); ++i)
      if (const auto datagram = multicast->Receive(std::chrono::seconds(10)))
        heard.insert(datagram->Interface);
    EXPECT_EQ(heard, answering);
  }
}

}  // namespace
}  // namespace ptzd
