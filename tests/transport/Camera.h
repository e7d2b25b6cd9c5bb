#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "simulators/engine/HTTPServer.h"
#include "support/Wine.h"

namespace ptzd::test {

/// A camera that answers everything with the same body, or with bytes given, and a record of what reached it.
class Camera {
 public:
  inline static const std::string Body = std::string(1999, 'b') + "\n";

  ptzsim::FaultSwitches& Faults() { return Faults_; }
  ptzsim::RequestLog& Log() { return Log_; }
  std::uint16_t Port() const { return Server_->Port(); }
  /// Answers with these bytes from now on; none: as usual.
  void AnswerWith(const std::string& bytes) {
    const std::lock_guard lock(Answer_->Mutex);
    Answer_->Bytes = bytes;
  }
  /// Forgets logins and cookies and closes all connections.
  void Restart() {
    const auto port = Port();
    Server_.reset();
    Server_ = Start(port);
  }

  std::string URL(const std::string& object = "/", const std::string& login = "") const {
    return "http://" + (login.empty() ? "" : login + "@") + Server_->Address() + object;
  }

  /// Method and target of every request, blank between them, one a line.
  std::string Requests() {
    std::string lines;
    for (const auto& request : Log().Requests()) lines += request.Method + " " + request.Target + "\n";
    return lines;
  }
  /// Under Wine connections are the process's, which keeps them for a minute: there nothing is waited for.
  bool AllConnectionsClose() { return UnderWine() || Log().WaitForClosed(Log().ConnectionsOpened()); }

 private:
  std::unique_ptr<ptzsim::HTTPServer> Start(std::uint16_t port) {
    // With a copy, for a server that is still at work when the process ends.
    const auto answer = [body = Body, given = Answer_](const ptzsim::Request&) {
      const std::lock_guard lock(given->Mutex);
      return given->Bytes.empty() ? ptzsim::HTTPReply::Text(body) : ptzsim::HTTPReply{.Raw = given->Bytes};
    };
    return std::make_unique<ptzsim::HTTPServer>(answer, ptzsim::HTTPServer::Options{.Port = port}, Log_,
                                                Faults_);
  }

  struct Answer {
    std::mutex Mutex;
    std::string Bytes;
  };

  std::shared_ptr<Answer> Answer_ = std::make_shared<Answer>();
  ptzsim::RequestLog Log_;
  ptzsim::FaultSwitches Faults_;
  std::unique_ptr<ptzsim::HTTPServer> Server_ = Start(0);
};

}  // namespace ptzd::test
