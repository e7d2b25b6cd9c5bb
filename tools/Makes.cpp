#include "Makes.h"

#include <algorithm>

#include "common/ASCII.h"

namespace ptzctl {

namespace {

bool IsLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

bool Fits(char wanted, char found) {
  if (wanted == '?') return true;
  if (wanted == '#') return found >= '0' && found <= '9';
  return ptzd::LowerASCII(wanted) == ptzd::LowerASCII(found);
}

bool FitsAt(std::string_view part, std::string_view text, std::size_t at) {
  return at + part.size() <= text.size() && std::ranges::equal(part, text.substr(at, part.size()), Fits);
}

/// The first place at or behind `from`.
std::size_t FindPart(std::string_view part, std::string_view text, std::size_t from) {
  for (; from + part.size() <= text.size(); ++from)
    if (FitsAt(part, text, from)) return from;
  return text.npos;
}

}  // namespace

std::optional<std::pair<std::size_t, std::size_t>> FindPattern(std::string_view pattern,
                                                               std::string_view text) {
  const bool fromBegin = pattern.starts_with('^'), toEnd = pattern.ends_with('$');
  if (fromBegin) pattern.remove_prefix(1);
  if (toEnd) pattern.remove_suffix(1);
  std::size_t begin = text.npos, end = 0;
  // The first place of each part leaves the most room for those behind it.
  while (true) {
    const auto star = std::min(pattern.find('*'), pattern.size());
    const auto part = pattern.substr(0, star);
    const bool isFirst = begin == text.npos, isLast = star == pattern.size();
    std::size_t at = FindPart(part, text, end);
    if (isLast && toEnd && text.size() >= end + part.size()) at = text.size() - part.size();
    if (isFirst && fromBegin && at != 0) at = text.npos;
    if (at == text.npos || !FitsAt(part, text, at)) return std::nullopt;
    if (isFirst) begin = at;
    end = at + part.size();
    if (isLast) return std::pair(begin, end);
    pattern.remove_prefix(star + 1);
  }
}

bool NamesMake(const ptzd::DriverClass& driver, std::string_view text) {
  return std::ranges::any_of(driver.Data->MakeNames, [&](std::string_view name) {
    for (auto at = FindPart(name, text, 0); at != text.npos; at = FindPart(name, text, at + 1)) {
      const auto end = at + name.size();
      if ((at == 0 || !IsLetter(text[at - 1])) && (end == text.size() || !IsLetter(text[end]))) return true;
    }
    return false;
  });
}

std::vector<const ptzd::DriverClass*> DriversNamedIn(std::string_view text) {
  std::vector<const ptzd::DriverClass*> drivers;
  for (const auto& driver : ptzd::DriverClasses())
    if (NamesMake(driver, text)) drivers.push_back(&driver);
  return drivers;
}

std::string ShortName(const ptzd::DriverClass& driver) {
  return std::string(driver.ProgID.substr(driver.ProgID.rfind('.') + 1));
}

}  // namespace ptzctl
