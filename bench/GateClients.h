#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "GateBook.h"

struct HTTPReply {
  int Status = 0;  ///< 0: nothing came
  std::string Body;
};

/// A kept connection to the gateway. One thread at a time, but for `Break`.
class HTTPLine {
 public:
  explicit HTTPLine(std::uint16_t port);
  ~HTTPLine();
  HTTPLine(const HTTPLine&) = delete;
  HTTPLine& operator=(const HTTPLine&) = delete;

  HTTPReply Ask(const char* method, const std::string& path, const std::string& body = {},
                const char* type = "application/json");
  /// JSON of `GET`; raises `std::runtime_error` for another status than 200.
  nlohmann::json Get(const std::string& path);
  /// A wish by /api/v1.
  GateAnswer Wish(const std::string& camera, const GateWish& wish, bool waitsForRest = true);
  /// A connection for each request. Else one that is cut is begun anew, and the request is sent again.
  void KeepNothing();
  /// Cuts the connection, as when the client was killed. Any thread.
  void Break();

 private:
  friend class Follower;
  struct Handle;
  std::unique_ptr<Handle> Handle_;
};

/// A client that has cameras of its own moved, until it is told to end. Each on a thread of its own.
class GateClient {
 public:
  struct Place {
    std::uint16_t Gate, Broker;
    GateBook& Book;
    const std::map<std::string, GateMake>& Makes;  ///< by driver
  };
  enum class Kind { Live, HTTP, SOAP, MQTT };
  static std::unique_ptr<GateClient> Make(Kind kind, const Place& place, std::vector<Station*> stations,
                                          unsigned seed);
  virtual ~GateClient() = default;

  void Run(const std::atomic<bool>& stop);
  /// Has something done that is no drive, and waits for what becomes of it.
  virtual GateAnswer Do(Station& camera, const GateWish& wish) = 0;

 protected:
  GateClient(const Place& place, std::vector<Station*> stations, unsigned seed)
      : Book_(place.Book), Makes_(place.Makes), Stations_(std::move(stations)), Random_(seed) {}

  virtual bool CanDo(const GateWish&) const { return true; }
  /// Begins a drive, and waits until the gateway has it, where that is told. An answer: it was refused.
  virtual std::optional<GateAnswer> BeginDrive(Station& camera, const GateWish& drive) = 0;
  virtual void Renew(Station& camera, const GateWish& drive) = 0;
  /// Lets time pass, as what is on the way may want it.
  virtual void Rest(std::chrono::milliseconds time);
  /// What became of the drive.
  virtual GateAnswer EndOfDrive() = 0;
  /// Whether a drive that is not renewed is told to have ended.
  virtual bool TellsLeases() const { return true; }
  /// Ends as when it is killed, where its drives end with it, and begins anew.
  virtual bool CanBreak() const { return false; }
  virtual void Break() {}
  virtual void Look(Station&) {}

 private:
  void Turn();
  void Drive(Station& camera, const GateMake& make);

  GateBook& Book_;
  const std::map<std::string, GateMake>& Makes_;
  std::vector<Station*> Stations_;
  std::minstd_rand Random_;
};

/// Reads server-sent events on a thread of its own, and knows the last version of each camera that it was
/// told.
class Follower {
 public:
  explicit Follower(std::uint16_t port);
  ~Follower();
  Follower(const Follower&) = delete;
  Follower& operator=(const Follower&) = delete;

  std::uint64_t VersionOf(const std::string& camera) const;
  std::size_t Events() const { return Events_; }
  bool IsLost() const { return IsLost_; }

 private:
  void Read(std::string_view text);

  HTTPLine Line_;
  std::string Rest_;
  mutable std::mutex Mutex_;
  std::map<std::string, std::uint64_t, std::less<>> Versions_;
  std::atomic<std::size_t> Events_ = 0;
  std::atomic<bool> IsEnding_ = false, IsLost_ = false;
  std::thread Thread_;
};
