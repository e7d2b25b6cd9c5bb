#include "common/Logging.h"

#include <atomic>
#include <mutex>

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

constexpr std::string_view Mask = "***";

/// User and password may stand wherever an address does, also without a scheme; they end at the last "@"
/// before the path begins.
void MaskUserInfo(std::string& text) {
  for (auto at = text.find("://"); at != std::string::npos; at = text.find("://", at)) {
    at += 3;
    const auto end = std::min(text.find_first_of("/?# \t\r\n", at), text.size());
    const auto sign = text.rfind('@', end);
    if (sign != std::string::npos && sign >= at && sign < end) {
      text.replace(at, sign - at, Mask);
      at += Mask.size();
    }
  }
}

void MaskParameter(std::string& text, std::string_view name) {
  for (auto at = text.find(name); at != std::string::npos; at = text.find(name, at)) {
    const bool begins = at > 0 && (text[at - 1] == '?' || text[at - 1] == '&');
    at += name.size();
    if (!begins) continue;
    const auto end = std::min(text.find_first_of("&# \t\r\n", at), text.size());
    text.replace(at, end - at, Mask);
    at += Mask.size();
  }
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

std::string MaskCredentials(std::string_view text) {
  std::string masked(text);
  MaskUserInfo(masked);
  MaskParameter(masked, "usr=");
  MaskParameter(masked, "pwd=");
  return masked;
}

}  // namespace ptzd
