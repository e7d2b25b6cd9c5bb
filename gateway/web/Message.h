#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ptzgate {

using Fields = std::vector<std::pair<std::string, std::string>>;

/// What a client asked. Complete and well-formed, path and query in UTF-8: the server has refused all others.
struct Request {
  std::string Method;   ///< GET, POST, PUT, PATCH, DELETE or OPTIONS; a HEAD is shown as GET
  bool IsHead = false;  ///< the answer's body is not sent; the server sees to it
  std::string Target;   ///< as sent: "/a%20b?c=d"
  std::string Path;     ///< decoded: "/a b"; begins with '/' (but for "*" of OPTIONS), without "." and ".."
  Fields Query;         ///< decoded, in the order sent; one without '=' has an empty value
  Fields Headers;       ///< in the order sent
  std::string Body;     ///< whole
  std::string Host;  ///< whom the client thinks that it speaks to: "gate.example:8080"; empty with HTTP/1.0
  std::string From;  ///< "192.0.2.5:51234", "[2001:db8::5]:51234"
  std::string Address;      ///< of `From` alone: "192.0.2.5", "2001:db8::5"
  bool IsLoopback = false;  ///< it comes from this machine
  bool IsSecure = false;    ///< by TLS

  /// The first header of the name in whatever case; null when there is none.
  const std::string* Header(std::string_view name) const;
  /// The first parameter of the name; null when there is none.
  const std::string* Parameter(std::string_view name) const;
  /// The path's parts, decoded one by one, so that a name may hold a '/' as "%2F".
  std::vector<std::string> Segments() const;
};

/// What it is answered. The server adds Content-Length, Date, Server, Connection and the headers for
/// security; a header of those for security that is here already is left as it is.
struct Response {
  int Status = 200;  ///< 200 to 599
  Fields Headers{};
  std::string Body{};
};

/// An error as RFC 9457 has it, with the status's usual title. `detail` is for people: what was wrong.
Response Problem(int status, std::string_view detail);

/// The answer to a method that a path does not have: 405, with those it has, "GET, PUT".
Response MethodProblem(const Request& request, const std::string& methods);

/// The usual words of a status: "Not Found".
std::string ReasonOf(int status);

/// "a%20b" as "a b"; nothing when an escape is malformed. Of a form or a query, '+' is a space.
std::optional<std::string> PercentDecoded(std::string_view text, bool isForm = false);
/// "a=b&c=d", as queries and forms have it; nothing when an escape is malformed.
std::optional<Fields> FormFields(std::string_view text);
/// Whether it is text in UTF-8, as JSON and XML must be.
bool IsUtf8(std::string_view text);
/// Whether both are the same but for the case of ASCII letters.
bool EqualIgnoringCase(std::string_view left, std::string_view right);

}  // namespace ptzgate
