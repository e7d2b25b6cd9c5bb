#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/Socket.h"
#include "support/FrameLog.h"

namespace ptzd::test {

/// Stands in for the system's sockets: every message goes to one log, and calls answer what the test set.
class FakeSockets final : public Sockets {
 public:
  explicit FakeSockets(Clock& clock) : Log(clock) {}

  FrameLog Log;
  std::int32_t OpenError = 0, ConnectError = 0, SendError = 0;
  std::vector<std::string> Connects;  // "10.0.0.5:7777 within 21000"
  std::vector<std::int32_t> SendTimeouts;
  int Alive = 0;

  std::unique_ptr<Socket> Create() override { return std::make_unique<FakeSocket>(*this); }

 private:
  class FakeSocket final : public Socket {
   public:
    explicit FakeSocket(FakeSockets& all) : All_(all) { ++All_.Alive; }
    ~FakeSocket() override { --All_.Alive; }
    FakeSocket(const FakeSocket&) = delete;
    FakeSocket& operator=(const FakeSocket&) = delete;

    std::int32_t Open() override { return All_.OpenError; }
    std::int32_t Connect(const std::string& address, std::uint16_t port, std::int32_t timeout) override {
      All_.Connects.push_back(address + ":" + std::to_string(port) + " within " + std::to_string(timeout));
      return All_.ConnectError;
    }
    std::int32_t Send(std::span<const std::uint8_t> message, std::int32_t timeout) override {
      All_.SendTimeouts.push_back(timeout);
      if (All_.SendError == 0) All_.Log.AddFrame(message);
      return All_.SendError;
    }

   private:
    FakeSockets& All_;
  };
};

}  // namespace ptzd::test
