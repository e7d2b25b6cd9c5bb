#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace ptzgate {

/// What is asked of a camera's web server for its picture.
struct PictureRequest {
  std::string URL;
  std::string User, Password;  ///< no user: no login
};

/// What came of it. The text says why there is none, for people.
struct FetchedPicture {
  std::string Type, Bytes;
  std::string Problem;
};

/// Blocks for ten seconds at most. Redirects stay within HTTP, and with the machine that was asked.
FetchedPicture FetchPicture(const PictureRequest& request);

/// Reads a film until it ends, fails, or `isOver`; blocks meanwhile, and calls `picture` for each. Answers
/// why it ended.
std::string FetchFilm(const PictureRequest& request, const std::atomic<bool>& isOver,
                      const std::function<void(std::string type, std::string bytes)>& picture);

}  // namespace ptzgate
