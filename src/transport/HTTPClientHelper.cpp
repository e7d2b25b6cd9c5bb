#include "transport/HTTPClientHelper.h"

#include <atomic>
#include <functional>
#include <thread>
#include <utility>

#include "transport/HTTPHandles.h"

namespace ptzd {

namespace {
constexpr std::int32_t LastContext = 0x0FFFFFFF;
std::atomic<bool> CollectionCreated = false;
constexpr std::size_t UsualHeaderBlock = 2048;

void TellOutcome(Internet& internet, InternetHandle request, OpenExchange& told) {
  const auto error = internet.QueryOutcome(request);
  if (error == SystemErrorNone)
    told.TakeHeaders(HeaderBlock(internet, request));
  else if (error == SystemErrorCancelled)
    told.Fail(HTTPErrorCancelled, "The request was given up before it was answered.");
  else
    told.Fail(HTTPErrorNoServer, "The HTTP server did not answer." + ReasonOf(error));
  told.TakeFailure(FailureOf(error));
  told.TellEnded();
}

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

void AsyncHandleCollection::KeepExchange(std::uintptr_t context, std::unique_ptr<OpenExchange> exchange) {
  const std::lock_guard lock(Mutex_);
  Entries_[context].Exchange = std::move(exchange);
}

std::unique_ptr<OpenExchange> AsyncHandleCollection::TakeExchange(std::uintptr_t context) {
  const std::lock_guard lock(Mutex_);
  const auto entry = Entries_.find(context);
  return entry == Entries_.end() ? nullptr : std::exchange(entry->second.Exchange, nullptr);
}

void AsyncHandleCollection::KeepSubject(std::uintptr_t context, const LogSubject& subject) {
  const std::lock_guard lock(Mutex_);
  Entries_[context].Subject = subject;
}

LogSubject AsyncHandleCollection::SubjectOf(std::uintptr_t context) const {
  const std::lock_guard lock(Mutex_);
  const auto entry = Entries_.find(context);
  return entry == Entries_.end() ? LogSubject{} : entry->second.Subject;
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

std::string HeaderBlock(Internet& internet, InternetHandle request) {
  std::string block(UsualHeaderBlock, '\0');
  std::uint32_t length = 0;
  bool fits = internet.QueryRawHeaders(request, block, length);
  if (!fits && length >= block.size()) {
    block.resize(std::size_t{length} + 1);
    fits = internet.QueryRawHeaders(request, block, length);
  }
  block.resize(fits ? length : 0);
  return block;
}

std::string ReasonOf(std::uint32_t systemError) {
  switch (systemError) {
    case SystemErrorNone:
      return {};
    case SystemErrorTimeout:
      return " Nothing came in time.";
    case SystemErrorNameNotResolved:
      return " The name of the host is not known.";
    case SystemErrorCannotConnect:
      return " The connection was refused or could not be made.";
    case SystemErrorConnectionAborted:
    case SystemErrorConnectionReset:
    case SystemErrorInvalidResponse:
      return " The connection ended without a reply in HTTP.";
    default:
      return " The system's error is " + std::to_string(systemError) + ".";
  }
}

LinkFailure FailureOf(std::uint32_t systemError) {
  switch (systemError) {
    case SystemErrorNone:
      return LinkFailure::Nothing;
    case SystemErrorNameNotResolved:
    case SystemErrorCannotConnect:
      return LinkFailure::NotConnected;
    case SystemErrorTimeout:
    case SystemErrorCancelled:
      return LinkFailure::Silent;
    case SystemErrorConnectionReset:
      return LinkFailure::Reset;
    default:
      return LinkFailure::Closed;
  }
}

std::string CurrentThreadText() {
  return std::to_string(std::hash<std::thread::id>()(std::this_thread::get_id()));
}

void HttpStatusCallback(Internet& internet, InternetHandle handle, std::uintptr_t context,
                        std::uint32_t status) {
  const auto subject = LogLinesAreTaken() ? AsyncHandles().SubjectOf(context) : LogSubject{};
  std::optional<LogScope> scope;
  if (!subject.DriverClass.empty()) scope.emplace(subject);
  LogStep("Thread: " + CurrentThreadText() + ", Handle: " + std::to_string(handle) +
          ", Context: " + std::to_string(context) + ", Status: " + std::to_string(status));
  auto& handles = AsyncHandles();
  if (!CollectionCreated.exchange(true)) LogStep("Creating collection");

  if (status == InternetStatusHandleCreated) {
    LogStep("Session handle created");
    handles.Add(context, handle);
  } else if (status == InternetStatusRequestComplete) {
    if (const auto told = handles.TakeExchange(context)) TellOutcome(internet, handle, *told);
    LogStep("Request complete, closing handles");
    LogStep("Closed request handle " + std::to_string(internet.CloseHandle(handle)));
    if (const auto connection = handles.Remove(context))
      LogStep("Closed session handle " + std::to_string(internet.CloseHandle(*connection)));
  }
}

}  // namespace ptzd
