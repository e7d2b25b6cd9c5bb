// The serial port against pseudo-terminals: the test holds the far end of the line.

#include <ptzd/SerialPort.h>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <filesystem>

#include <ptzd/Variant.h>
#include "support/Errors.h"

namespace ptzd {
namespace {

using test::ErrorOf;
using test::NumberOf;

/// A pseudo-terminal under a path that stays when the device is plugged out and in again.
class Line {
 public:
  Line() {
    std::string pattern = testing::TempDir() + "lineXXXXXX";
    Folder_ = mkdtemp(pattern.data());
    Path = Folder_ + "/tty";
    Plug();
  }
  ~Line() {
    Unplug();
    std::filesystem::remove_all(Folder_);
  }
  Line(const Line&) = delete;
  Line& operator=(const Line&) = delete;

  void Plug() {
    FarEnd = posix_openpt(O_RDWR | O_NOCTTY);
    EXPECT_EQ(grantpt(FarEnd) | unlockpt(FarEnd), 0);
    std::filesystem::remove(Path);
    std::filesystem::create_symlink(ptsname(FarEnd), Path);
  }
  void Unplug() {
    if (FarEnd >= 0) close(FarEnd);
    FarEnd = -1;
  }
  Bytes Receive(std::size_t count) {
    Bytes bytes(count);
    for (std::size_t have = 0; have < count;) {
      const auto got = read(FarEnd, bytes.data() + have, count - have);
      if (got <= 0) return {};
      have += static_cast<std::size_t>(got);
    }
    return bytes;
  }

  std::string Path;
  int FarEnd = -1;

 private:
  std::string Folder_;
};

class SerialPortTest : public testing::Test {
 protected:
  void Open() {
    Port->Settings("4800,n,8,1");
    Port->PortOpen(true);
  }

  Line Far;
  std::unique_ptr<SerialPort> Port = MakeSerialPort(3, Far.Path);
};

TEST_F(SerialPortTest, CarriesEveryByteAsItIs) {
  EXPECT_EQ(ErrorOf([&] { Port->Output(Bytes{1}); }),
            std::to_string(SerialErrorNotOpen) + " Serial port 3 (" + Far.Path + "): the port is not open");
  termios line{};
  ASSERT_EQ(tcgetattr(Far.FarEnd, &line), 0);
  line.c_cflag |= CSTOPB | CRTSCTS;  // as another program may leave it
  ASSERT_EQ(tcsetattr(Far.FarEnd, TCSANOW, &line), 0);
  Open();
  Port->PortOpen(true);
  EXPECT_TRUE(Port->PortOpen());
  EXPECT_EQ(Port->CommPort(), 3);
  EXPECT_EQ(DefaultSerialDevice(3), "/dev/ttyS2");
  ASSERT_EQ(tcgetattr(Far.FarEnd, &line), 0);
  EXPECT_EQ(line.c_cflag & (CSTOPB | CRTSCTS | HUPCL), 0U);
  EXPECT_EQ(cfgetospeed(&line), static_cast<speed_t>(B4800));
  Port->Settings("9600,N,8,1");
  ASSERT_EQ(tcgetattr(Far.FarEnd, &line), 0);
  EXPECT_EQ(cfgetospeed(&line), static_cast<speed_t>(B9600));

  Bytes all(256);
  for (std::size_t i = 0; i < all.size(); ++i) all[i] = static_cast<std::uint8_t>(i);
  Port->Output(all);
  Port->Output({});
  EXPECT_EQ(Far.Receive(all.size()), all);
}

TEST_F(SerialPortTest, RefusesWhatItCannotUse) {
  for (const auto* settings : {"", "2400", "2400,n,8,1 ", "2400,e,7,1", "-5,n,8,1", "0,n,8,1", "fast,n,8,1"})
    EXPECT_EQ(NumberOf([&] { Port->Settings(settings); }), SerialErrorSettings) << settings;
  EXPECT_EQ(ErrorOf([&] { Port->Settings("fast"); }),
            "380 Invalid settings of a serial port: \"fast\" is not of the form \"2400,n,8,1\"");
  Port->Settings("1234,n,8,1");
  EXPECT_EQ(ErrorOf([&] { Port->PortOpen(true); }),
            "380 Serial port 3 (" + Far.Path + "): the speed 1234 is not supported");
  EXPECT_FALSE(Port->PortOpen());
  Open();
  EXPECT_EQ(NumberOf([&] { MakeSerialPort(4, Far.Path)->PortOpen(true); }), SerialErrorAlreadyOpen);
  Port->PortOpen(false);
  const auto other = MakeSerialPort(4, Far.Path);
  other->PortOpen(true);
  EXPECT_TRUE(other->PortOpen());
  EXPECT_EQ(NumberOf([&] { MakeSerialPort(5, "/dev/null")->PortOpen(true); }), SerialErrorNoPort);
  EXPECT_EQ(NumberOf([&] { MakeSerialPort(5, Far.Path + "x")->PortOpen(true); }), SerialErrorNoPort);
}

TEST_F(SerialPortTest, ComesBackWithItsDevice) {
  Open();
  Far.Unplug();
  EXPECT_EQ(NumberOf([&] { Port->Output(Bytes{1, 2}); }), SerialErrorDevice);
  EXPECT_EQ(NumberOf([&] { Port->Output(Bytes{1, 2}); }), SerialErrorNotOpen);
  EXPECT_FALSE(Port->PortOpen());

  for (int time = 0; time < 2; ++time) {
    Far.Plug();
    Port->PortOpen(true);
    Port->Output(Bytes{7, 8});
    EXPECT_EQ(Far.Receive(2), (Bytes{7, 8}));
    Far.Unplug();
    EXPECT_FALSE(Port->PortOpen()) << "also seen without writing";
  }
}

TEST_F(SerialPortTest, UnreadAnswersDoNotJamTheLine) {
  Open();
  fcntl(Far.FarEnd, F_SETFL, O_NONBLOCK);
  const Bytes answer(512, 0x55), frame = {0xFF, 1, 0, 2, 63, 0, 0x42};
  // A device that answers much more than the system holds for a reader, and takes commands in between.
  for (std::size_t answered = 0; answered < 400000;) {
    pollfd room{Far.FarEnd, POLLOUT, 0};
    ASSERT_EQ(poll(&room, 1, 10000), 1) << "jammed after " << answered << " bytes";
    for (auto got = write(Far.FarEnd, answer.data(), answer.size()); got > 0;
         got = write(Far.FarEnd, answer.data(), answer.size()))
      answered += static_cast<std::size_t>(got);
    for (int i = 0; i < 32; ++i) Port->Output(frame);
    fcntl(Far.FarEnd, F_SETFL, 0);
    ASSERT_EQ(Far.Receive(32 * frame.size()).size(), 32 * frame.size());
    fcntl(Far.FarEnd, F_SETFL, O_NONBLOCK);
  }
}

}  // namespace
}  // namespace ptzd
