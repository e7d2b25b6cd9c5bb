#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <string>

namespace ptzd {

/// What is in a file, and who else may read it.
struct FileContents {
  std::string Text;
  /// Where not only its owner may read it: how that is, and what would change it. Empty where only the owner
  /// may, who is the user that asks.
  std::string Openness;
};

/// Reads a file whole. Raises `std::system_error` where it cannot be read, is no plain file, or is longer
/// than it may be.
FileContents ReadWholeFile(const std::filesystem::path& path, std::size_t longest);

/// Puts a file in the place of another, whole or not at all, with folders made as needed. `isPrivate`: only
/// its owner may read it; otherwise whoever may read the one before, or anybody where there was none. Raises
/// `std::system_error`.
void WriteWholeFile(const std::filesystem::path& path, const std::string& text, bool isPrivate);

/// Lets nobody else in who asks for the same file, as long as what it answers lives: for changing what was
/// read. Blocks until whoever is in is done. The file need not be there; its folders are made as needed.
/// Raises `std::system_error`.
std::shared_ptr<void> HoldFile(const std::filesystem::path& path);

}  // namespace ptzd
