#include "gateway/core/Client.h"

#include <atomic>
#include <functional>

namespace ptzgate {

namespace {

constexpr std::uint64_t OfKeys = std::uint64_t{1} << 63;  // of the numbers that `SessionOf` answers

}  // namespace

std::string Client::Text() const {
  if (User.empty()) return From;
  return From.empty() ? User : User + " at " + From;
}

std::uint64_t NextSession() {
  static std::atomic<std::uint64_t> last = 0;
  return ++last;
}

std::uint64_t SessionOf(std::string_view key) { return std::hash<std::string_view>()(key) | OfKeys; }

}  // namespace ptzgate
