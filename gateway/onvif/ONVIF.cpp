#include "gateway/onvif/ONVIF.h"

#include <algorithm>
#include <variant>

#include "gateway/onvif/Asked.h"

namespace ptzgate {

namespace {

constexpr std::string_view Services[] = {"device_service", "media_service", "ptz_service"};

const Operation* FindOperation(std::string_view name) {
  for (const auto operations : {DeviceOperations(), MediaOperations(), PTZOperations()})
    if (const auto found = std::ranges::find(operations, name, &Operation::Name); found != operations.end())
      return &*found;
  return nullptr;
}

}  // namespace

void CheckProfile(const Asked& asked) {
  const auto& profile = Required(asked.Action, "ProfileToken").Text;
  if (profile != ProfileToken)
    throw InvalidArgument("ter:NoProfile", "camera " + asked.Name + " has no profile " + profile);
}

void ONVIF::Handle(const std::shared_ptr<Call>& call, const std::string& camera) {
  const auto& request = call->Asked();
  auto parts = request.Segments();
  if (!camera.empty() && parts.size() == 2) parts.insert(parts.begin() + 1, camera);
  if (!Gate_.Settings().ONVIF.Enabled || parts.size() != 3 || parts[0] != "onvif" ||
      (!camera.empty() && parts[1] != camera) || std::ranges::find(Services, parts[2]) == std::end(Services))
    return call->Answer(Problem(404, "there is nothing at " + request.Path));
  if (request.Method != "POST") {
    auto response = Problem(405, "SOAP comes by POST");
    response.Headers.emplace_back("Allow", "POST");
    return call->Answer(std::move(response));
  }
  if (!Access_.IsOwnPage(request))
    return call->Answer(Problem(403, "a page of another site may not use this gateway"));
  const auto base = (request.IsSecure ? "https://" : "http://") + request.Host + "/onvif" +
                    (camera.empty() ? "/" + parts[1] : "");
  try {
    Serve(call, parts[1], base);
  } catch (const Fault& fault) {
    call->Answer(ResponseOf(fault));
  } catch (const Refusal& refusal) {
    call->Answer(ResponseOf(FaultOf(refusal)));
  }
}

void ONVIF::Serve(const std::shared_ptr<Call>& call, const std::string& camera, const std::string& base) {
  const auto& request = call->Asked();
  auto envelope = ReadEnvelope(request.Body);
  const auto* operation = FindOperation(envelope.Action.Name);
  Asked asked{.Call = call,
              .Site = Gate_,
              .Motions = Motions_,
              .Name = camera,
              .Base = base,
              .Action = std::move(envelope.Action),
              .Who = {.User = "", .From = request.From, .Face = "onvif"},
              .Camera = nullptr};
  const bool isForAnybody = operation != nullptr && operation->IsForAnybody;
  if (!isForAnybody) {
    auto known = Logins_.Identify(request, envelope.Token);
    if (auto* unknown = std::get_if<DigestAccess::Unknown>(&known))
      return call->Answer(std::move(unknown->Answer));
    asked.Who.User = std::get<std::string>(known);
    // A client has a connection for each request, perhaps.
    asked.Who.Session = SessionOf("onvif " + asked.Who.User + " " + request.Address);
    asked.Who.Priority = Gate_.Users().PriorityOf(asked.Who.User);
  }
  // Where there are logins, nobody without one is to learn what there is.
  if (!isForAnybody || !Gate_.Users().AreThere()) {
    try {
      asked.Camera = Gate_.Find(camera, asked.Who.User);
    } catch (const Refusal& refusal) {
      return call->Answer(Problem(404, refusal.what()));
    }
  }
  if (operation == nullptr) throw NotSupported("this device has no operation " + asked.Action.Name);
  CheckOnce(asked.Action);
  operation->Serve(asked);
}

}  // namespace ptzgate
