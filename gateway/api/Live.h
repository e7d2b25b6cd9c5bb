#pragma once

#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <string>

#include "gateway/api/CameraListing.h"
#include "gateway/api/Listener.h"
#include "gateway/web/WebSocket.h"

namespace ptzgate {

/// A client on a WebSocket: is told of the cameras, and has them moved. What it drives stops when it goes.
class Live final : public Listener, public std::enable_shared_from_this<Live> {
 public:
  /// `gone` is called when the client has gone, and may let this die.
  Live(Gate& gate, Client client, std::shared_ptr<WebSocket> socket);
  ~Live() override;

  void Begin(CameraListing& listing, std::function<void()> gone);
  /// Sends the client away, who is not who he was any more. He may come again.
  void End();

 protected:
  std::size_t Backlog() const override { return Socket_->Backlog(); }
  void TellCamera(GateCamera& camera, const std::string& text) override;
  void TellGone(const std::string& camera) override;

 private:
  void Read(const std::string& text);
  nlohmann::json Obey(const nlohmann::json& message);
  void Send(const nlohmann::json& message);
  void Drive(const std::shared_ptr<GateCamera>& camera, const nlohmann::json& id, const nlohmann::json& body);
  /// Whose exchanges are told, too, and what of the others.
  void ReadFollow(const nlohmann::json& message);
  void Leave();

  Gate& Gate_;
  const std::shared_ptr<WebSocket> Socket_;
  std::map<std::string, std::unique_ptr<HeldDrive>> Drives_;  ///< by camera
};

}  // namespace ptzgate
