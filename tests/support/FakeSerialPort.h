#pragma once

#include <memory>
#include <string>

#include <ptzd/Error.h>
#include <ptzd/SerialPortPool.h>
#include "platform/SerialSettings.h"
#include "support/FrameLog.h"

namespace ptzd::test {

/// A serial line and the device at its end.
struct FakeLine {
  explicit FakeLine(Clock& clock) : Log(clock) {}

  FrameLog Log;
  bool Plugged = true;
  int FramesUntilUnplugged = -1;  // -1: never
};

/// A port on a line; notes what is done to it in the line's log.
class FakeSerialPort final : public SerialPort {
 public:
  FakeSerialPort(std::int32_t commPort, FakeLine& line) : CommPort_(commPort), Line_(line) {}

  std::int32_t CommPort() override { return CommPort_; }
  void Settings(std::string_view text) override {
    BaudOfSettings(text);
    Settings_ = text;
    if (PortOpen()) Line_.Log.Add("set:" + Settings_);
  }
  bool PortOpen() override { return Open_ && Line_.Plugged; }
  void PortOpen(bool open) override {
    if (open == PortOpen()) return;
    if (open && !Line_.Plugged) throw Error(SerialErrorNoPort, "unplugged");
    Line_.Log.Add(open ? "open:" + Settings_ : "close");
    Open_ = open;
  }
  void Output(std::span<const std::uint8_t> frame) override {
    if (!PortOpen()) throw Error(SerialErrorNotOpen, "not open");
    if (Line_.FramesUntilUnplugged == 0) {
      Line_.Plugged = Open_ = false;
      Line_.Log.Add("unplugged");
      throw Error(SerialErrorDevice, "unplugged");
    }
    if (Line_.FramesUntilUnplugged > 0) --Line_.FramesUntilUnplugged;
    Line_.Log.AddFrame(frame);
  }

 private:
  std::int32_t CommPort_;
  FakeLine& Line_;
  std::string Settings_;
  bool Open_ = false;
};

/// While it lives, the thread's serial ports are all on one fake line.
class FakeSerialPorts {
 public:
  explicit FakeSerialPorts(Clock& clock) : Line(clock) { UseSerialPortPool(Pool); }
  ~FakeSerialPorts() { UseSerialPortPool(nullptr); }
  FakeSerialPorts(const FakeSerialPorts&) = delete;
  FakeSerialPorts& operator=(const FakeSerialPorts&) = delete;

  FakeLine Line;
  std::shared_ptr<SharedSerialPorts> Pool =
      std::make_shared<SharedSerialPorts>([this](std::int32_t number, const std::string&) {
        return std::make_unique<FakeSerialPort>(number, Line);
      });
};

}  // namespace ptzd::test
