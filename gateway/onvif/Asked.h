#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "gateway/core/Gate.h"
#include "gateway/onvif/Element.h"
#include "gateway/onvif/Envelope.h"
#include "gateway/web/Call.h"

namespace ptzgate {

class Motions;

// What stands for the one of each kind that a camera has here.
constexpr char ProfileToken[] = "profile";
constexpr char SourceToken[] = "source";
constexpr char SourceConfigurationToken[] = "source_configuration";
constexpr char EncoderToken[] = "encoder_configuration";
constexpr char NodeToken[] = "node";
constexpr char PTZToken[] = "ptz_configuration";

/// What a client asked of a camera, with all that answering needs.
struct Asked {
  std::shared_ptr<ptzgate::Call> Call;
  Gate& Site;
  ptzgate::Motions& Motions;
  std::string Name;  ///< of the camera; there may be none of that name where the camera is null
  std::string Base;  ///< "http://192.0.2.1:8480/onvif/gate", to which the names of services are added
  Element Action;
  Client Who;                          ///< nobody, where the operation is for anybody
  std::shared_ptr<GateCamera> Camera;  ///< null where the operation is for anybody

  void Answer(const Element& answer) const { Call->Answer(ResponseOf(answer)); }
  void Answer(const Fault& fault) const { Call->Answer(ResponseOf(fault)); }
  std::string Service(std::string_view name) const { return Base + "/" + std::string(name); }
};

/// What a client can ask for.
struct Operation {
  std::string_view Name;  ///< "tds:GetScopes"
  /// Answers, at once or later, or raises `Fault` or `Refusal`.
  void (*Serve)(const Asked& asked);
  bool IsForAnybody = false;  ///< without login, and whether there is such a camera or not
};
std::span<const Operation> DeviceOperations();
std::span<const Operation> MediaOperations();
std::span<const Operation> PTZOperations();

/// The answer of the operations that are answered at once.
template <Element (*Make)(const Asked&)>
void AtOnce(const Asked& asked) {
  asked.Answer(Make(asked));
}

// Of a service, as it tells of itself and as the device tells of all.
Element MediaCapabilities();
Element PTZCapabilities();
/// Raises `Fault` where the action's profile is none that there is.
void CheckProfile(const Asked& asked);
/// The camera's PTZ configuration, as `name`.
Element PTZConfiguration(const GateCamera& camera, const GateSettings& settings, std::string name);

}  // namespace ptzgate
