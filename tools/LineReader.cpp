#include "LineReader.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <iostream>
#include <mutex>
#include <thread>

namespace ptzctl {

namespace {

std::atomic<bool> Waiting = false;

}  // namespace

bool LineReader::IsWaiting() { return Waiting; }

struct LineReader::Shared {
  std::mutex Mutex;
  std::condition_variable Changed;
  std::deque<std::string> Lines;
  bool AtEnd = false;
};

LineReader::LineReader(const Interruption& interruption)
    : Interruption_(interruption), Shared_(std::make_shared<Shared>()) {
  Waiting = true;
  std::thread([shared = Shared_] {
    for (std::string line; std::getline(std::cin, line);) {
      if (line.ends_with('\r')) line.pop_back();
      const std::lock_guard lock(shared->Mutex);
      shared->Lines.push_back(line);
      shared->Changed.notify_one();
    }
    const std::lock_guard lock(shared->Mutex);
    Waiting = false;
    shared->AtEnd = true;
    shared->Changed.notify_one();
  }).detach();
}

std::optional<std::string> LineReader::Next() {
  constexpr std::chrono::milliseconds look(50);
  std::unique_lock lock(Shared_->Mutex);
  while (!Interruption_.Came()) {
    if (!Shared_->Lines.empty()) {
      auto line = std::move(Shared_->Lines.front());
      Shared_->Lines.pop_front();
      return line;
    }
    if (Shared_->AtEnd) return std::nullopt;
    Shared_->Changed.wait_for(lock, look);
  }
  return std::nullopt;
}

}  // namespace ptzctl
