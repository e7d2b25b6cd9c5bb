#pragma once

// Inside the engine only: this header pulls in Boost.

#include <array>
#include <boost/asio/buffer.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <functional>
#include <memory>
#include <utility>

#include "simulators/engine/Faults.h"

namespace ptzsim {

/// How the playing of a plan ended, and so what the owner of the line does next.
enum class Ending { Done, Close, Reset, DieOnReuse };

/// Plays a plan over any Asio stream: a socket, a pseudo-terminal. `done` is called once, from the stream's
/// executor; it must keep the stream alive.
template <class Stream>
class Playback : public std::enable_shared_from_this<Playback<Stream>> {
 public:
  static void Start(Stream& stream, Plan plan, std::function<void(Ending)> done) {
    std::shared_ptr<Playback>(new Playback(stream, std::move(plan), std::move(done)))->Next();
  }

 private:
  Playback(Stream& stream, Plan plan, std::function<void(Ending)> done)
      : Stream_(stream), Timer_(stream.get_executor()), Plan_(std::move(plan)), Done_(std::move(done)) {}

  void Next() {
    if (At_ == Plan_.size()) return Done_(Ending::Done);
    const Step& step = Plan_[At_++];
    const auto resume = [self = this->shared_from_this()](const boost::system::error_code& error, auto...) {
      error ? self->Done_(Ending::Close) : self->Next();
    };
    switch (step.What) {
      case Step::Kind::Write:
        return boost::asio::async_write(Stream_, boost::asio::buffer(step.Bytes), resume);
      case Step::Kind::Wait:
        Timer_.expires_after(step.Time);
        return Timer_.async_wait(resume);
      case Step::Kind::Hold:
        return Discard();
      case Step::Kind::Close:
        return Done_(Ending::Close);
      case Step::Kind::Reset:
        return Done_(Ending::Reset);
      case Step::Kind::Again:
        At_ -= 1 + step.Back;
        return Next();
      case Step::Kind::DieOnReuse:
        return Done_(Ending::DieOnReuse);
    }
  }

  void Discard() {
    Stream_.async_read_some(
        boost::asio::buffer(Rest_),
        [self = this->shared_from_this()](const boost::system::error_code& error, std::size_t) {
          error ? self->Done_(Ending::Close) : self->Discard();
        });
  }

  Stream& Stream_;
  boost::asio::steady_timer Timer_;
  Plan Plan_;
  std::size_t At_ = 0;
  std::function<void(Ending)> Done_;
  std::array<char, 1024> Rest_{};
};

}  // namespace ptzsim
