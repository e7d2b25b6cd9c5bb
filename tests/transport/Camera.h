#pragma once

#include <memory>
#include <string>

#include "simulators/engine/HTTPServer.h"
#include "support/Wine.h"

namespace ptzd::test {

/// A camera that answers everything with the same body, and a record of what reached it.
class Camera {
 public:
  inline static const std::string Body = std::string(1999, 'b') + "\n";

  ptzsim::FaultSwitches& Faults() { return Faults_; }
  ptzsim::RequestLog& Log() { return Log_; }
  std::uint16_t Port() const { return Server_->Port(); }
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
    const auto answer = [body = Body](const ptzsim::Request&) { return ptzsim::HTTPReply::Text(body); };
    return std::make_unique<ptzsim::HTTPServer>(answer, ptzsim::HTTPServer::Options{.Port = port}, Log_,
                                                Faults_);
  }

  ptzsim::RequestLog Log_;
  ptzsim::FaultSwitches Faults_;
  std::unique_ptr<ptzsim::HTTPServer> Server_ = Start(0);
};

}  // namespace ptzd::test
