#include "platform/PrivateFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>
#include <utility>
#include <vector>

namespace ptzd {

namespace {

constexpr mode_t PrivateMode = S_IRUSR | S_IWUSR, OpenMode = PrivateMode | S_IRGRP | S_IROTH;

[[noreturn]] void Raise(int error) { throw std::system_error(error, std::generic_category()); }

class Descriptor {
 public:
  explicit Descriptor(int number) : Number_(number) {
    if (number < 0) Raise(errno);
  }
  ~Descriptor() { Close(); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int Number() const { return Number_; }
  int Close() { return Number_ < 0 ? 0 : close(std::exchange(Number_, -1)); }

 private:
  int Number_;
};

std::string OpennessOf(const std::filesystem::path& path, const struct stat& status) {
  if (status.st_uid != geteuid())
    return "it belongs to the user with the number " + std::to_string(status.st_uid) + ", not to you";
  const auto mode = status.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO);
  if ((mode & (S_IRWXG | S_IRWXO)) == 0) return {};
  char octal[8];
  std::snprintf(octal, sizeof octal, "%04o", static_cast<unsigned>(mode));
  return "others than its owner may use it (mode " + std::string(octal) + "); type: chmod 600 " +
         path.string();
}

/// What new files are not to allow.
mode_t CreationMask() {
  const auto mask = umask(0);  // which tells it only by setting another
  umask(mask);
  return mask;
}

/// What a link leads to; its folder is there then.
std::filesystem::path TargetOf(const std::filesystem::path& path) {
  std::error_code none;
  auto target = std::filesystem::canonical(path, none);
  if (none) target = path;
  if (target.has_parent_path()) std::filesystem::create_directories(target.parent_path());
  return target;
}

void WriteAll(int file, std::string_view text) {
  while (!text.empty()) {
    const auto written = write(file, text.data(), text.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) Raise(errno);
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace

FileContents ReadWholeFile(const std::filesystem::path& path, std::size_t longest) {
  // A pipe that nobody writes to would be waited for.
  const Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status {};
  if (fstat(file.Number(), &status) != 0) Raise(errno);
  if (S_ISDIR(status.st_mode)) Raise(EISDIR);
  if (!S_ISREG(status.st_mode)) throw std::system_error(EINVAL, std::generic_category(), "not a plain file");
  FileContents contents{{}, OpennessOf(path, status)};
  std::vector<char> part(65536);
  while (true) {
    const auto count = read(file.Number(), part.data(), part.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) Raise(errno);
    if (count == 0) return contents;
    contents.Text.append(part.data(), static_cast<std::size_t>(count));
    if (contents.Text.size() > longest) Raise(EFBIG);
  }
}

void WriteWholeFile(const std::filesystem::path& path, const std::string& text, bool isPrivate) {
  const auto target = TargetOf(path);  // is replaced, not the link
  struct stat before {};
  const bool isThere = stat(target.c_str(), &before) == 0;

  auto temporary = target.string() + ".XXXXXX";
  Descriptor file(mkstemp(temporary.data()));  // which nobody else may read
  try {
    WriteAll(file.Number(), text);
    const auto mode = isPrivate ? PrivateMode : isThere ? before.st_mode & 07777 : OpenMode & ~CreationMask();
    if (fchmod(file.Number(), mode) != 0 || fsync(file.Number()) != 0 || file.Close() != 0) Raise(errno);
    if (rename(temporary.c_str(), target.c_str()) != 0) Raise(errno);
  } catch (...) {
    unlink(temporary.c_str());
    throw;
  }
}

std::shared_ptr<void> HoldFile(const std::filesystem::path& path) {
  const auto lock = TargetOf(path).string() + ".lock";
  while (true) {
    auto file = std::make_unique<Descriptor>(open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, PrivateMode));
    while (flock(file->Number(), LOCK_EX) != 0)
      if (errno != EINTR) Raise(errno);
    // Whoever held it before has removed it.
    struct stat held {};
    struct stat there {};
    if (fstat(file->Number(), &held) != 0) Raise(errno);
    if (stat(lock.c_str(), &there) != 0 || held.st_ino != there.st_ino || held.st_dev != there.st_dev)
      continue;
    return {file.release(), [lock](Descriptor* last) {
              unlink(lock.c_str());
              delete last;
            }};
  }
}

}  // namespace ptzd
