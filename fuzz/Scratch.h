#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace ptzd::fuzz {

/// Files for what is only read from files; in memory, and gone with the process.
class Scratch {
 public:
  static const std::filesystem::path& Folder() {
    static const Scratch scratch;
    return scratch.Folder_;
  }
  static std::string Write(const char* name, std::string_view text) {
    const auto path = Folder() / name;
    std::ofstream(path, std::ios::binary).write(text.data(), static_cast<std::streamsize>(text.size()));
    return path.string();
  }

 private:
  Scratch() { std::filesystem::create_directory(Folder_); }
  ~Scratch() {
    std::error_code ignored;
    std::filesystem::remove_all(Folder_, ignored);
  }

  const std::filesystem::path Folder_ =
      (std::filesystem::exists("/dev/shm") ? std::filesystem::path("/dev/shm")
                                           : std::filesystem::temp_directory_path()) /
      ("ptzd-fuzz-" + std::to_string(getpid()));
};

}  // namespace ptzd::fuzz
