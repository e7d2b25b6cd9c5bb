#include "simulators/engine/Pages.h"

namespace ptzsim {

std::optional<Values> Match(const char* target, const Query& query) {
  const Query known(target);
  if (query.Path != known.Path) return std::nullopt;
  if (known.Text == "*") return Values{query.Text};
  if (query.Pairs.size() != known.Pairs.size()) return std::nullopt;
  Values values;
  for (const auto& [name, value] : known.Pairs) {
    const auto found = query.Find(name);
    if (!found || (value != "*" && *found != value)) return std::nullopt;
    if (value == "*") values.push_back(*found);
  }
  return values;
}

}  // namespace ptzsim
