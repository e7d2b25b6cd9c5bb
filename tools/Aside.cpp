#include "Aside.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

namespace ptzctl {

namespace {

std::atomic<bool> HasThreads = false;

struct TaskList {
  std::vector<std::function<void()>> Tasks;
  std::mutex Mutex;
  std::condition_variable Changed;
  std::size_t Next = 0, Ended = 0;
};

void Work(TaskList& list) {
  std::unique_lock lock(list.Mutex);
  while (list.Next < list.Tasks.size()) {
    const auto& task = list.Tasks[list.Next++];
    lock.unlock();
    try {
      task();
    } catch (const std::exception&) {
      // What it was to bring is missing, and that is looked at.
    }
    lock.lock();
    ++list.Ended;
    list.Changed.notify_all();
  }
}

}  // namespace

bool RunAside(std::vector<std::function<void()>> tasks, unsigned atOnce,
              std::chrono::steady_clock::time_point deadline) {
  const auto list = std::make_shared<TaskList>();
  list->Tasks = std::move(tasks);
  const auto count = list->Tasks.size();
  for (std::size_t i = 0; i < std::min<std::size_t>(atOnce, count); ++i) {
    HasThreads = true;
    std::thread([list] { Work(*list); }).detach();
  }
  std::unique_lock lock(list->Mutex);
  const bool ended = list->Changed.wait_until(lock, deadline, [&] { return list->Ended == count; });
  list->Next = count;
  return ended;
}

bool MayBeBusyAside() { return HasThreads; }

}  // namespace ptzctl
