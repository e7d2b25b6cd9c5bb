#pragma once

#include <span>
#include <string_view>

namespace ptzgate {

/// A file of the console; CMake's EmbedFiles writes them into the program.
struct ConsoleFile {
  std::string_view Name;  ///< "pad.js"
  std::string_view Hash;  ///< of its bytes
  std::string_view Bytes;
};
std::span<const ConsoleFile> ConsoleFiles();

}  // namespace ptzgate
