#include <ptzd/Logging.h>

#include <atomic>
#include <mutex>
#include <utility>

#include "common/ComposedLog.h"
#include "common/Credentials.h"
#include "common/LogScope.h"

namespace ptzd {

namespace {

struct Attachment {
  std::mutex Mutex;
  LogSink Sink;
  LogLineSink LineSink;
  std::atomic<bool> Attached = false, TakesLines = false;

  template <typename Receiver>
  void Attach(Receiver& place, Receiver other) {
    const std::lock_guard lock(Mutex);
    place = std::move(other);
    TakesLines.store(static_cast<bool>(LineSink), std::memory_order_release);
    Attached.store(Sink || LineSink, std::memory_order_release);
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

bool LogIsTaken() { return TheAttachment().Attached.load(std::memory_order_acquire); }
bool LogLinesAreTaken() { return TheAttachment().TakesLines.load(std::memory_order_acquire); }
const LogSubject* CurrentLogSubject() { return Subject; }

void LogMessage(std::string_view message, LogLevel level) {
  if (!LogIsTaken()) return;
  auto& attachment = TheAttachment();
  const auto masked = MaskCredentials(message);
  const std::lock_guard lock(attachment.Mutex);
  if (attachment.Sink) attachment.Sink(masked);
  if (!attachment.LineSink) return;
  LogLine line{.Text = masked, .Level = level, .When = std::chrono::system_clock::now()};
  if (Subject != nullptr) line.DriverClass = Subject->DriverClass, line.Address = Subject->Address;
  attachment.LineSink(line);
}

void SetLogSink(LogSink sink) { TheAttachment().Attach(TheAttachment().Sink, std::move(sink)); }
void SetLogLineSink(LogLineSink sink) { TheAttachment().Attach(TheAttachment().LineSink, std::move(sink)); }

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
