#pragma once

#include <ptzd/CameraControl.h>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <utility>
#include <vector>

namespace ptzd {

/// What is to be called once no lock is held.
using Calls = std::vector<std::function<void()>>;

/// Somebody's wish until it is done. Used by one thread at a time.
class Ticket {
 public:
  /// Who is to be told goes to `later`, which must outlive this.
  Ticket(WishTold told, Calls& later) : Told_(std::move(told)), Later_(later) {}
  /// No future is left without an answer.
  ~Ticket() { Done({.Result = WishResult::Abandoned, .Text = "the camera's control ended first"}); }
  Ticket(const Ticket&) = delete;
  Ticket& operator=(const Ticket&) = delete;

  ptzd::Wish Wish() { return {Sent_.get_future().share(), Done_.get_future().share()}; }

  void Sent(WishOutcome outcome) {
    if (std::exchange(IsSent_, true)) return;
    Finish(outcome);
    Sent_.set_value(outcome);
    Tell(Told_.Sent, std::move(outcome));
  }
  /// Counts as sent where nothing was told of that yet.
  void Done(WishOutcome outcome) {
    if (std::exchange(IsDone_, true)) return;
    Finish(outcome);
    Sent(outcome);
    Done_.set_value(outcome);
    Tell(Told_.Done, std::move(outcome));
  }

 private:
  void Finish(WishOutcome& outcome) const {
    using std::chrono::steady_clock, std::chrono::milliseconds;
    outcome.Took = std::chrono::duration_cast<milliseconds>(steady_clock::now() - Began_);
  }

  void Tell(const Told& told, WishOutcome outcome) {
    if (told) Later_.push_back([told, outcome = std::move(outcome)] { told(outcome); });
  }

  const WishTold Told_;
  Calls& Later_;
  const std::chrono::steady_clock::time_point Began_ = std::chrono::steady_clock::now();
  std::promise<WishOutcome> Sent_, Done_;
  bool IsSent_ = false, IsDone_ = false;
};

/// Those whose wishes became one.
class Tickets {
 public:
  void Add(std::shared_ptr<Ticket> ticket) { All_.push_back(std::move(ticket)); }
  void Add(Tickets others) {
    for (auto& ticket : others.All_) All_.push_back(std::move(ticket));
  }
  void Sent(const WishOutcome& outcome) const {
    for (const auto& ticket : All_) ticket->Sent(outcome);
  }
  void Done(const WishOutcome& outcome) {
    for (const auto& ticket : std::exchange(All_, {})) ticket->Done(outcome);
  }

 private:
  std::vector<std::shared_ptr<Ticket>> All_;
};

}  // namespace ptzd
