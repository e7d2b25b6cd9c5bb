#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace ptzgate {

/// Takes a camera's film apart: a multipart body without end, each part a picture with a few header lines.
class FilmParser {
 public:
  static constexpr std::size_t LargestPicture = 8 * 1024 * 1024;
  using Picture = std::function<void(std::string type, std::string bytes)>;

  /// `boundary` as the Content-Type has it, with or without the dashes that many cameras put into it too.
  FilmParser(std::string_view boundary, Picture picture);

  /// More of the body. False once it is none of a film, or a picture is larger than any.
  bool Take(std::string_view bytes);

 private:
  bool TakeHead();
  bool TakeBody();

  std::string Boundary_;  ///< "--name"
  Picture Picture_;
  std::string Rest_;
  bool InBody_ = false;
  std::string Type_;
  std::size_t Length_ = 0;  ///< 0: not told
};

/// The boundary of a Content-Type; empty where it is none of a film.
std::string BoundaryOf(std::string_view contentType);

}  // namespace ptzgate
