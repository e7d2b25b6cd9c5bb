#include <ptzd/SerialPort.h>

#include <ptzd/Error.h>
#include "platform/SerialSettings.h"
#include "platform/windows/AnsiText.h"
#include "platform/windows/SystemHeaders.h"

namespace ptzd {

namespace {

constexpr DWORD LongestStall = 5000;  // milliseconds
constexpr DWORD LongestByte = 100;    // milliseconds: ten bits at 110 baud, rounded up
constexpr unsigned FramesBetweenPurges = 32;

std::string Reason(DWORD error) { return "error " + std::to_string(error); }

class CommunicationsPort final : public SerialPort {
 public:
  CommunicationsPort(std::int32_t commPort, std::string device)
      : CommPort_(commPort), Device_(std::move(device)) {}
  ~CommunicationsPort() override { Close(); }
  CommunicationsPort(const CommunicationsPort&) = delete;
  CommunicationsPort& operator=(const CommunicationsPort&) = delete;

  std::int32_t CommPort() override { return CommPort_; }

  void Settings(std::string_view text) override {
    Baud_ = BaudOfSettings(text);
    if (File_ != INVALID_HANDLE_VALUE) SetUp();
  }

  bool PortOpen() override {
    if (File_ == INVALID_HANDLE_VALUE) return false;
    // The line's state can no longer be asked for when its adapter was pulled out.
    DCB line{};
    line.DCBlength = sizeof line;
    if (!GetCommState(File_, &line)) Close();
    return File_ != INVALID_HANDLE_VALUE;
  }

  void PortOpen(bool open) override {
    if (!open) return Close();
    if (PortOpen()) return;
    const auto path = Device_.starts_with("\\\\") ? Device_ : "\\\\.\\" + Device_;
    // No sharing: the port is ours alone.
    File_ = CreateFileA(AnsiFromText(path).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                        0, nullptr);
    if (File_ == INVALID_HANDLE_VALUE) {
      const auto error = GetLastError();
      throw Failure(error == ERROR_ACCESS_DENIED || error == ERROR_SHARING_VIOLATION ? SerialErrorAlreadyOpen
                                                                                     : SerialErrorNoPort,
                    Reason(error));
    }
    try {
      SetUp();
    } catch (const Error&) {
      Close();
      throw;
    }
  }

  void Output(std::span<const std::uint8_t> frame) override {
    if (File_ == INVALID_HANDLE_VALUE) throw Failure(SerialErrorNotOpen, "the port is not open");
    while (!frame.empty()) {
      DWORD written = 0;
      if (!WriteFile(File_, frame.data(), static_cast<DWORD>(frame.size()), &written, nullptr)) {
        const auto reason = Reason(GetLastError());
        Close();
        throw Failure(SerialErrorDevice, reason);
      }
      if (written == 0) throw Failure(SerialErrorDevice, "the line has taken no byte for 5 seconds");
      frame = frame.subspan(written);
    }
    // Answers of receivers that nobody reads.
    if (++Frames_ % FramesBetweenPurges == 0) PurgeComm(File_, PURGE_RXCLEAR);
  }

 private:
  Error Failure(SerialPortErrors number, const std::string& reason) const {
    return {number, "Serial port " + std::to_string(CommPort_) + " (" + Device_ + "): " + reason};
  }

  void SetUp() {
    DCB line{};
    line.DCBlength = sizeof line;
    if (!GetCommState(File_, &line)) throw Failure(SerialErrorNoPort, "this is no serial port");
    line.BaudRate = Baud_;
    line.ByteSize = 8;
    line.Parity = NOPARITY;
    line.StopBits = ONESTOPBIT;
    line.fBinary = TRUE;
    line.fParity = FALSE;
    line.fOutxCtsFlow = line.fOutxDsrFlow = FALSE;
    line.fOutX = line.fInX = FALSE;
    line.fDsrSensitivity = FALSE;
    line.fErrorChar = line.fNull = FALSE;
    line.fAbortOnError = FALSE;
    line.fDtrControl = DTR_CONTROL_ENABLE;
    line.fRtsControl = RTS_CONTROL_ENABLE;
    COMMTIMEOUTS timeouts{};
    timeouts.WriteTotalTimeoutMultiplier = LongestByte;
    timeouts.WriteTotalTimeoutConstant = LongestStall;
    if (!SetCommState(File_, &line) || !SetCommTimeouts(File_, &timeouts))
      throw Failure(SerialErrorSettings,
                    "the device refuses the speed " + std::to_string(Baud_) + ", " + Reason(GetLastError()));
    PurgeComm(File_, PURGE_RXCLEAR);
  }

  void Close() {
    if (File_ == INVALID_HANDLE_VALUE) return;
    CloseHandle(File_);
    File_ = INVALID_HANDLE_VALUE;
  }

  std::int32_t CommPort_;
  std::string Device_;
  std::uint32_t Baud_ = 9600;
  HANDLE File_ = INVALID_HANDLE_VALUE;
  unsigned Frames_ = 0;
};

}  // namespace

std::unique_ptr<SerialPort> MakeSerialPort(std::int32_t commPort, const std::string& device) {
  return std::make_unique<CommunicationsPort>(commPort, device);
}

std::string DefaultSerialDevice(std::int32_t commPort) { return "COM" + std::to_string(commPort); }

}  // namespace ptzd
