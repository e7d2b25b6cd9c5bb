#include "platform/posix/SystemInternetLoop.h"

#include <sys/socket.h>

#include <algorithm>
#include <atomic>
#include <limits>
#include <new>

namespace ptzd::internet {

namespace {

/// By itself libcurl would keep four connections for all the sessions of a thread.
constexpr long MaxKeptConnections = 1'000'000;

std::atomic<long> ConnectionLimit = 0;

Transfer* OwnerOf(CURL* easy) {
  char* owner = nullptr;
  curl_easy_getinfo(easy, CURLINFO_PRIVATE, &owner);
  return reinterpret_cast<Transfer*>(owner);
}

}  // namespace

std::shared_ptr<Loop> Loop::OfThisThread() {
  thread_local const auto loop = std::make_shared<Loop>();
  return loop;
}

void Loop::MaxConnectionsPerServer(long count) { ConnectionLimit = count; }

Loop::Loop() {
  InitialiseLibrary();
  Multi_ = curl_multi_init();
  if (Multi_ == nullptr) throw std::bad_alloc();
  curl_multi_setopt(Multi_, CURLMOPT_MAXCONNECTS, MaxKeptConnections);
  curl_multi_setopt(Multi_, CURLMOPT_SOCKETFUNCTION, OnSocket);
  curl_multi_setopt(Multi_, CURLMOPT_SOCKETDATA, this);
  curl_multi_setopt(Multi_, CURLMOPT_TIMERFUNCTION, OnTimer);
  curl_multi_setopt(Multi_, CURLMOPT_TIMERDATA, this);
}

Loop::~Loop() { curl_multi_cleanup(Multi_); }

int Loop::MillisecondsUntil(TimePoint due, TimePoint now) {
  if (due == TimePoint::max()) return -1;
  if (due <= now) return 0;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - now).count();
  return static_cast<int>(std::min<std::int64_t>(left, std::numeric_limits<int>::max()));
}

bool Loop::Add(Transfer& transfer) {
  if (const long limit = ConnectionLimit; limit != MaxConnections_) {
    MaxConnections_ = limit;
    curl_multi_setopt(Multi_, CURLMOPT_MAX_HOST_CONNECTIONS, limit);
  }
  if (HasUnwanted_) CloseUnwanted();
  transfer.Enter(shared_from_this());
  return curl_multi_add_handle(Multi_, transfer.Handle()) == CURLM_OK;
}

void Loop::Remove(Transfer& transfer) { curl_multi_remove_handle(Multi_, transfer.Handle()); }

void Loop::Drive(Transfer& transfer, bool (Transfer::*ready)() const) {
  if ((transfer.*ready)()) return;
  auto now = std::chrono::steady_clock::now();
  transfer.Touch(now);  // what the caller did meanwhile is no delay of the camera's
  while (!(transfer.*ready)()) {
    now = Wait(now, transfer);
    if (!(transfer.*ready)() && transfer.Deadline() <= now) transfer.Finish(CURLE_OPERATION_TIMEDOUT);
  }
}

void Loop::CloseConnection(const Origin& origin) {
  if (std::this_thread::get_id() == Thread_) return CloseNow(origin);
  const std::lock_guard lock(Mutex_);
  Unwanted_.push_back(origin);
  HasUnwanted_ = true;
}

void Loop::CloseUnwanted() {
  std::vector<Origin> unwanted;
  {
    const std::lock_guard lock(Mutex_);
    unwanted.swap(Unwanted_);
    HasUnwanted_ = false;
  }
  for (const auto& origin : unwanted) CloseNow(origin);
}

void Loop::CloseNow(const Origin& origin) {
  // libcurl has no call for it, but closes the connection of an exchange that is called off before its
  // request.
  Transfer closer(origin);
  if (curl_multi_add_handle(Multi_, closer.Handle()) == CURLM_OK) Drive(closer, &Transfer::Over);
  curl_multi_remove_handle(Multi_, closer.Handle());
}

void Loop::NoteConnection(curl_socket_t descriptor, int localPort) {
  const auto [noted, isNew] = LocalPorts_.try_emplace(descriptor, localPort);
  if (!isNew) Descriptors_.erase({std::exchange(noted->second, localPort), descriptor});
  Descriptors_.emplace(localPort, descriptor);
}

bool Loop::IsSilent(int localPort) const {
  // Connections to different cameras may share a port.
  for (auto noted = Descriptors_.lower_bound({localPort, 0});
       noted != Descriptors_.end() && noted->first == localPort; ++noted) {
    char byte = 0;
    if (recv(noted->second, &byte, 1, MSG_PEEK | MSG_DONTWAIT) >= 0) return false;
  }
  return true;
}

TimePoint Loop::Wait(TimePoint now, const Transfer& transfer) {
  if (TimerDue_ > now) {
    Polled_.clear();
    for (const auto& [descriptor, socket] : Sockets_)
      if (socket.Owner == &transfer) Polled_.push_back({descriptor, socket.Events, 0});
    poll(Polled_.data(), Polled_.size(), MillisecondsUntil(std::min(TimerDue_, transfer.Deadline()), now));

    now = std::chrono::steady_clock::now();
    for (const auto& polled : Polled_)
      if (polled.revents != 0) OnReady(polled.fd, polled.revents, now);
  }
  OnTime(now);
  return now;
}

void Loop::OnReady(curl_socket_t descriptor, int events, TimePoint now) {
  const auto socket = Sockets_.find(descriptor);
  // What libcurl did for the sockets before this one may have closed it.
  if (socket == Sockets_.end()) return;
  if (auto* owner = socket->second.Owner) {
    owner->Touch(now);
    Noticed(*owner);
  }
  // A socket in error is ready for whatever is tried on it, and trying tells the error.
  const int ready = events & (POLLIN | POLLOUT) ? events : socket->second.Events;
  Act(descriptor, (ready & POLLIN ? CURL_CSELECT_IN : 0) | (ready & POLLOUT ? CURL_CSELECT_OUT : 0));
}

void Loop::OnTime(TimePoint now) {
  if (TimerDue_ > now) return;
  TimerDue_ = TimePoint::max();
  Act(CURL_SOCKET_TIMEOUT, 0);
}

void Loop::Act(curl_socket_t descriptor, int events) {
  int running = 0;
  curl_multi_socket_action(Multi_, descriptor, events, &running);
  for (int left = 0; const auto* message = curl_multi_info_read(Multi_, &left);) {
    if (message->msg != CURLMSG_DONE) continue;
    auto& transfer = *OwnerOf(message->easy_handle);
    const auto result = message->data.result;
    if (transfer.LostKeptConnection(result)) {
      Remove(transfer);
      transfer.Begin();
      if (curl_multi_add_handle(Multi_, transfer.Handle()) == CURLM_OK) continue;
    }
    transfer.Finish(result);
    Noticed(transfer);
  }
}

int Loop::OnSocket(CURL* easy, curl_socket_t descriptor, int what, void* loop, void*) {
  auto& self = *static_cast<Loop*>(loop);
  if (what == CURL_POLL_REMOVE) {
    if (self.Sockets_.erase(descriptor) > 0) self.Unwatch(descriptor);
    return 0;
  }
  const auto events =
      static_cast<short>((what & CURL_POLL_IN ? POLLIN : 0) | (what & CURL_POLL_OUT ? POLLOUT : 0));
  auto* owner = OwnerOf(easy);
  const auto [socket, isNew] = self.Sockets_.insert_or_assign(descriptor, Socket{events, owner});
  self.Watch(descriptor, socket->second, isNew);
  if (owner != nullptr) {
    owner->WantsToWrite((what & CURL_POLL_OUT) != 0);
    self.Noticed(*owner);
  }
  return 0;
}

int Loop::OnTimer(CURLM*, long timeout, void* loop) {
  auto& due = static_cast<Loop*>(loop)->TimerDue_;
  if (timeout < 0)
    due = TimePoint::max();
  else if (timeout == 0)
    due = TimePoint::min();  // as every request begins; no need to ask the clock
  else
    due = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout);
  return 0;
}

}  // namespace ptzd::internet
