#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

namespace ptzd::fuzz {

/// Something that reads bytes from outside. `Run` does with them what the program would; it must neither
/// crash nor hang nor leak, and ends the process by `Demand` where an answer cannot be right.
struct Target {
  const char* Name;
  void (*Run)(std::string_view input);
};

// Where they are is told by Main.cpp.
void Options(std::string_view input);
void Url(std::string_view input);
void Split(std::string_view input);
void Xml(std::string_view input);
void CodePages(std::string_view input);
void Headers(std::string_view input);
void Drivers(std::string_view input);
void Http(std::string_view input);
void Cameras(std::string_view input);
void Tours(std::string_view input);
void Announcements(std::string_view input);
void Words(std::string_view input);
void Arguments(std::string_view input);
void Simulators(std::string_view input);
void Web(std::string_view input);
void Api(std::string_view input);
void Soap(std::string_view input);
void Access(std::string_view input);
void Mqtt(std::string_view input);
void GateFile(std::string_view input);

inline void Demand(bool holds, std::string_view what) {
  if (holds) return;
  std::fprintf(stderr, "fuzz: not so: %.*s\n", static_cast<int>(what.size()), what.data());
  std::abort();
}

/// The parts of an input, which have a line of two percent signs between them.
inline std::vector<std::string_view> PartsOf(std::string_view input) {
  constexpr std::string_view between = "\n%%\n";
  std::vector<std::string_view> parts;
  for (auto end = input.find(between); end != input.npos; end = input.find(between)) {
    parts.push_back(input.substr(0, end));
    input.remove_prefix(end + between.size());
  }
  parts.push_back(input);
  return parts;
}

/// The lines of a part, without an empty last one.
inline std::vector<std::string_view> LinesOf(std::string_view part) {
  std::vector<std::string_view> lines;
  while (!part.empty()) {
    const auto end = part.find('\n');
    lines.push_back(part.substr(0, end));
    part.remove_prefix(end == part.npos ? part.size() : end + 1);
  }
  return lines;
}

}  // namespace ptzd::fuzz
