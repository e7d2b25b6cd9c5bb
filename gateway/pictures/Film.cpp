#include "gateway/pictures/Film.h"

#include <charconv>

#include "common/ASCII.h"

namespace ptzgate {

namespace {

constexpr std::size_t LongestHead = 4096;
constexpr std::string_view HeadEnd = "\r\n\r\n";

/// What stands behind a header's name, of the lines of a part; empty where it has none.
std::string_view HeaderIn(std::string_view head, std::string_view name) {
  while (!head.empty()) {
    const auto end = head.find("\r\n");
    auto line = head.substr(0, end);
    head = end == std::string_view::npos ? "" : head.substr(end + 2);
    const auto colon = line.find(':');
    if (colon == std::string_view::npos || !ptzd::EqualsIgnoringCase(line.substr(0, colon), name)) continue;
    line.remove_prefix(colon + 1);
    while (line.starts_with(' ')) line.remove_prefix(1);
    return line;
  }
  return {};
}

}  // namespace

std::string BoundaryOf(std::string_view contentType) {
  constexpr std::string_view kind = "multipart/", key = "boundary=";
  if (!ptzd::EqualsIgnoringCase(contentType.substr(0, kind.size()), kind)) return {};
  const auto at = contentType.find(key);
  if (at == std::string_view::npos) return {};
  auto boundary = contentType.substr(at + key.size());
  boundary = boundary.substr(0, boundary.find(';'));
  if (boundary.starts_with('"') && boundary.size() > 1)
    boundary = boundary.substr(1, boundary.find('"', 1) - 1);
  return std::string(boundary);
}

FilmParser::FilmParser(std::string_view boundary, Picture picture)
    : Boundary_(boundary.starts_with("--") ? boundary : "--" + std::string(boundary)),
      Picture_(std::move(picture)) {}

bool FilmParser::Take(std::string_view bytes) {
  Rest_.append(bytes);
  if (Rest_.size() > LargestPicture + LongestHead) return false;
  while (InBody_ ? TakeBody() : TakeHead()) {
  }
  return InBody_ || Rest_.size() <= LongestHead + LargestPicture;
}

/// Whether there was a whole head.
bool FilmParser::TakeHead() {
  const auto boundary = Rest_.find(Boundary_);
  if (boundary == std::string::npos) {
    // Of what is before it nothing is needed.
    if (Rest_.size() > Boundary_.size()) Rest_.erase(0, Rest_.size() - Boundary_.size());
    return false;
  }
  const auto end = Rest_.find(HeadEnd, boundary);
  if (end == std::string::npos) return false;
  const std::string_view head = std::string_view(Rest_).substr(boundary, end - boundary);
  Type_ = std::string(HeaderIn(head, "Content-Type"));
  const auto length = HeaderIn(head, "Content-Length");
  Length_ = 0;
  std::from_chars(length.data(), length.data() + length.size(), Length_);
  if (Length_ > LargestPicture) Length_ = 0;
  Rest_.erase(0, end + HeadEnd.size());
  InBody_ = true;
  return true;
}

/// Whether there was a whole picture.
bool FilmParser::TakeBody() {
  auto size = Length_;
  if (Length_ == 0) {
    size = Rest_.find("\r\n" + Boundary_);
    if (size == std::string::npos) return false;
  } else if (Rest_.size() < Length_) {
    return false;
  }
  // Nothing that a browser would run may come from a camera under this gateway's name.
  const bool isPicture = Type_.starts_with("image/") && !Type_.starts_with("image/svg");
  Picture_(isPicture ? Type_ : "image/jpeg", Rest_.substr(0, size));
  Rest_.erase(0, size);
  InBody_ = false;
  return true;
}

}  // namespace ptzgate
