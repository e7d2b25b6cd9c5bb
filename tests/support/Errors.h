#pragma once

#include <string>

#include <ptzd/Error.h>

namespace ptzd::test {

/// What a call raises, as "17003 No address specified"; empty when it raises nothing.
template <typename Call>
std::string ErrorOf(const Call& call) {
  try {
    call();
  } catch (const Error& error) {
    return std::to_string(error.Number()) + " " + error.Description();
  }
  return {};
}

/// The number alone, 0 when nothing is raised.
template <typename Call>
std::int32_t NumberOf(const Call& call) {
  try {
    call();
  } catch (const Error& error) {
    return error.Number();
  }
  return 0;
}

}  // namespace ptzd::test
