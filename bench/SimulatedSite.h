#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

/// Simulated cameras of all makes, as many of each, in a process of their own so that they show up in no
/// measurement of this one. To be made before this process has threads. Members may be called on any thread.
class SimulatedSite {
 public:
  static constexpr std::size_t Makes = 20;  ///< one after the other, and again

  struct Camera {
    std::string Driver;                             ///< ProgID
    std::string Address;                            ///< "127.0.0.1:40123", or the path of a terminal
    std::chrono::steady_clock::time_point Began{};  ///< when it was made
  };
  struct Log {
    std::vector<std::string> Requests;  ///< target and body, or the bytes of a message, each as `KeyOf`
    std::vector<std::chrono::steady_clock::time_point> When;  ///< each of these came, within two milliseconds
    std::vector<std::string> Violations;
  };

  explicit SimulatedSite(std::size_t cameras);
  ~SimulatedSite();
  SimulatedSite(const SimulatedSite&) = delete;
  SimulatedSite& operator=(const SimulatedSite&) = delete;

  const std::vector<Camera>& Cameras() const { return Cameras_; }
  /// What `ptzsim` calls faults.
  void Break(std::size_t camera, const std::string& fault);
  void Mend(std::size_t camera);
  /// What came in since the last call.
  Log Take(std::size_t camera);
  /// Whether its head, or one of its heads, turns or zooms.
  bool IsMoving(std::size_t camera);

  /// A line of text for a target and the body that came with it; without a target, for a message.
  static std::string KeyOf(const std::string& target, const std::string& body);

 private:
  /// Both directions of a socket.
  struct Wire {
    std::FILE *In = nullptr, *Out = nullptr;
  };

  static void Serve(std::size_t cameras, const Wire& wire);
  std::vector<std::string> Ask(const std::string& command);

  std::vector<Camera> Cameras_;
  std::mutex Mutex_;
  Wire Wire_;
  pid_t Child_ = -1;
};
