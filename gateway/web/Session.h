#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "gateway/web/Call.h"
#include "gateway/web/Connection.h"

namespace ptzgate {

struct ServerState;

/// HTTP on one connection: reads a request, has it answered, reads the next.
class Session final : public Protocol, public std::enable_shared_from_this<Session> {
 public:
  /// One that is not welcome is told so, in place of an answer.
  Session(std::shared_ptr<ServerState> server, std::shared_ptr<Connection> connection, bool isWelcome);
  ~Session() override;

  void Start() override;
  void Received() override;
  void Ended() override;
  void Drained() override;
  void Expired() override;
  void Closed() override;

  // For `Call` and `Stream`.
  void Answer(Response response, std::shared_ptr<Call> call);
  void AnswerForgotten(const Request& request);
  /// False when there is no body to stream.
  bool BeginStream(Response head, const std::shared_ptr<Stream>& stream);
  std::shared_ptr<WebSocket> AcceptWebSocket(const Request& request, const std::string& protocol);
  bool Send(std::string_view text);
  std::size_t Backlog() const;
  void EndStream();

 private:
  struct Parsing;
  enum class State { Reading, Answering, Writing, Streaming, Upgraded, Over };

  void Parse();
  bool CheckHead();
  void Dispatch();
  void Refuse(int status, std::string_view detail);
  std::string Head(const Response& response, bool isStream);
  void Write(Response response);
  void LetGoOfCall();

  std::shared_ptr<ServerState> Server_;
  std::shared_ptr<Connection> Connection_;
  const bool IsWelcome_;
  State State_ = State::Reading;
  std::unique_ptr<Parsing> Parsing_;
  std::weak_ptr<Call> Call_;
  std::shared_ptr<Call> Answered_;  ///< until its answer is written
  std::weak_ptr<Stream> Stream_;
  bool IsKept_ = false;     ///< the connection, after this answer
  bool IsHead_ = false;     ///< the request is one of HEAD
  bool IsChunked_ = false;  ///< the client understands it
  bool IsAtEnd_ = false;    ///< the peer sends nothing more
};

}  // namespace ptzgate
