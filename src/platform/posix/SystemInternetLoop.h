#pragma once

#include <curl/curl.h>
#include <poll.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/posix/SystemInternetTransfer.h"

namespace ptzd::internet {

/// Drives transfers on the thread that made it and keeps their connections: a libcurl multi handle that
/// waits with our own poll, which costs a request fewer system calls than libcurl's. A thread that drives
/// many at a time has a `WorkerLoop`.
class Loop : public std::enable_shared_from_this<Loop> {
 public:
  /// The calling thread's, made on first use. It lives on as long as a transfer is in it.
  static std::shared_ptr<Loop> OfThisThread();

  Loop();
  virtual ~Loop();
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  bool Add(Transfer& transfer);
  /// Ends the transfer where it is not over: its connection is closed.
  void Remove(Transfer& transfer);

  /// Waits until `ready` or a time-out. Other transfers of the thread get nothing read meanwhile, so that
  /// their bodies do not pile up.
  void Drive(Transfer& transfer, bool (Transfer::*ready)() const);

  /// Closes a connection kept to `origin`. Called on another thread: before the next exchange of this one, at
  /// the latest when this thread ends.
  void CloseConnection(const Origin& origin);

  /// Tells by which descriptor a connection, known by its local port, can be looked at later.
  void NoteConnection(curl_socket_t descriptor, int localPort);
  /// False where bytes, or its end, wait on a noted connection that nobody uses.
  bool IsSilent(int localPort) const;

  /// Most connections that one session opens to one server; 0 is any number.
  static void MaxConnectionsPerServer(long count);

 protected:
  struct Socket {
    short Events;
    Transfer* Owner;
  };

  /// The time left until `due` as the system takes it, rounded up so that it is not woken just before.
  static int MillisecondsUntil(TimePoint due, TimePoint now);

  /// Other events are waited for on a socket; `isNew` where there were none before.
  virtual void Watch(curl_socket_t, const Socket&, bool /*isNew*/) {}
  virtual void Unwatch(curl_socket_t) {}
  /// Something happened to a transfer.
  virtual void Noticed(Transfer&) {}

  /// Does what a socket is ready for; `events` as poll tells them.
  void OnReady(curl_socket_t descriptor, int events, TimePoint now);
  void OnTime(TimePoint now);

  TimePoint TimerDue_ = TimePoint::max();
  std::thread::id Thread_ = std::this_thread::get_id();

 private:
  static int OnSocket(CURL* easy, curl_socket_t descriptor, int what, void* loop, void*);
  static int OnTimer(CURLM*, long timeout, void* loop);

  void CloseNow(const Origin& origin);
  void CloseUnwanted();
  /// `now` is what the clock says; the answer is what it said after the wait.
  TimePoint Wait(TimePoint now, const Transfer& transfer);
  void Act(curl_socket_t descriptor, int events);

  CURLM* Multi_ = nullptr;
  long MaxConnections_ = 0;
  std::unordered_map<curl_socket_t, Socket> Sockets_;
  std::vector<pollfd> Polled_;
  std::unordered_map<curl_socket_t, int> LocalPorts_;    ///< of a descriptor, also after it was closed
  std::set<std::pair<int, curl_socket_t>> Descriptors_;  ///< the same by local port

  std::mutex Mutex_;
  std::vector<Origin> Unwanted_;  ///< told by other threads
  std::atomic<bool> HasUnwanted_ = false;
};

}  // namespace ptzd::internet
