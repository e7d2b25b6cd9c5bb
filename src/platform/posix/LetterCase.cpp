#include "platform/LetterCase.h"

#include <locale.h>

#include <climits>
#include <cwchar>
#include <cwctype>

namespace ptzd {

namespace {

/// The calling thread's characters are UTF-8 while this lives, whatever locale the program has chosen.
class Utf8Scope {
 public:
  Utf8Scope() : Previous_(uselocale(Utf8())) {}
  ~Utf8Scope() { uselocale(Previous_); }
  Utf8Scope(const Utf8Scope&) = delete;
  Utf8Scope& operator=(const Utf8Scope&) = delete;

 private:
  static locale_t Utf8() {
    static const locale_t utf8 = newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
    return utf8;  // null where the system lacks it: the thread's locale stays
  }

  locale_t Previous_;
};

}  // namespace

std::string LowerCase(std::string_view text) {
  std::string lower;
  lower.reserve(text.size());
  const Utf8Scope utf8;
  std::mbstate_t reading{}, writing{};
  for (std::size_t at = 0; at < text.size();) {
    wchar_t character = 0;
    const auto taken = std::mbrtowc(&character, text.data() + at, text.size() - at, &reading);
    if (taken == 0 || taken > text.size() - at) {  // a NUL, or no character at all
      lower += text[at++];
      reading = {};
      continue;
    }
    char bytes[MB_LEN_MAX];
    const auto size =
        std::wcrtomb(bytes, static_cast<wchar_t>(std::towlower(static_cast<wint_t>(character))), &writing);
    if (size <= sizeof bytes)
      lower.append(bytes, size);
    else
      lower.append(text, at, taken);
    at += taken;
  }
  return lower;
}

}  // namespace ptzd
