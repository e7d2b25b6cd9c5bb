#include "gateway/web/Message.h"

#include <algorithm>
#include <boost/beast/http/status.hpp>
#include <nlohmann/json.hpp>

namespace ptzgate {

namespace {

const std::string* FirstOf(const Fields& fields, std::string_view name,
                           bool (*isSame)(std::string_view, std::string_view)) {
  const auto found =
      std::ranges::find_if(fields, [&](const auto& field) { return isSame(field.first, name); });
  return found == fields.end() ? nullptr : &found->second;
}

int HexDigit(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  const char lower = static_cast<char>(digit | 0x20);
  return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

}  // namespace

bool IsUtf8(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    const auto byte = [&](std::size_t offset) { return static_cast<unsigned char>(text[at + offset]); };
    const unsigned char first = byte(0);
    const std::size_t size = first < 0x80   ? 1
                             : first < 0xc2 ? 0
                             : first < 0xe0 ? 2
                             : first < 0xf0 ? 3
                             : first < 0xf5 ? 4
                                            : 0;
    if (size == 0 || size > text.size() - at) return false;
    for (std::size_t i = 1; i < size; ++i) {
      if ((byte(i) & 0xc0) != 0x80) return false;
    }
    // Longer than need be, halves of a pair, beyond the last character.
    if ((first == 0xe0 && byte(1) < 0xa0) || (first == 0xed && byte(1) > 0x9f) ||
        (first == 0xf0 && byte(1) < 0x90) || (first == 0xf4 && byte(1) > 0x8f)) {
      return false;
    }
    at += size;
  }
  return true;
}

bool EqualIgnoringCase(std::string_view left, std::string_view right) {
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c; };
  return std::ranges::equal(left, right, {}, lower, lower);
}

const std::string* Request::Header(std::string_view name) const {
  return FirstOf(Headers, name, EqualIgnoringCase);
}

const std::string* Request::Parameter(std::string_view name) const {
  return FirstOf(Query, name, [](std::string_view left, std::string_view right) { return left == right; });
}

std::vector<std::string> Request::Segments() const {
  std::vector<std::string> segments;
  std::string_view rest(Target);
  rest = rest.substr(0, rest.find('?'));
  while (!rest.empty() && rest.front() == '/') {
    rest.remove_prefix(1);
    segments.push_back(PercentDecoded(rest.substr(0, rest.find('/'))).value_or(""));
    rest.remove_prefix(std::min(rest.find('/'), rest.size()));
  }
  return segments;
}

Response Problem(int status, std::string_view detail) {
  nlohmann::ordered_json problem;
  problem["type"] = "about:blank";
  problem["title"] = ReasonOf(status);
  problem["status"] = status;
  problem["detail"] = detail;
  // The detail may quote what a client sent.
  return {status,
          {{"Content-Type", "application/problem+json"}, {"Cache-Control", "no-store"}},
          problem.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace)};
}

Response MethodProblem(const Request& request, const std::string& methods) {
  auto problem = Problem(405, request.Method + " cannot be done to " + request.Path);
  const bool hasGet = methods.find("GET") != std::string::npos;
  problem.Headers.emplace_back("Allow", methods + (hasGet ? ", HEAD" : ""));
  return problem;
}

std::string ReasonOf(int status) {
  namespace http = boost::beast::http;
  return std::string(http::obsolete_reason(http::int_to_status(static_cast<unsigned>(status))));
}

std::optional<std::string> PercentDecoded(std::string_view text, bool isForm) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '+' && isForm) {
      decoded += ' ';
    } else if (text[at] != '%') {
      decoded += text[at];
    } else {
      const int high = at + 2 < text.size() ? HexDigit(text[at + 1]) : -1;
      const int low = at + 2 < text.size() ? HexDigit(text[at + 2]) : -1;
      if (high < 0 || low < 0) return {};
      decoded += static_cast<char>(high * 16 + low);
      at += 2;
    }
  }
  return decoded;
}

std::optional<Fields> FormFields(std::string_view text) {
  Fields fields;
  while (!text.empty()) {
    const auto field = text.substr(0, text.find('&'));
    text.remove_prefix(std::min(field.size() + 1, text.size()));
    if (field.empty()) continue;
    const auto equals = std::min(field.find('='), field.size());
    auto name = PercentDecoded(field.substr(0, equals), true);
    auto value = PercentDecoded(field.substr(std::min(equals + 1, field.size())), true);
    if (!name || !value) return {};
    fields.emplace_back(std::move(*name), std::move(*value));
  }
  return fields;
}

}  // namespace ptzgate
