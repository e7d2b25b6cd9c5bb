#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/Internet.h"

namespace ptzd::internet {

/// What a handle stands for.
class Node {
 public:
  enum class Kind { Session, Connection, Request };

  virtual ~Node() = default;
  virtual Kind NodeKind() const = 0;
  virtual void Closed() {}
  /// True for what goes on after the handle above it is closed.
  virtual bool OutlivesParent() const { return false; }
};

/// The handles of the process. A number is never given out twice, so that a stale one names nothing.
class HandleTable {
 public:
  InternetHandle Add(std::shared_ptr<Node> node, InternetHandle parent = 0) {
    const std::lock_guard lock(Mutex_);
    const InternetHandle handle = ++LastHandle_;
    if (const auto above = Entries_.find(parent); above != Entries_.end())
      above->second.Children.push_back(handle);
    Entries_.emplace(handle, Entry{std::move(node), parent, {}});
    return handle;
  }

  /// Null for a handle that is closed, was never given out, or stands for something else.
  template <typename T>
  std::shared_ptr<T> Find(InternetHandle handle) const {
    const std::lock_guard lock(Mutex_);
    const auto entry = Entries_.find(handle);
    if (entry == Entries_.end() || entry->second.Node->NodeKind() != T::NodeKindOf) return nullptr;
    return std::static_pointer_cast<T>(entry->second.Node);
  }

  bool Contains(InternetHandle handle) const {
    const std::lock_guard lock(Mutex_);
    return Entries_.contains(handle);
  }

  /// Closes a handle and those below it. False where it is not open.
  bool Remove(InternetHandle handle) {
    std::shared_ptr<Node> only;
    std::vector<std::shared_ptr<Node>> closed;
    {
      const std::lock_guard lock(Mutex_);
      const auto entry = Entries_.find(handle);
      if (entry == Entries_.end()) return false;
      if (const auto above = Entries_.find(entry->second.Parent); above != Entries_.end())
        std::erase(above->second.Children, handle);
      if (entry->second.Children.empty()) {
        only = std::move(entry->second.Node);
        Entries_.erase(entry);
      } else {
        Extract(handle, closed);
      }
    }
    if (only) only->Closed();
    for (const auto& node : closed) node->Closed();
    return true;
  }

  std::size_t Count() const {
    const std::lock_guard lock(Mutex_);
    return Entries_.size();
  }

 private:
  struct Entry {
    std::shared_ptr<internet::Node> Node;
    InternetHandle Parent;
    std::vector<InternetHandle> Children;
  };

  void Extract(InternetHandle handle, std::vector<std::shared_ptr<Node>>& closed) {
    auto entry = Entries_.extract(handle).mapped();
    for (const auto child : entry.Children)
      if (!Entries_.at(child).Node->OutlivesParent()) Extract(child, closed);
    closed.push_back(std::move(entry.Node));  // after those that hang on it
  }

  mutable std::mutex Mutex_;
  std::unordered_map<InternetHandle, Entry> Entries_;
  InternetHandle LastHandle_ = 0;
};

}  // namespace ptzd::internet
