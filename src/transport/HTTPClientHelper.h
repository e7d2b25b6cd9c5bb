#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>

#include <ptzd/Variant.h>
#include "common/LogScope.h"
#include "platform/Internet.h"
#include "transport/Teller.h"

namespace ptzd {

/// The asynchronous requests under way in the process, by their context value: the connection handle that is
/// closed when the request is complete, the body that must stay valid until then, and the exchange whose end
/// is told then. Safe to use from any thread.
class AsyncHandleCollection {
 public:
  explicit AsyncHandleCollection(std::int32_t lastContext = 0) : ContextCounter_(lastContext) {}

  /// A context value that no request under way has: 1 to 0x10000000, then again from 1.
  std::int32_t NextContext();

  /// Stores the connection; a newer one takes the place of an older one under the same context.
  void Add(std::uintptr_t context, InternetHandle connection);
  /// Keeps a request's body; the span stays valid until the context is removed.
  std::span<const std::uint8_t> KeepBody(std::uintptr_t context, Bytes body);
  void KeepExchange(std::uintptr_t context, std::unique_ptr<OpenExchange> exchange);
  /// Null where none is kept. Whoever takes it tells its end.
  std::unique_ptr<OpenExchange> TakeExchange(std::uintptr_t context);
  /// What the request's later log lines are about.
  void KeepSubject(std::uintptr_t context, const LogSubject& subject);
  LogSubject SubjectOf(std::uintptr_t context) const;
  /// Removes the context and returns its connection; nothing where it is not there.
  std::optional<InternetHandle> Remove(std::uintptr_t context);
  std::size_t Count() const;

 private:
  struct Entry {
    InternetHandle Connection = 0;
    Bytes Body;
    std::unique_ptr<OpenExchange> Exchange;
    LogSubject Subject;
  };

  mutable std::mutex Mutex_;
  std::map<std::uintptr_t, Entry> Entries_;
  std::int32_t ContextCounter_;
};

/// The one collection of the process, created on first use.
AsyncHandleCollection& AsyncHandles();

/// Keeps `AsyncHandles` in step with the requests under way, tells what came of completed ones and closes
/// their handles. Runs on any thread and touches nothing but the collection, the log and the exchange's sink.
void HttpStatusCallback(Internet& internet, InternetHandle handle, std::uintptr_t context,
                        std::uint32_t status);

/// A reply's header block as `Internet::QueryRawHeaders` answers it, however long; empty where there is none.
std::string HeaderBlock(Internet& internet, InternetHandle request);

/// Why no reply came, as a sentence behind a blank; empty for no error.
std::string ReasonOf(std::uint32_t systemError);
/// Which way the link of a request failed that failed so.
LinkFailure FailureOf(std::uint32_t systemError);

/// The calling thread's identifier as log texts show it.
std::string CurrentThreadText();

}  // namespace ptzd
