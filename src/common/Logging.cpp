#include <ptzd/Logging.h>

#include <atomic>
#include <mutex>

#include "common/Credentials.h"

namespace ptzd {

namespace {

struct Attachment {
  std::mutex mutex;
  LogSink sink;
  std::atomic<bool> attached = false;
};

// Never destroyed: threads that outlive main may still log.
Attachment& TheAttachment() {
  static auto& attachment = *new Attachment;
  return attachment;
}

}  // namespace

void LogMessage(std::string_view message) {
  auto& attachment = TheAttachment();
  if (!attachment.attached.load(std::memory_order_acquire)) return;
  const auto masked = MaskCredentials(message);
  const std::lock_guard lock(attachment.mutex);
  if (attachment.sink) attachment.sink(masked);
}

void SetLogSink(LogSink sink) {
  auto& attachment = TheAttachment();
  const std::lock_guard lock(attachment.mutex);
  attachment.sink = std::move(sink);
  attachment.attached.store(static_cast<bool>(attachment.sink), std::memory_order_release);
}

}  // namespace ptzd
