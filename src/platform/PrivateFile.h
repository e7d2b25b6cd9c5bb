#pragma once

#include <cstddef>
#include <filesystem>
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

}  // namespace ptzd
