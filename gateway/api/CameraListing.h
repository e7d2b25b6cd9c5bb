#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/core/Gate.h"

namespace ptzgate {

/// Lists the cameras that clients may see, a few at a time: a thousand of them keep the gateway's thread for
/// 15 ms, and where a hundred clients come at once, somebody's stop would wait for all of that.
class CameraListing {
 public:
  /// Each camera as JSON, in the order of their names.
  using Done = std::function<void(const std::vector<std::string>& cameras)>;

  explicit CameraListing(Gate& gate) : Gate_(gate) {}

  /// Calls `done` once, as long as `whom` lives until then: at once where there are few cameras, and nobody
  /// came before. `only`: no others are listed; empty: all are.
  void Make(const Client& client, std::weak_ptr<const void> whom, Done done,
            const std::set<std::string>& only = {});

 private:
  struct Job {
    ptzgate::Client Client;
    std::weak_ptr<const void> Whom;
    Done Then;
    std::vector<std::string> Names{};
    std::vector<std::string> Texts{};
    std::size_t Next = 0;
  };

  void Turn();

  Gate& Gate_;
  std::deque<Job> Jobs_;
  std::shared_ptr<int> Life_ = std::make_shared<int>();
};

/// One behind the other.
std::string Joined(const std::vector<std::string>& texts, std::string_view between);

}  // namespace ptzgate
