#pragma once

// Inside the engine only: this header pulls in Boost.

#include <algorithm>
#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "simulators/engine/Message.h"
#include "simulators/engine/Playback.h"
#include "simulators/engine/RequestLog.h"

namespace ptzsim {

/// The device's end of a line of bare bytes, over any Asio stream: reads, hands the bytes to the make, logs
/// its messages and plays what the faults deal them. All members on the loop's thread.
template <class Stream>
class Session : public std::enable_shared_from_this<Session<Stream>> {
 public:
  struct Settings {
    std::chrono::nanoseconds ByteTime{};  ///< how long each byte takes to come in; 0: as fast as it is sent
    std::function<bool(const std::string&)> Admit{};  ///< whether these bytes reach the make; unset: all do
    std::function<void(Ending)> Ended;  ///< the line is to be closed; called once, `Close` has to follow
  };

  Session(Stream stream, int number, const MessageHandler& handler, RequestLog& log, FaultSwitches& faults,
          Settings settings)
      : Stream_(std::move(stream)),
        Timer_(Stream_.get_executor()),
        Number_(number),
        Handler_(handler),
        Log_(log),
        Faults_(faults),
        Settings_(std::move(settings)) {}

  void Start(bool paused) {
    Paused_ = paused;
    Read();
  }

  /// While paused nothing is read, and the other side's bytes pile up on the line.
  void Pause(bool paused) {
    if (Paused_ == paused) return;
    Paused_ = paused;
    if (paused && Reading_) Stream_.cancel();
    if (!paused && Idle_) Read();
  }

  /// The number under which messages are logged from now on.
  void SetNumber(int number) { Number_ = number; }
  Stream& Line() { return Stream_; }

  /// Reports what was begun and not finished, for when the other side has gone.
  void ReportUnfinished() {
    if (Pending_.empty()) return;
    Log_.AddViolation("connection " + std::to_string(Number_) +
                      " was closed in the middle of a message: " + Hex(Pending_));
    Pending_.clear();
  }

  void Close() {
    boost::system::error_code ignored;
    Stream_.close(ignored);
    Timer_.cancel();
  }

 private:
  void Read() {
    Idle_ = Paused_;
    if (Paused_) return;
    Reading_ = true;
    const std::size_t most = Settings_.ByteTime.count() > 0 ? 1 : Chunk_.size();
    Stream_.async_read_some(
        boost::asio::buffer(Chunk_.data(), most),
        [self = this->shared_from_this()](const boost::system::error_code& error, std::size_t count) {
          self->Reading_ = false;
          if (!self->Stream_.is_open()) return;
          if (error == boost::asio::error::operation_aborted) return self->Read();
          error ? self->Hung() : self->Received(count);
        });
  }

  void Hung() {
    ReportUnfinished();
    Settings_.Ended(Ending::Close);
  }

  void Received(std::size_t count) {
    if (DieOnReuse_) return Settings_.Ended(Ending::Close);
    const std::string bytes(Chunk_.data(), count);
    if (!Settings_.Admit || Settings_.Admit(bytes)) Pending_ += bytes;
    if (Settings_.ByteTime.count() == 0) return Decode();
    // A timer that fires somewhat late does not slow the line down; a pause of the sender does not let it
    // run.
    Due_ = std::max(Due_, std::chrono::steady_clock::now() - Settings_.ByteTime) + Settings_.ByteTime;
    Timer_.expires_at(Due_);
    Timer_.async_wait([self = this->shared_from_this()](const boost::system::error_code&) {
      if (self->Stream_.is_open()) self->Decode();
    });
  }

  void Decode() {
    while (auto message = Pending_.empty() ? std::nullopt : Handler_(Pending_)) {
      FaultSet faults = Faults_.TakeForRequest(message->Meaning);
      faults.Add(message->Faults);
      Request request{.Connection = Number_, .Raw = std::move(message->Raw)};
      request.Target = std::move(message->Meaning);
      request.Violation = std::move(message->Violation);
      Log_.Add(std::move(request));
      Plan plan = PlanReply(std::move(message->Reply), 0, false, faults);
      if (plan.empty()) continue;
      return Playback<Stream>::Start(
          Stream_, std::move(plan),
          [self = this->shared_from_this()](Ending ending) { self->Played(ending); });
    }
    Read();
  }

  void Played(Ending ending) {
    if (!Stream_.is_open()) return;
    if (ending == Ending::Close || ending == Ending::Reset) return Settings_.Ended(ending);
    DieOnReuse_ = ending == Ending::DieOnReuse;
    if (DieOnReuse_ && !Pending_.empty()) return Settings_.Ended(Ending::Close);
    Decode();
  }

  Stream Stream_;
  boost::asio::steady_timer Timer_;
  int Number_;
  const MessageHandler& Handler_;
  RequestLog& Log_;
  FaultSwitches& Faults_;
  Settings Settings_;
  std::array<char, 4096> Chunk_{};
  std::string Pending_;  ///< received and not yet a whole message
  std::chrono::steady_clock::time_point Due_{};
  bool Paused_ = false;
  bool Reading_ = false;
  bool Idle_ = false;  ///< nothing is pending because of the pause
  bool DieOnReuse_ = false;
};

}  // namespace ptzsim
