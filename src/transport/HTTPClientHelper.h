#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <span>

#include <ptzd/Variant.h>
#include "platform/Internet.h"

namespace ptzd {

/// The asynchronous requests under way in the process, by their context value: the connection handle that is
/// closed when the request is complete, and the body that must stay valid until then. Safe to use from any
/// thread.
class AsyncHandleCollection {
 public:
  explicit AsyncHandleCollection(std::int32_t lastContext = 0) : ContextCounter_(lastContext) {}

  /// A context value that no request under way has: 1 to 0x10000000, then again from 1.
  std::int32_t NextContext();

  /// Stores the connection; a newer one takes the place of an older one under the same context.
  void Add(std::uintptr_t context, InternetHandle connection);
  /// Keeps a request's body; the span stays valid until the context is removed.
  std::span<const std::uint8_t> KeepBody(std::uintptr_t context, Bytes body);
  /// Removes the context and returns its connection; nothing where it is not there.
  std::optional<InternetHandle> Remove(std::uintptr_t context);
  std::size_t Count() const;

 private:
  struct Entry {
    InternetHandle Connection = 0;
    Bytes Body;
  };

  mutable std::mutex Mutex_;
  std::map<std::uintptr_t, Entry> Entries_;
  std::int32_t ContextCounter_;
};

/// The one collection of the process, created on first use.
AsyncHandleCollection& AsyncHandles();

/// Keeps `AsyncHandles` in step with the requests under way and closes the handles of completed ones. Runs on
/// any thread and touches nothing but the collection and the log.
void HttpStatusCallback(Internet& internet, InternetHandle handle, std::uintptr_t context,
                        std::uint32_t status);

/// The calling thread's identifier as log texts show it.
std::string CurrentThreadText();

}  // namespace ptzd
