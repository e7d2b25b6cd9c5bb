#pragma once

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace ptzd::test {

/// One block of a driver's table: the driver and the camera that is played to it.
struct Answers {
  std::string Title, Driver;
  std::map<std::string, std::string> Facts;
  std::vector<std::pair<std::string, std::string>> Camera;  // what a request holds, and its answer
  std::vector<std::string> Options;
  std::map<std::string, std::vector<std::string>> Members;  // six cells each

  /// Empty where the block does not say.
  std::string Fact(const std::string& name) const {
    const auto found = Facts.find(name);
    return found == Facts.end() ? "" : found->second;
  }
};

/// The words of a text, or its cells where two blanks and more divide them.
inline std::vector<std::string> Words(const std::string& text, std::size_t blanks = 1) {
  std::vector<std::string> words;
  for (std::size_t at = text.find_first_not_of(' '); at < text.size(); at = text.find_first_not_of(' ', at)) {
    const auto end = std::min(text.find(std::string(blanks, ' '), at), text.size());
    words.push_back(text.substr(at, end - at));
    at = end;
  }
  return words;
}

/// A reply with its "\r", "\n" and "\x04" as the bytes they stand for.
inline std::string Unescaped(const std::string& text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\') {
      bytes += text[i];
    } else if (text[++i] == 'x') {
      bytes += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      bytes += text[i] == 'r' ? '\r' : '\n';
    }
  }
  return bytes;
}

/// Adds a file's blocks. The first of all holds for every driver, a driver's first for its other cameras.
inline void ReadAnswers(const std::filesystem::path& path, std::vector<Answers>& all) {
  std::ifstream file(path);
  bool inMembers = false;
  std::vector<std::string> said;
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    if (line[0] != ' ') {
      const auto driver = line.substr(0, line.find(','));
      const auto own = std::ranges::find(all, driver, &Answers::Driver);
      auto block = own != all.end() ? *own : all.empty() ? Answers{} : all.front();
      block.Title = line;
      block.Driver = driver;
      all.push_back(std::move(block));
      inMembers = false;
      said.clear();
      continue;
    }
    auto& block = all.back();
    const auto cells = Words(line, 2);
    const auto& name = cells.at(0);
    if (inMembers) {
      if (cells.size() != 7) throw std::runtime_error(block.Title + ": six cells for " + name);
      for (const auto& member : Words(name)) block.Members[member] = {cells.begin() + 1, cells.end()};
      continue;
    }
    const auto at = line.find_first_not_of(' ', line.find(name) + name.size());
    const auto value = at == std::string::npos ? "" : line.substr(at);
    const bool isNew = std::ranges::find(said, name) == said.end();
    said.push_back(name);
    if (name == "members") {
      inMembers = true;
    } else if (name == "camera") {
      if (isNew) block.Camera.clear();
      block.Camera.emplace_back(value.substr(0, value.find(' ')),
                                Unescaped(value.substr(value.find(' ') + 1)));
    } else if (name == "option") {
      block.Options.push_back(value);
    } else {
      block.Facts[name] = value;
    }
  }
}

/// The tables of all drivers, of a tree of tests.
inline std::vector<Answers> ReadAllAnswers(const std::filesystem::path& tests) {
  std::vector<Answers> all;
  ReadAnswers(tests / "contract/answers.expected", all);
  for (const auto& entry : std::filesystem::directory_iterator(tests / "drivers"))
    if (entry.path().extension() == ".expected") ReadAnswers(entry.path(), all);
  return all;
}

}  // namespace ptzd::test
