#include "gateway/console/Console.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "gateway/console/ConsoleFile.h"

namespace ptzgate {

namespace {

constexpr std::string_view Page = "index.html";
constexpr std::string_view Folder = "/console/";

/// All comes from here, but for pictures that the page has fetched from here itself. No other site shows the
/// page in a frame, over which it could have people press what they do not see.
constexpr char Policy[] =
    "default-src 'self'; img-src 'self' blob:; base-uri 'none'; form-action 'self'; frame-ancestors 'none'; "
    "object-src 'none'";

const ConsoleFile* Find(std::string_view path) {
  if (path == "/")
    path = Page;
  else if (path.starts_with(Folder))
    path.remove_prefix(Folder.size());
  else
    return nullptr;
  const auto files = ConsoleFiles();
  const auto found = std::ranges::find(files, path, &ConsoleFile::Name);
  return found == files.end() ? nullptr : &*found;
}

std::string TypeOf(std::string_view name) {
  if (name.ends_with(".html")) return "text/html; charset=utf-8";
  if (name.ends_with(".css")) return "text/css; charset=utf-8";
  if (name.ends_with(".svg")) return "image/svg+xml";
  return "text/javascript; charset=utf-8";
}

/// Whether a list as If-None-Match has it names a tag; whether weakly or not makes no difference there.
bool Names(std::string_view list, std::string_view tag) {
  while (!list.empty()) {
    auto one = list.substr(0, list.find(','));
    list.remove_prefix(std::min(one.size() + 1, list.size()));
    one.remove_prefix(std::min(one.find_first_not_of(" \t"), one.size()));
    one = one.substr(0, one.find_last_not_of(" \t") + 1);
    if (one == "*") return true;
    if (one.starts_with("W/")) one.remove_prefix(2);
    if (one == tag) return true;
  }
  return false;
}

}  // namespace

bool Console::Has(const std::string& path) { return Find(path) != nullptr; }

void Console::Handle(const std::shared_ptr<Call>& call) {
  const auto& request = call->Asked();
  const auto* file = Find(request.Path);
  if (file == nullptr) return call->Answer(Problem(404, "there is nothing at " + request.Path));
  if (request.Method != "GET") return call->Answer(MethodProblem(request, "GET"));
  const auto tag = '"' + std::string(file->Hash) + '"';
  // A newer gateway's page must not run with files of an older one.
  Response response{.Headers = {{"ETag", tag},
                                {"Cache-Control", "no-cache"},
                                {"Content-Security-Policy", Policy},
                                {"X-Frame-Options", "DENY"}}};
  if (const auto* known = request.Header("If-None-Match"); known != nullptr && Names(*known, tag)) {
    response.Status = 304;
  } else {
    response.Headers.emplace_back("Content-Type", TypeOf(file->Name));
    response.Body = file->Bytes;
  }
  call->Answer(std::move(response));
}

}  // namespace ptzgate
