#include "gateway/core/MotionMarks.h"

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

namespace ptzgate {

namespace {

namespace fs = std::filesystem;

}  // namespace

MotionMarks::MotionMarks(const std::string& folder) {
  if (folder.empty()) return;
  Folder_ = folder + "/moving";
  std::error_code error;
  fs::create_directories(Folder_, error);
  if (error) throw std::runtime_error("the folder " + Folder_ + " cannot be made: " + error.message());
  for (const auto& entry : fs::directory_iterator(Folder_)) Set_.insert(entry.path().filename().string());
}

void MotionMarks::Set(const std::string& camera) {
  if (Folder_.empty() || !Set_.insert(camera).second) return;
  // Names of cameras are names of files: letters, digits, "-", "_" and "."; the first is a letter or a digit.
  std::ofstream file(Folder_ + "/" + camera);
  if (!file) {
    Set_.erase(camera);
    throw std::runtime_error("no mark can be written in " + Folder_);
  }
}

void MotionMarks::Clear(const std::string& camera) {
  if (Set_.erase(camera) == 0 || Folder_.empty()) return;
  std::error_code error;
  fs::remove(Folder_ + "/" + camera, error);
}

}  // namespace ptzgate
