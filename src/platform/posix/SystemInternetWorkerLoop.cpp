#include "platform/posix/SystemInternetWorkerLoop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace ptzd::internet {

namespace {

constexpr int SocketsPerStep = 4;

static_assert(EPOLLIN == POLLIN && EPOLLOUT == POLLOUT && EPOLLERR == POLLERR && EPOLLHUP == POLLHUP);

bool Control(int epoll, int operation, int descriptor, short events) {
  epoll_event event{};
  event.events = static_cast<std::uint32_t>(events);
  event.data.fd = descriptor;
  return epoll_ctl(epoll, operation, descriptor, &event) == 0;
}

}  // namespace

Descriptor::Descriptor(int value, const char* call) : Value_(value) {
  if (value < 0) throw std::system_error(errno, std::generic_category(), call);
}

Descriptor::~Descriptor() { close(Value_); }

WorkerLoop::WorkerLoop()
    : Epoll_(epoll_create1(EPOLL_CLOEXEC), "epoll_create1"),
      Wake_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd") {
  if (!Control(Epoll_, EPOLL_CTL_ADD, Wake_, POLLIN))
    throw std::system_error(errno, std::generic_category(), "epoll_ctl");
}

bool WorkerLoop::Start(Transfer& transfer) {
  if (!Add(transfer)) return false;
  OnTime(TimePoint::max());
  return true;
}

std::vector<Transfer*> WorkerLoop::Step(TimePoint deadline) {
  auto now = std::chrono::steady_clock::now();
  if (!Noticed_.empty()) deadline = now;
  std::array<epoll_event, SocketsPerStep> events;
  const int count = epoll_wait(Epoll_, events.data(), SocketsPerStep,
                               MillisecondsUntil(std::min(TimerDue_, deadline), now));
  now = std::chrono::steady_clock::now();
  for (int i = 0; i < count; ++i) {
    const auto& event = events[static_cast<std::size_t>(i)];
    if (event.data.fd == Wake_) {
      eventfd_t wakes = 0;
      eventfd_read(Wake_, &wakes);
    } else {
      OnReady(event.data.fd, static_cast<int>(event.events), now);
    }
  }
  OnTime(now);
  return std::exchange(Noticed_, {});
}

void WorkerLoop::Wake() {
  // Fails only where the counter is full, and then the thread wakes anyhow.
  [[maybe_unused]] const int result = eventfd_write(Wake_, 1);
}

void WorkerLoop::Watch(curl_socket_t descriptor, const Socket& socket, bool isNew) {
  if (!Control(Epoll_, isNew ? EPOLL_CTL_ADD : EPOLL_CTL_MOD, descriptor, socket.Events) &&
      socket.Owner != nullptr)
    socket.Owner->Finish(CURLE_OUT_OF_MEMORY);
}

void WorkerLoop::Unwatch(curl_socket_t descriptor) { Control(Epoll_, EPOLL_CTL_DEL, descriptor, 0); }

}  // namespace ptzd::internet
