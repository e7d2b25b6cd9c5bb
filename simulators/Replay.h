#pragma once

#include <memory>
#include <mutex>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "simulators/engine/HTTPServer.h"
#include "simulators/engine/Recording.h"
#include "simulators/engine/Simulator.h"
#include "simulators/engine/TCPServer.h"
#ifndef _WIN32
#include "simulators/engine/Terminal.h"
#endif

namespace ptzsim {

/// A camera that knows nothing but what another one was recorded to answer.
///
/// Strict, it takes the recorded requests in their order and finds fault with any other, which it answers
/// with 404; those whose reply nobody waited for may overtake each other and what follows them. Lenient, it
/// takes them in any order, and for a request that differs from a recorded one in nothing but values answers
/// what that was answered. Where the recording has a login it demands one, and takes any.
///
/// A connection that could not be made is played as one that is reset.
class Replay : public Simulator {
 public:
  struct Options {
    std::string File{};
    bool Lenient = false;
    bool AsRecorded = false;  ///< replies take their recorded time; otherwise none
    std::string Line{};       ///< as `Terminal::Options::Path`
    std::uint16_t Port = 0;
  };

  /// Throws std::runtime_error for a file that is no recording.
  explicit Replay(const Options& options);

  std::vector<std::string> Addresses() const override;
  /// The recording, how far it was played and what it expects next.
  nlohmann::json State() const override;
  static const Make AtShell;

 private:
  using Indices = std::vector<std::size_t>;

  HTTPReply Answer(const Request& request);
  std::optional<Message> Take(std::string& received);

  bool Arrives(const RecordedExchange& exchange) const;
  Indices Due() const;
  std::string Expected() const;
  std::optional<std::size_t> Find(const Request& request) const;
  std::optional<std::size_t> FindNearest(const Request& request) const;
  HTTPReply Play(const RecordedExchange& exchange) const;
  Message Play(std::size_t index) const;

  const Options Options_;
  const Recording Recording_;
  mutable std::mutex Mutex_;
  std::vector<bool> Played_;
  std::unique_ptr<HTTPServer> HTTP_;
  std::unique_ptr<TCPServer> TCP_;
#ifndef _WIN32
  std::unique_ptr<Terminal> Terminal_;
#endif
};

}  // namespace ptzsim
