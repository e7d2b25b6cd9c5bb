// Apart from the rest of the client, so that who downloads nothing does not carry the file library.

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "transport/HTTPHandles.h"

namespace ptzd {

void HTTPClient::DownloadResource(const std::string& address, const std::string& fileName,
                                  const std::string& sendHeaders, const std::string& postData) {
  const std::filesystem::path path(std::u8string(fileName.begin(), fileName.end()));
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  // Only a file that is not there is made; to open one for writing alone would cut it.
  std::error_code error;
  if (!file && !std::filesystem::exists(path, error)) file.open(path, std::ios::out | std::ios::binary);
  const auto checkFile = [&] {
    if (!file) throw Error(ErrorPathAccess, RunTimeErrorText(ErrorPathAccess) + ": " + fileName, "");
  };
  checkFile();
  file.seekp(0, std::ios::end);
  std::int64_t size = file ? static_cast<std::int64_t>(file.tellp()) : 0;  // a device has no end
  file.clear();
  file.seekp(0);
  file.clear();

  Perform(address, sendHeaders, postData, [&](Handles& handles) {
    // Less strict than in memory: a failed query counts as the end, and left-over errors are not looked at.
    std::int64_t written = 0;
    for (std::uint32_t available = 0;;) {
      if (!Internet_.QueryDataAvailable(handles.Request, available)) available = 0;
      if (available == 0) break;
      Bytes chunk(available);
      std::uint32_t length = 0;
      if (!Internet_.Read(handles.Request, chunk, length))
        Fail(HTTPErrorBrokenOff, "Disconnected while recieving data");
      LogStep("Wanted " + std::to_string(available) + " and got " + std::to_string(length));
      if (handles.Told != nullptr) handles.Told->TakeBody(std::span(chunk).first(length));
      file.write(reinterpret_cast<const char*>(chunk.data()), length);
      checkFile();
      written += length;
      size = std::max(size, written);
      ReportProgress(size, handles);
    }
    LogStep("Got data (0)");
    file.flush();
    checkFile();
    CaptureHeaders(handles.Request);
    if (BodyFollows() && size < handles.ContentLength) Fail(HTTPErrorBrokenOff, "Download file truncated");
  });
  LogStep("Got all data");
}

}  // namespace ptzd
