// The socket for framed messages against a listener on loopback.

#include "platform/Socket.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include <ptzd/Variant.h>

namespace ptzd {
namespace {

class SocketTest : public testing::Test {
 protected:
  void SetUp() override {
    Listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(bind(Listener, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    ASSERT_EQ(listen(Listener, 5), 0);
    socklen_t size = sizeof address;
    getsockname(Listener, reinterpret_cast<sockaddr*>(&address), &size);
    Port = ntohs(address.sin_port);
  }
  void TearDown() override {
    if (Peer >= 0) close(Peer);
    close(Listener);
  }
  void Connect() {
    ASSERT_EQ(Client->Open(), 0);
    ASSERT_EQ(Client->Connect("127.0.0.1", Port, 10000), 0);
    Peer = accept(Listener, nullptr, nullptr);
  }

  int Listener = -1, Peer = -1;
  std::uint16_t Port = 0;
  std::unique_ptr<Socket> Client = SystemSockets().Create();
  const Bytes Message = {'S', 'T', 'R', 'T', 0, 1, 2, 3};
};

TEST_F(SocketTest, TheLastMessageArrivesWhateverTheUnitSays) {
  Connect();
  const Bytes chatter(4096, 0x55);
  ASSERT_EQ(send(Peer, chatter.data(), chatter.size(), 0), 4096);
  EXPECT_EQ(Client->Send(Message, 1000), 0);
  ASSERT_EQ(send(Peer, chatter.data(), chatter.size(), 0), 4096);
  Client.reset();
  Bytes received(100);
  const auto count = recv(Peer, received.data(), received.size(), 0);
  ASSERT_EQ(count, static_cast<ssize_t>(Message.size()));
  received.resize(Message.size());
  EXPECT_EQ(received, Message);
  EXPECT_EQ(recv(Peer, received.data(), received.size(), 0), 0) << "closed, not reset";
}

TEST_F(SocketTest, ChatterDoesNotJamTheUnit) {
  Connect();
  const Bytes chatter(65536, 0x55);
  std::size_t said = 0;
  constexpr std::size_t Enough = 16 << 20;  // more than the system holds for a reader
  for (int messages = 0; messages < 4000 && said < Enough; ++messages) {
    const auto sent = send(Peer, chatter.data(), chatter.size(), MSG_DONTWAIT);
    if (sent > 0) said += static_cast<std::size_t>(sent);
    ASSERT_EQ(Client->Send(Message, 1000), 0);
  }
  EXPECT_GE(said, Enough);
}

TEST_F(SocketTest, ConnectsToDottedDecimalOnly) {
  EXPECT_NE(Client->Connect("127.0.0.1", Port, 1000), 0) << "not open yet";
  for (const auto* address : {"localhost", "camera1", "", "0.0.0.0", "300.1.1.1"}) {
    ASSERT_EQ(Client->Open(), 0);
    EXPECT_EQ(Client->Connect(address, Port, 1000), EADDRNOTAVAIL) << address;
  }
  close(Listener);
  ASSERT_EQ(Client->Open(), 0);
  EXPECT_EQ(Client->Connect("127.0.0.1", Port, 10000), ECONNREFUSED);
}

TEST_F(SocketTest, ABrokenConnectionOnlyLosesMessages) {
  for (const bool resets : {true, false}) {
    Connect();
    const linger reset{1, 0};
    if (resets) setsockopt(Peer, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
    close(std::exchange(Peer, -1));
    // A write to a reset connection would raise a signal that ends the process.
    EXPECT_NE(Client->Send(Message, 1000), 0) << resets;
    EXPECT_EQ(Client->Send(Message, 1000), ENOTCONN) << resets;
  }
}

TEST_F(SocketTest, AUnitThatTakesNothingHoldsOneCallOnly) {
  Connect();
  const Bytes large(1 << 20, 0x55);
  std::int32_t error = 0;
  while (error == 0) error = Client->Send(large, 20);
  EXPECT_EQ(error, ETIMEDOUT);
  EXPECT_EQ(Client->Send(Message, 1000000), ENOTCONN) << "half a message is not followed by another";
}

}  // namespace
}  // namespace ptzd
