#include "common/Nearest.h"

#include <algorithm>

#include "common/ASCII.h"

namespace ptzd {

namespace {

std::size_t Distance(std::string_view a, std::string_view b) {
  // A row for each letter of `a`: how far its beginning is from each beginning of `b`.
  std::vector<std::vector<std::size_t>> rows(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
  for (std::size_t i = 0; i <= a.size(); ++i) {
    for (std::size_t j = 0; j <= b.size(); ++j) {
      if (i == 0 || j == 0) {
        rows[i][j] = i + j;
        continue;
      }
      const auto same = [&](std::size_t x, std::size_t y) {
        return LowerASCII(a[x - 1]) == LowerASCII(b[y - 1]);
      };
      rows[i][j] =
          std::min({rows[i - 1][j] + 1, rows[i][j - 1] + 1, rows[i - 1][j - 1] + (same(i, j) ? 0 : 1)});
      if (i > 1 && j > 1 && same(i, j - 1) && same(i - 1, j))
        rows[i][j] = std::min(rows[i][j], rows[i - 2][j - 2] + 1);
    }
  }
  return rows[a.size()][b.size()];
}

}  // namespace

std::string Nearest(std::string_view word, const std::vector<std::string>& names) {
  constexpr std::size_t longest = 64;  // nobody mistypes so much
  if (word.size() > longest) return {};
  std::string nearest;
  std::size_t least = std::max<std::size_t>(1, word.size() / 3) + 1;
  for (const auto& name : names) {
    const bool begins = !word.empty() && EqualsIgnoringCase(word, name.substr(0, word.size()));
    const auto distance = begins ? 1 : Distance(word, name);
    if (distance >= least) continue;
    least = distance;
    nearest = name;
  }
  return nearest;
}

std::string DoYouMean(std::string_view word, const std::vector<std::string>& names) {
  const auto nearest = Nearest(word, names);
  return nearest.empty() ? "" : "; do you mean " + nearest + "?";
}

}  // namespace ptzd
