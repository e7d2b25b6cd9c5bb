#include "drivers/kit/AddressLogins.h"

#include <algorithm>
#include <cstdint>

#include "platform/CodePages.h"
#include "transport/HTTP.h"
#include "transport/StringEncoding.h"

namespace ptzd {

std::vector<Login> LoginsOf(std::string_view address) {
  const auto sign = address.rfind('@');
  if (sign == std::string_view::npos) return {};
  const auto text = address.substr(0, sign);
  // A password may hold whatever it likes, also what would end it in a URL.
  const auto colon = std::min(text.find(':'), text.size());
  if (colon == text.size() && text.find_first_of("/?#") != std::string_view::npos) return {};
  const auto user = text.substr(0, colon), password = text.substr(std::min(colon + 1, text.size()));

  std::vector<Login> logins;
  const auto add = [&](Login login) {
    if (std::ranges::find(logins, login) == logins.end()) logins.push_back(std::move(login));
  };
  const auto decodedUser = PercentDecode(user), decodedPassword = PercentDecode(password);
  const auto replied = [](const std::string& word) {  // replies are read in the code page
    return DecodeBytes({reinterpret_cast<const std::uint8_t*>(word.data()), word.size()}, CodePage1252);
  };
  add({std::string(user), std::string(password)});
  add({decodedUser, decodedPassword});
  add({UrlEncode(decodedUser), UrlEncode(decodedPassword)});
  add({replied(decodedUser), replied(decodedPassword)});
  if (password.starts_with("//"))  // and "http" was no user
    for (auto& login : LoginsOf(address.substr(colon + 3))) add(std::move(login));
  return logins;
}

}  // namespace ptzd
