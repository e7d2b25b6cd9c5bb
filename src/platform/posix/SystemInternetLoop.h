#pragma once

#include <curl/curl.h>
#include <poll.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/posix/SystemInternetTransfer.h"

namespace ptzd::internet {

/// Drives transfers on the thread that made it and keeps their connections: a libcurl multi handle that
/// waits with our own poll, which costs a request fewer system calls than libcurl's.
class Loop : public std::enable_shared_from_this<Loop> {
 public:
  /// The calling thread's, made on first use. It lives on as long as a transfer is in it.
  static std::shared_ptr<Loop> OfThisThread();

  Loop();
  ~Loop();
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  bool Add(Transfer& transfer);
  /// Ends the transfer where it is not over: its connection is closed.
  void Remove(Transfer& transfer);

  /// Waits until `ready` or a time-out. Other transfers of the thread get nothing read meanwhile, so that
  /// their bodies do not pile up.
  void Drive(Transfer& transfer, bool (Transfer::*ready)() const);
  /// Waits until something happens to any transfer, `wakeDescriptor` can be read, or `deadline`.
  void Step(int wakeDescriptor, TimePoint deadline);

  /// Closes a connection kept to `origin`. Called on another thread: before the next exchange of this one, at
  /// the latest when this thread ends.
  void CloseConnection(const Origin& origin);

  /// Most connections that one session opens to one server; 0 is any number.
  static void MaxConnectionsPerServer(long count);

 private:
  struct Socket {
    curl_socket_t descriptor;
    short events;
    Transfer* owner;
  };

  static int OnSocket(CURL* easy, curl_socket_t descriptor, int what, void* loop, void*);
  static int OnTimer(CURLM*, long timeout, void* loop);

  void CloseNow(const Origin& origin);
  void CloseUnwanted();
  /// `now` is what the clock says; the answer is what it said after the wait.
  TimePoint Wait(TimePoint now, const Transfer* only, int wakeDescriptor, TimePoint deadline);
  void Act(curl_socket_t descriptor, int events);

  CURLM* Multi_ = nullptr;
  long MaxConnections_ = 0;
  TimePoint TimerDue_ = TimePoint::max();
  std::vector<Socket> Sockets_;
  std::vector<pollfd> Polled_;

  const std::thread::id Thread_ = std::this_thread::get_id();
  std::mutex Mutex_;
  std::vector<Origin> Unwanted_;  ///< told by other threads
  std::atomic<bool> HasUnwanted_ = false;
};

}  // namespace ptzd::internet
