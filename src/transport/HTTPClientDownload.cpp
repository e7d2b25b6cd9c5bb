// Apart from the rest of the client, so that who downloads nothing does not carry the file library.

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "common/Logging.h"
#include "transport/HTTPExchange.h"

namespace ptzd {

void HTTPClient::DownloadResource(const std::string& address, const std::string& fileName,
                                  const std::string& sendHeaders, const std::string& postData) {
  const std::filesystem::path path(std::u8string(fileName.begin(), fileName.end()));
  std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
  if (!file) file.open(path, std::ios::out | std::ios::binary);
  const auto checkFile = [&] {
    if (!file) throw Error(ErrorPathAccess, RunTimeErrorText(ErrorPathAccess) + ": " + fileName, "");
  };
  checkFile();

  Perform(address, sendHeaders, postData, [&](Exchange& exchange) {
    // Less strict than a body in memory: a failed query counts as the end, and no left-over error is looked
    // at.
    std::int64_t written = 0, size = static_cast<std::int64_t>(std::filesystem::file_size(path));
    for (std::uint32_t available = 0;;) {
      if (!Internet_.QueryDataAvailable(exchange.Request, available)) available = 0;
      if (available == 0) break;
      Bytes chunk(available);
      std::uint32_t length = 0;
      if (!Internet_.Read(exchange.Request, chunk, length))
        Fail(BrokenOff, "Disconnected while recieving data");
      LogMessage("Wanted " + std::to_string(available) + " and got " + std::to_string(length));
      file.write(reinterpret_cast<const char*>(chunk.data()), length);
      checkFile();
      written += length;
      size = std::max(size, written);
      ReportProgress(size, exchange);
    }
    LogMessage("Got data (0)");
    file.flush();
    checkFile();
    CaptureHeaders(exchange.Request);
    if (BodyFollows() && size < exchange.ContentLength) Fail(BrokenOff, "Download file truncated");
  });
  LogMessage("Got all data");
}

}  // namespace ptzd
