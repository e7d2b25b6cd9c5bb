#include <ptzd/SerialPort.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>

#include <ptzd/Error.h>
#include "platform/SerialSettings.h"

namespace ptzd {

namespace {

using namespace std::chrono_literals;

constexpr auto LongestStall = 5s;
constexpr int RetryInterval = 50;  // milliseconds

// A receiver that answers would fill the line's input in the end, and a bridge that cannot get rid of an
// answer stops taking commands. Rare enough to cost nothing, often enough never to let 4 KB pile up.
constexpr unsigned FramesBetweenFlushes = 32;

struct Speed {
  std::uint32_t Baud;
  speed_t Code;
};
constexpr std::array Speeds = {
    Speed{110, B110},     Speed{300, B300},     Speed{600, B600},     Speed{1200, B1200},
    Speed{1800, B1800},   Speed{2400, B2400},   Speed{4800, B4800},   Speed{9600, B9600},
    Speed{19200, B19200}, Speed{38400, B38400}, Speed{57600, B57600}, Speed{115200, B115200},
};

std::string Reason(int error) {
  return std::string(std::strerror(error)) + " (error " + std::to_string(error) + ")";
}

class TerminalPort final : public SerialPort {
 public:
  TerminalPort(std::int32_t commPort, std::string device) : CommPort_(commPort), Device_(std::move(device)) {}
  ~TerminalPort() override { Close(); }
  TerminalPort(const TerminalPort&) = delete;
  TerminalPort& operator=(const TerminalPort&) = delete;

  std::int32_t CommPort() override { return CommPort_; }

  void Settings(std::string_view text) override {
    Baud_ = BaudOfSettings(text);
    if (File_ >= 0) SetUp();
  }

  bool PortOpen() override {
    if (File_ < 0) return false;
    pollfd state{File_, 0, 0};
    if (poll(&state, 1, 0) > 0 && (state.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) Close();
    return File_ >= 0;
  }

  void PortOpen(bool open) override {
    if (!open) return Close();
    if (PortOpen()) return;
    // Not blocking: an open would wait for the modem's carrier, and a full buffer must not hold us.
    File_ = ::open(Device_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (File_ < 0) throw Failure(errno == EBUSY ? SerialErrorAlreadyOpen : SerialErrorNoPort, Reason(errno));
    try {
      TakeForExclusiveUse();
      SetUp();
    } catch (const Error&) {
      Close();
      throw;
    }
  }

  void Output(std::span<const std::uint8_t> frame) override {
    if (File_ < 0) throw Failure(SerialErrorNotOpen, "the port is not open");
    auto stalledAt = std::chrono::steady_clock::time_point::max();
    while (!frame.empty()) {
      const auto written = write(File_, frame.data(), frame.size());
      if (written > 0) {
        frame = frame.subspan(static_cast<std::size_t>(written));
        stalledAt = std::chrono::steady_clock::time_point::max();
      } else if (written == 0 || errno == EAGAIN) {
        const auto now = std::chrono::steady_clock::now();
        stalledAt = std::min(stalledAt, now);
        if (now - stalledAt >= LongestStall)
          throw Failure(SerialErrorDevice, "the line has taken no byte for 5 seconds");
        pollfd room{File_, POLLOUT, 0};
        poll(&room, 1, RetryInterval);
      } else if (errno != EINTR) {
        const auto reason = Reason(errno);
        Close();
        throw Failure(SerialErrorDevice, reason);
      }
    }
    if (++Frames_ % FramesBetweenFlushes == 0) tcflush(File_, TCIFLUSH);
  }

 private:
  Error Failure(SerialPortErrors number, const std::string& reason) const {
    return {number, "Serial port " + std::to_string(CommPort_) + " (" + Device_ + "): " + reason};
  }

  void TakeForExclusiveUse() {
    if (!isatty(File_)) throw Failure(SerialErrorNoPort, "this is no serial port");
    // The terminal's own mark does not stop a privileged program, so there is a lock besides.
    if (flock(File_, LOCK_EX | LOCK_NB) != 0 || ioctl(File_, TIOCEXCL) != 0)
      throw Failure(SerialErrorAlreadyOpen, "another program or thread has it open");
    Marked_ = true;
  }

  void SetUp() {
    const auto* speed =
        std::find_if(Speeds.begin(), Speeds.end(), [this](const auto& row) { return row.Baud == Baud_; });
    if (speed == Speeds.end())
      throw Failure(SerialErrorSettings, "the speed " + std::to_string(Baud_) + " is not supported");
    termios line{};
    if (tcgetattr(File_, &line) != 0) throw Failure(SerialErrorNoPort, Reason(errno));
    cfmakeraw(&line);
    // The receiver is off: nobody reads.
    line.c_cflag &= ~static_cast<tcflag_t>(CREAD | CSTOPB | CRTSCTS | HUPCL);
    line.c_cflag |= CLOCAL;
    line.c_iflag &= ~static_cast<tcflag_t>(IXON | IXOFF | IXANY);
    cfsetispeed(&line, speed->Code);
    cfsetospeed(&line, speed->Code);
    termios taken{};
    // A pseudo-terminal keeps its receiver on, which is told as EINVAL where nothing else had to change: what
    // the device took is what counts.
    if ((tcsetattr(File_, TCSANOW, &line) != 0 && errno != EINVAL) || tcgetattr(File_, &taken) != 0)
      throw Failure(SerialErrorSettings, Reason(errno));
    if ((taken.c_cflag & (CSIZE | PARENB | CSTOPB)) != CS8)
      throw Failure(SerialErrorSettings, "the device refuses 8 bits, no parity and 1 stop bit");
    if (cfgetospeed(&taken) != speed->Code)
      throw Failure(SerialErrorSettings, "the device refuses the speed " + std::to_string(Baud_));
    tcflush(File_, TCIFLUSH);
  }

  void Close() {
    if (File_ < 0) return;
    if (Marked_) ioctl(File_, TIOCNXCL);  // would outlive us while another program has the terminal open
    ::close(File_);
    File_ = -1;
    Marked_ = false;
  }

  std::int32_t CommPort_;
  std::string Device_;
  std::uint32_t Baud_ = 9600;
  int File_ = -1;
  bool Marked_ = false;  ///< for exclusive use, by us
  unsigned Frames_ = 0;
};

}  // namespace

std::unique_ptr<SerialPort> MakeSerialPort(std::int32_t commPort, const std::string& device) {
  return std::make_unique<TerminalPort>(commPort, device);
}

std::string DefaultSerialDevice(std::int32_t commPort) { return "/dev/ttyS" + std::to_string(commPort - 1); }

}  // namespace ptzd
