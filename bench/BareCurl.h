#pragma once

#include <curl/curl.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

/// What everything is measured against: one libcurl easy handle, reused, that fetches a URL into memory. It
/// sends the same bytes as the library does.
class BareCurl {
 public:
  BareCurl() : Handle_(curl_easy_init(), curl_easy_cleanup) {
    curl_easy_setopt(Handle_.get(), CURLOPT_WRITEFUNCTION, Write);
    curl_easy_setopt(Handle_.get(), CURLOPT_WRITEDATA, &Body_);
    curl_easy_setopt(Handle_.get(), CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(Handle_.get(), CURLOPT_NOPROXY, "*");
    curl_easy_setopt(Handle_.get(), CURLOPT_USERAGENT, "Qelto HTTP Client Object");
    for (const char* line : {"Accept:", "Connection: Keep-Alive", "Cache-Control: no-cache"})
      Headers_.reset(curl_slist_append(Headers_.release(), line));
    curl_easy_setopt(Handle_.get(), CURLOPT_HTTPHEADER, Headers_.get());
  }

  const std::vector<unsigned char>& Get(const std::string& url) {
    Body_.clear();
    curl_easy_setopt(Handle_.get(), CURLOPT_URL, url.c_str());
    if (const auto code = curl_easy_perform(Handle_.get()); code != CURLE_OK)
      throw std::runtime_error(curl_easy_strerror(code));
    return Body_;
  }

 private:
  static std::size_t Write(char* data, std::size_t size, std::size_t count, void* body) {
    auto& bytes = *static_cast<std::vector<unsigned char>*>(body);
    bytes.insert(bytes.end(), data, data + size * count);
    return size * count;
  }

  std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> Headers_{nullptr, curl_slist_free_all};
  std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> Handle_;
  std::vector<unsigned char> Body_;
};
