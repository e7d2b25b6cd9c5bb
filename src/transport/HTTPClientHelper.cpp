#include "transport/HTTPClientHelper.h"

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include <ptzd/Logging.h>

namespace ptzd {

namespace {
constexpr std::int32_t LastContext = 0x0FFFFFFF;
std::atomic<bool> CollectionCreated = false;
}  // namespace

std::int32_t AsyncHandleCollection::NextContext() {
  const std::lock_guard lock(Mutex_);
  do {
    if (ContextCounter_ > LastContext) ContextCounter_ = 0;
    ++ContextCounter_;
  } while (Entries_.contains(static_cast<std::uintptr_t>(ContextCounter_)));
  return ContextCounter_;
}

void AsyncHandleCollection::Add(std::uintptr_t context, InternetHandle connection) {
  const std::lock_guard lock(Mutex_);
  Entries_[context].Connection = connection;
}

std::span<const std::uint8_t> AsyncHandleCollection::KeepBody(std::uintptr_t context, Bytes body) {
  const std::lock_guard lock(Mutex_);
  auto& kept = Entries_[context].Body;
  kept = std::move(body);
  return kept;
}

std::optional<InternetHandle> AsyncHandleCollection::Remove(std::uintptr_t context) {
  const std::lock_guard lock(Mutex_);
  const auto entry = Entries_.extract(context);
  if (!entry) return std::nullopt;
  return entry.mapped().Connection;
}

std::size_t AsyncHandleCollection::Count() const {
  const std::lock_guard lock(Mutex_);
  return Entries_.size();
}

AsyncHandleCollection& AsyncHandles() {
  // Never destroyed: a request may complete while the process ends.
  static auto& collection = *new AsyncHandleCollection;
  return collection;
}

std::string CurrentThreadText() {
  return std::to_string(std::hash<std::thread::id>()(std::this_thread::get_id()));
}

void HttpStatusCallback(Internet& internet, InternetHandle handle, std::uintptr_t context,
                        std::uint32_t status) {
  LogMessage("Thread: " + CurrentThreadText() + ", Handle: " + std::to_string(handle) +
             ", Context: " + std::to_string(context) + ", Status: " + std::to_string(status));
  auto& handles = AsyncHandles();
  if (!CollectionCreated.exchange(true)) LogMessage("Creating collection");

  if (status == InternetStatusHandleCreated) {
    LogMessage("Session handle created");
    handles.Add(context, handle);
  } else if (status == InternetStatusRequestComplete) {
    LogMessage("Request complete, closing handles");
    LogMessage("Closed request handle " + std::to_string(internet.CloseHandle(handle)));
    if (const auto connection = handles.Remove(context))
      LogMessage("Closed session handle " + std::to_string(internet.CloseHandle(*connection)));
  }
}

}  // namespace ptzd
