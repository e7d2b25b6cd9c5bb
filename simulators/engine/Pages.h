#pragma once

#include <iterator>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "simulators/engine/Query.h"

namespace ptzsim {

/// What a request has where a page has "*".
using Values = std::vector<std::string>;

/// A row of a make's table of the requests that it knows as a whole.
template <class Camera, class Answer>
struct Page {
  const char* Target;  ///< "/ctrl?pan=*&tilt=*&sync=1"; "*" for a value that varies, or for a whole query
  Answer (*Do)(Camera&, const Values&);
  unsigned Kinds = ~0U;  ///< bits of the kinds of camera that have it
};

/// The values of a request to `target`, in the order of the target; nothing when the request differs from it
/// in anything but those and the order of its parameters.
std::optional<Values> Match(const char* target, const Query& query);

/// The page that is meant.
template <class Page>
struct Found {
  const Page* It = nullptr;  ///< none when nothing fits
  Values Given{};
  bool KnowsPath = false;  ///< when nothing fits: whether at least the path is that of a page
};

/// Looks among the pages of one kind of camera.
template <class Table>
auto FindPage(const Table& pages, const Query& query, unsigned kind = ~0U) {
  Found<std::remove_cvref_t<decltype(*std::begin(pages))>> found;
  for (const auto& page : pages) {
    if (!(page.Kinds & kind)) continue;
    found.KnowsPath |= Query(page.Target).Path == query.Path;
    if (auto values = Match(page.Target, query)) {
      found.It = &page, found.Given = std::move(*values);
      break;
    }
  }
  return found;
}

}  // namespace ptzsim
