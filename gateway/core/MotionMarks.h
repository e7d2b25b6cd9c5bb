#pragma once

#include <set>
#include <string>
#include <vector>

namespace ptzgate {

/// Which cameras may be moving on this gateway's account, kept in a folder, so that a gateway that was killed
/// stops them when it begins again.
class MotionMarks {
 public:
  /// Empty: nothing is kept. Raises `std::runtime_error` where the folder cannot be used.
  explicit MotionMarks(const std::string& folder);

  /// On the disk before it returns, so that no motion is without its mark. Raises `std::runtime_error`.
  void Set(const std::string& camera);
  void Clear(const std::string& camera);
  bool IsSet(const std::string& camera) const { return Set_.contains(camera); }

 private:
  std::string Folder_;
  std::set<std::string> Set_;
};

}  // namespace ptzgate
