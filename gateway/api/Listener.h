#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <utility>

#include "gateway/core/Gate.h"
#include "gateway/wishes/CameraJSON.h"

namespace ptzgate {

/// A client who is told of cameras as they change: of all, or of some, which he follows. One who reads slowly
/// is told of each of them later, once, as it is by then.
class Listener {
 public:
  explicit Listener(Client client) : Client_(std::move(client)) {}
  virtual ~Listener() = default;
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;

  const Client& Who() const { return Client_; }
  /// Nothing of a camera that he may not see. `texts` are those of the camera. `isHealth`: what changed shows
  /// in a list of cameras, too.
  void Tell(Gate& gate, GateCamera& camera, Gate::Change change, bool isHealth, CameraTexts& texts);
  /// Tells what he could not take before, as far as he can now.
  void CatchUp(Gate& gate);
  /// He was told of all cameras; what changed meanwhile comes from here on.
  void Greeted() { IsGreeted_ = true; }
  bool IsBehind() const { return !Untold_.empty(); }

 protected:
  /// What he has not read yet, in bytes.
  virtual std::size_t Backlog() const = 0;
  /// `text` is the camera as JSON.
  virtual void TellCamera(GateCamera& camera, const std::string& text) = 0;
  virtual void TellGone(const std::string& camera) = 0;

  /// What is told of cameras that he does not follow.
  enum class Others { All, Health, Nothing };
  void Follow(std::set<std::string> cameras, Others others) {
    Followed_ = std::move(cameras);
    Others_ = others;
  }
  bool Follows(const std::string& camera) const { return Followed_.contains(camera); }
  Others OfOthers() const { return Others_; }
  void TellLater(const std::string& camera) { Untold_.insert(camera); }

  const Client Client_;

 private:
  bool IsGreeted_ = false;
  std::set<std::string> Followed_;
  Others Others_ = Others::All;
  std::set<std::string> Untold_;  ///< cameras
};

}  // namespace ptzgate
