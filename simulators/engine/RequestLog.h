#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ptzsim {

/// One request as it arrived. On lines of bare bytes only `Raw` and what stands above it are filled, and
/// `Target` with what the message means in words.
struct Request {
  std::size_t Order = 0;             ///< 0, 1, 2, ... in the order of arrival
  std::chrono::milliseconds Time{};  ///< since the log was made
  int Connection = 0;                ///< 1, 2, 3, ... in the order they were accepted
  std::string Raw{};                 ///< every byte exactly as received

  std::string Method{};
  std::string Target{};
  std::string Version{};  ///< "1.1" or "1.0"
  std::vector<std::pair<std::string, std::string>> Headers{};
  std::string Body{};

  int Status = 0;  ///< of the reply that was made for it; what a fault did to the reply does not show here
  std::string Violation{};  ///< why the camera finds fault with it; empty when it does not

  /// Value of the first header of that name in any case; empty when there is none.
  std::string Header(std::string_view name) const;
};

/// What came in, for tests and for people. All members may be called from any thread.
class RequestLog {
 public:
  /// Long enough never to be met by a healthy test; waiting ends as soon as the thing is there.
  static constexpr std::chrono::seconds Deadline{30};

  RequestLog();

  /// A request is logged when the camera has acted on it and before the first byte of the reply leaves, so
  /// whoever has seen it here sees its effect on the camera too.
  void Add(Request request);
  /// A violation that belongs to no complete request.
  void AddViolation(std::string text);
  /// Returns the number of the new connection.
  int OpenConnection();
  void CloseConnection();
  /// Forgets requests and violations; connections go on being counted.
  void Clear();

  std::vector<Request> Requests() const;
  /// All requests since the log was made, cleared or taken from; they are forgotten here.
  std::vector<Request> TakeRequests();
  std::vector<std::string> Violations() const;
  int ConnectionsOpened() const;
  int ConnectionsClosed() const;

  /// Each waits until so many were seen since the log was made or cleared; false when the deadline passed.
  bool WaitForRequests(std::size_t count, std::chrono::milliseconds deadline = Deadline) const;
  bool WaitForConnections(int count, std::chrono::milliseconds deadline = Deadline) const;
  bool WaitForClosed(int count, std::chrono::milliseconds deadline = Deadline) const;

  /// Connections, requests and violations. Bytes above 7F stand as the characters U+0080 to U+00FF, so that
  /// every byte can be got back.
  nlohmann::json JSON() const;

 private:
  bool Wait(std::chrono::milliseconds deadline, const std::function<bool()>& seen) const;

  mutable std::mutex Mutex_;
  mutable std::condition_variable Changed_;
  std::chrono::steady_clock::time_point Start_;
  std::vector<Request> Requests_;
  std::vector<std::string> Violations_;
  int Opened_ = 0;
  int Closed_ = 0;
};

}  // namespace ptzsim
