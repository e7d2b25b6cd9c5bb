#pragma once

#include <string>
#include <vector>

namespace ptzd::test {

/// A good reply broken in every place: cut off there, or with one bit of that byte turned over.
inline std::vector<std::string> Garbled(const std::string& reply) {
  std::vector<std::string> replies;
  for (std::size_t i = 0; i < reply.size(); ++i) {
    replies.push_back(reply.substr(0, i));
    for (const int bit : {0x01, 0x04, 0x10, 0x20, 0x80}) {
      auto flipped = reply;
      flipped[i] = static_cast<char>(flipped[i] ^ bit);
      replies.push_back(std::move(flipped));
    }
  }
  return replies;
}

}  // namespace ptzd::test
