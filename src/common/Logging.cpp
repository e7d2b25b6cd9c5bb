#include <ptzd/Logging.h>

#include <atomic>
#include <mutex>
#include <utility>

#include "common/Credentials.h"
#include "common/LogScope.h"

namespace ptzd {

namespace {

struct Attachment {
  std::mutex mutex;
  LogSink sink;
  LogLineSink lineSink;
  std::atomic<bool> attached = false, takesLines = false;

  template <typename Sink>
  void Attach(Sink& place, Sink other) {
    const std::lock_guard lock(mutex);
    place = std::move(other);
    takesLines.store(static_cast<bool>(lineSink), std::memory_order_release);
    attached.store(sink || lineSink, std::memory_order_release);
  }
};

// Never destroyed: threads that outlive main may still log.
Attachment& TheAttachment() {
  static auto& attachment = *new Attachment;
  return attachment;
}

constinit thread_local const LogSubject* Subject = nullptr;

}  // namespace

LogScope::LogScope(const LogSubject& subject) : Before_(std::exchange(Subject, &subject)) {}
LogScope::~LogScope() { Subject = Before_; }

bool LogLinesAreTaken() { return TheAttachment().takesLines.load(std::memory_order_acquire); }
const LogSubject* CurrentLogSubject() { return Subject; }

void LogMessage(std::string_view message, LogLevel level) {
  auto& attachment = TheAttachment();
  if (!attachment.attached.load(std::memory_order_acquire)) return;
  const auto masked = MaskCredentials(message);
  const std::lock_guard lock(attachment.mutex);
  if (attachment.sink) attachment.sink(masked);
  if (!attachment.lineSink) return;
  LogLine line{.Text = masked, .Level = level, .When = std::chrono::system_clock::now()};
  if (Subject != nullptr) line.DriverClass = Subject->DriverClass, line.Address = Subject->Address;
  attachment.lineSink(line);
}

void SetLogSink(LogSink sink) { TheAttachment().Attach(TheAttachment().sink, std::move(sink)); }
void SetLogLineSink(LogLineSink sink) { TheAttachment().Attach(TheAttachment().lineSink, std::move(sink)); }

std::string_view NameOf(LogLevel level) {
  switch (level) {
    case LogLevel::Debug:
      return "debug";
    case LogLevel::Info:
      return "info";
    case LogLevel::Warning:
      return "warning";
    case LogLevel::Error:
      break;
  }
  return "error";
}

}  // namespace ptzd
