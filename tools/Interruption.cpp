#include "Interruption.h"

#include <cstdlib>
#include <utility>

namespace ptzctl {

namespace {

/// What is left to say after a stop takes far less.
constexpr std::chrono::seconds TimeToEnd(3);

}  // namespace

Interruption::Interruption() : Signals_([this](int signal) { Come(signal); }) {}

Interruption::~Interruption() {
  const std::lock_guard lock(Mutex_);
  Ended_ = true;
  Changed_.notify_all();
}

void Interruption::Note(int signal) {
  const std::lock_guard lock(Mutex_);
  if (Signal_ == 0) Signal_ = signal;
  Changed_.notify_all();
}

int Interruption::Signal() const {
  const std::lock_guard lock(Mutex_);
  return Signal_;
}

bool Interruption::Forgive(int signal) {
  const std::lock_guard lock(Mutex_);
  if (Signal_ != signal) return false;
  Signal_ = 0;
  Changed_.notify_all();
  return true;
}

bool Interruption::Sleep(std::chrono::milliseconds time) const {
  std::unique_lock lock(Mutex_);
  return !Changed_.wait_for(lock, time, [this] { return Signal_ != 0; });
}

void Interruption::OnSignal(std::function<void()> stop) {
  const std::lock_guard lock(Stopping_);
  Stop_ = std::move(stop);
}

void Interruption::Come(int signal) {
  Note(signal);
  {
    const std::lock_guard lock(Stopping_);
    if (Stop_) Stop_();
  }
  std::unique_lock lock(Mutex_);
  const auto isDealtWith = [this] { return Ended_ || Signal_ == 0; };
  if (!Changed_.wait_for(lock, TimeToEnd, isDealtWith)) std::_Exit(ExitCodeOf(Signal_));
}

}  // namespace ptzctl
