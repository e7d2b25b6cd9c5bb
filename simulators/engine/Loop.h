#pragma once

// Inside the engine only: this header pulls in Boost.

#include <boost/asio/dispatch.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <exception>
#include <future>
#include <thread>

namespace ptzsim {

/// An event loop on a thread of its own. `Stop` before anything dies that a pending operation reaches.
class Loop {
 public:
  Loop() : Work_(boost::asio::make_work_guard(Context_)), Thread_([this] { Context_.run(); }) {}
  ~Loop() { Stop(); }
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;

  boost::asio::io_context& Context() { return Context_; }

  /// Runs `action` on the loop's thread and returns when it has run, with its exception if it threw one.
  template <class Action>
  void Run(Action action) {
    if (Context_.get_executor().running_in_this_thread()) return action();
    std::promise<void> done;
    boost::asio::dispatch(Context_, [&] {
      try {
        action();
        done.set_value();
      } catch (...) {
        done.set_exception(std::current_exception());
      }
    });
    done.get_future().get();
  }

  void Stop() {
    Context_.stop();
    if (Thread_.joinable()) Thread_.join();
  }

 private:
  boost::asio::io_context Context_{1};
  boost::asio::executor_work_guard<boost::asio::io_context::executor_type> Work_;
  std::thread Thread_;
};

}  // namespace ptzsim
