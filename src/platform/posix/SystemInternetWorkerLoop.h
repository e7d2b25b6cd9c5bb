#pragma once

#include <vector>

#include "platform/posix/SystemInternetLoop.h"

namespace ptzd::internet {

/// A file descriptor that is closed with its owner.
class Descriptor {
 public:
  /// Takes what `call` of the system answered; throws std::system_error where that was a failure.
  Descriptor(int value, const char* call);
  ~Descriptor();
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  operator int() const { return Value_; }

 private:
  int Value_;
};

/// A loop for many transfers at a time: what a step costs does not grow with the number of those under way.
class WorkerLoop final : public Loop {
 public:
  /// Throws std::system_error where the process has no descriptor left.
  WorkerLoop();

  /// Makes the calling thread the one that drives the loop.
  void Adopt() { Thread_ = std::this_thread::get_id(); }

  /// Adds a transfer and takes its first steps at once. False where it cannot be added.
  bool Start(Transfer& transfer);

  /// Waits until something happens to a transfer, `Wake`, or `deadline`. Answers those that something
  /// happened to since the last step, some of them perhaps more than once. A busy network is served a few
  /// sockets a step, so that a step is short.
  std::vector<Transfer*> Step(TimePoint deadline);

  /// Ends a wait. May be called on any thread.
  void Wake();

 private:
  void Watch(curl_socket_t descriptor, const Socket& socket, bool isNew) override;
  void Unwatch(curl_socket_t descriptor) override;
  void Noticed(Transfer& transfer) override { Noticed_.push_back(&transfer); }

  const Descriptor Epoll_;
  const Descriptor Wake_;
  std::vector<Transfer*> Noticed_;
};

}  // namespace ptzd::internet
