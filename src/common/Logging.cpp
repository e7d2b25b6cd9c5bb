#include "common/Logging.h"

#include <algorithm>
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

constexpr std::string_view Blanks = " \t\r\n";

/// Where the user and password of an address end, which is at an "@"; npos where it has none. They end before
/// the path begins, unless a password holds an unescaped "/": then what stands before it is no host and port.
std::size_t EndOfUserInfo(std::string_view address) {
  const auto authority = address.substr(0, address.find_first_of("/?#"));
  if (const auto sign = authority.rfind('@'); sign != std::string_view::npos) return sign;
  const auto colon = authority.find(':');
  if (colon == std::string_view::npos || authority.starts_with('[')) return std::string_view::npos;
  const bool isPort = authority.find_first_not_of("0123456789", colon + 1) == std::string_view::npos;
  return isPort ? std::string_view::npos : address.rfind('@');
}

/// An address is a word, behind "://" where it has a scheme; without one only "user:password@" tells it.
void MaskUserInfo(std::string& text) {
  for (std::size_t begin = 0; begin < text.size();) {
    auto end = std::min(text.find_first_of(Blanks, begin), text.size());
    const std::string_view word(text.data() + begin, end - begin);
    const auto scheme = word.find("://");
    const auto address = word.substr(scheme == std::string_view::npos ? 0 : scheme + 3);
    const auto sign = EndOfUserInfo(address);
    if (sign != std::string_view::npos && (scheme != std::string_view::npos || address.find(':') < sign)) {
      text.replace(end - address.size(), sign, Mask);
      end += Mask.size() - sign;
    }
    begin = end + 1;
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
