#include "support/Wine.h"

#ifdef _WIN32
#include <windows.h>
#endif

#include <iostream>

namespace ptzd::test {

bool UnderWine() {
#ifdef _WIN32
  return GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr;
#else
  return false;
#endif
}

bool LeftOutUnderWine(const std::string& row, const char* reason) {
  if (reason == nullptr || !UnderWine()) return false;
  std::cout << "not under Wine: " << row << ": " << reason << std::endl;
  return true;
}

}  // namespace ptzd::test
