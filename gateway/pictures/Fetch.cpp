#include "gateway/pictures/Fetch.h"

#include <curl/curl.h>

#include <optional>

#include "gateway/pictures/Film.h"

namespace ptzgate {

namespace {

constexpr long ConnectTime = 5000, WholeTime = 10000;  // milliseconds
constexpr long StallTime = 10;                         // seconds without a byte
constexpr long MostRedirects = 3;

using Handle = std::unique_ptr<CURL, void (*)(CURL*)>;

/// Redirects lead to the machine that was asked first, or the camera would have this one ask others, which
/// may take what comes from here for wished. `first`: its address, as a text, empty before it is known.
int StayThere(void* first, char* peer, char*, int, int) {
  auto& known = *static_cast<std::string*>(first);
  if (known.empty()) known = peer;
  return known == peer ? CURL_PREREQFUNC_OK : CURL_PREREQFUNC_ABORT;
}

/// `first` lives as long as what is answered.
Handle Prepare(const PictureRequest& request, std::string& first) {
  Handle handle(curl_easy_init(), curl_easy_cleanup);
  auto* curl = handle.get();
  curl_easy_setopt(curl, CURLOPT_URL, request.URL.c_str());
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
  curl_easy_setopt(curl, CURLOPT_MAXREDIRS, MostRedirects);
  curl_easy_setopt(curl, CURLOPT_PREREQFUNCTION, StayThere);
  curl_easy_setopt(curl, CURLOPT_PREREQDATA, &first);
  curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, ConnectTime);
  curl_easy_setopt(curl, CURLOPT_FAILONERROR, 1L);
  if (!request.User.empty()) {
    curl_easy_setopt(curl, CURLOPT_HTTPAUTH, CURLAUTH_BASIC | CURLAUTH_DIGEST);
    curl_easy_setopt(curl, CURLOPT_USERNAME, request.User.c_str());
    curl_easy_setopt(curl, CURLOPT_PASSWORD, request.Password.c_str());
  }
  return handle;
}

std::string TypeOf(CURL* curl) {
  const char* type = nullptr;
  curl_easy_getinfo(curl, CURLINFO_CONTENT_TYPE, &type);
  return type == nullptr ? "" : type;
}

std::string ProblemOf(CURL* curl, CURLcode code) {
  long status = 0;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  if (code == CURLE_HTTP_RETURNED_ERROR) return "the camera answers " + std::to_string(status);
  if (code == CURLE_ABORTED_BY_CALLBACK) return "the camera leads elsewhere";
  if (code == CURLE_WRITE_ERROR) return "it is larger than any picture";
  return curl_easy_strerror(code);
}

std::size_t Collect(char* bytes, std::size_t, std::size_t count, void* to) {
  auto& text = *static_cast<std::string*>(to);
  if (text.size() + count > FilmParser::LargestPicture) return 0;
  text.append(bytes, count);
  return count;
}

struct FilmReader {
  CURL* Curl;
  const std::atomic<bool>& IsOver;
  const std::function<void(std::string, std::string)>& Picture;
  std::optional<FilmParser> Parser{};
  std::string Problem{};

  std::size_t Take(std::string_view bytes) {
    if (!Parser) {
      const auto boundary = BoundaryOf(TypeOf(Curl));
      if (boundary.empty()) {
        Problem = "the camera's answer is no film but " + TypeOf(Curl);
        return 0;
      }
      Parser.emplace(boundary, Picture);
    }
    if (Parser->Take(bytes)) return bytes.size();
    Problem = "the camera's film cannot be understood";
    return 0;
  }
};

}  // namespace

FetchedPicture FetchPicture(const PictureRequest& request) {
  std::string first;
  const auto handle = Prepare(request, first);
  auto* curl = handle.get();
  FetchedPicture fetched;
  curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, WholeTime);
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, Collect);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &fetched.Bytes);
  const auto code = curl_easy_perform(curl);
  if (code != CURLE_OK) return {.Type = {}, .Bytes = {}, .Problem = ProblemOf(curl, code)};
  fetched.Type = TypeOf(curl);
  // Nothing that a browser would run may come from a camera under this gateway's name.
  if (!fetched.Type.starts_with("image/") || fetched.Type.starts_with("image/svg"))
    return {.Type = {}, .Bytes = {}, .Problem = "the camera's answer is no picture but " + fetched.Type};
  return fetched;
}

std::string FetchFilm(const PictureRequest& request, const std::atomic<bool>& isOver,
                      const std::function<void(std::string, std::string)>& picture) {
  std::string first;
  const auto handle = Prepare(request, first);
  auto* curl = handle.get();
  FilmReader reader{curl, isOver, picture};
  curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, StallTime);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &reader);
  curl_easy_setopt(
      curl, CURLOPT_WRITEFUNCTION, +[](char* bytes, std::size_t, std::size_t count, void* to) {
        return static_cast<FilmReader*>(to)->Take({bytes, count});
      });
  curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &reader);
  curl_easy_setopt(
      curl, CURLOPT_XFERINFOFUNCTION, +[](void* of, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
        return static_cast<FilmReader*>(of)->IsOver ? 1 : 0;
      });
  const auto code = curl_easy_perform(curl);
  if (!reader.Problem.empty()) return reader.Problem;
  return code == CURLE_OK ? "the camera ended its film" : ProblemOf(curl, code);
}

}  // namespace ptzgate
