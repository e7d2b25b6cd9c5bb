#pragma once

#include <string>
#include <string_view>

#include <ptzd/Logging.h>

namespace ptzd::test {

/// All that is logged during a call, as "Camera model: PT713|Moving to 0, 2|".
template <typename Call>
std::string LogOf(const Call& call) {
  std::string lines;
  SetLogSink([&](std::string_view line) { (lines += line) += '|'; });
  call();
  SetLogSink({});
  return lines;
}

/// What a driver's own request routine logs during a call, as "Requesting /x|Request failed.|"; what the HTTP
/// client below it logs is left out, as are lines of other drivers' forms.
template <typename Call>
std::string RequestLinesOf(const Call& call) {
  std::string lines;
  SetLogSink([&](std::string_view line) {
    for (const char* begin :
         {"Requesting", "Request complete", "Request errored", "Request failed", "Setting ", "Position "})
      if (line.starts_with(begin)) (lines += line) += '|';
  });
  call();
  SetLogSink({});
  return lines;
}

}  // namespace ptzd::test
