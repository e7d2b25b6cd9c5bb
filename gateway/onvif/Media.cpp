#include <string>

#include "gateway/onvif/Asked.h"

namespace ptzgate {

namespace {

const PictureSettings& PictureOf(const Asked& asked) {
  static const PictureSettings none;
  const auto& pictures = asked.Site.Settings().Pictures;
  const auto picture = pictures.find(asked.Name);
  return picture == pictures.end() ? none : picture->second;
}

std::vector<Element> Resolution(const PictureSettings& picture) {
  return {Element("tt:Width", std::to_string(picture.Width)),
          Element("tt:Height", std::to_string(picture.Height))};
}

Element SourceConfiguration(const Asked& asked, std::string name) {
  const auto& picture = PictureOf(asked);
  return Element(std::move(name), {Element("tt:Name", "Picture of " + asked.Name),
                                   Element("tt:UseCount", "1"), Element("tt:SourceToken", SourceToken),
                                   Element("tt:Bounds")
                                       .With("x", "0")
                                       .With("y", "0")
                                       .With("width", std::to_string(picture.Width))
                                       .With("height", std::to_string(picture.Height))})
      .With("token", SourceConfigurationToken);
}

/// Of a stream that the gateway does not make: what NVRs want to hear before they fetch it.
Element EncoderConfiguration(const Asked& asked, std::string name) {
  return Element(std::move(name),
                 {Element("tt:Name", "Stream of " + asked.Name),
                  Element("tt:UseCount", "1"),
                  Element("tt:Encoding", "H264"),
                  {"tt:Resolution", Resolution(PictureOf(asked))},
                  Element("tt:Quality", "1"),
                  {"tt:RateControl",
                   {Element("tt:FrameRateLimit", "25"), Element("tt:EncodingInterval", "1"),
                    Element("tt:BitrateLimit", "4096")}},
                  {"tt:H264", {Element("tt:GovLength", "25"), Element("tt:H264Profile", "Main")}},
                  {"tt:Multicast",
                   {{"tt:Address", {Element("tt:Type", "IPv4"), Element("tt:IPv4Address", "0.0.0.0")}},
                    Element("tt:Port", "0"),
                    Element("tt:TTL", "0"),
                    Element("tt:AutoStart", "false")}},
                  Element("tt:SessionTimeout", "PT60S")})
      .With("token", EncoderToken);
}

Element Profile(const Asked& asked, std::string name) {
  return Element(std::move(name),
                 {Element("tt:Name", asked.Name), SourceConfiguration(asked, "tt:VideoSourceConfiguration"),
                  EncoderConfiguration(asked, "tt:VideoEncoderConfiguration"),
                  PTZConfiguration(*asked.Camera, asked.Site.Settings(), "tt:PTZConfiguration")})
      .With("token", ProfileToken)
      .With("fixed", "true");
}

/// Raises `Fault` where an argument that is there names another configuration.
void CheckConfiguration(const Asked& asked, const char* token) {
  const auto named = TextOf(asked.Action, "ConfigurationToken");
  if (!named.empty() && named != token)
    throw InvalidArgument("ter:NoConfig", "camera " + asked.Name + " has no configuration " + named);
}

Element ServiceCapabilities(const Asked&) {
  return {"trt:GetServiceCapabilitiesResponse", {MediaCapabilities()}};
}

Element Profiles(const Asked& asked) { return {"trt:GetProfilesResponse", {Profile(asked, "trt:Profiles")}}; }

Element OneProfile(const Asked& asked) {
  CheckProfile(asked);
  return {"trt:GetProfileResponse", {Profile(asked, "trt:Profile")}};
}

Element Sources(const Asked& asked) {
  return {"trt:GetVideoSourcesResponse",
          {Element("trt:VideoSources",
                   {Element("tt:Framerate", "25"), {"tt:Resolution", Resolution(PictureOf(asked))}})
               .With("token", SourceToken)}};
}

Element SourceConfigurations(const Asked& asked) {
  return {"trt:GetVideoSourceConfigurationsResponse", {SourceConfiguration(asked, "trt:Configurations")}};
}

Element OneSourceConfiguration(const Asked& asked) {
  CheckConfiguration(asked, SourceConfigurationToken);
  return {"trt:GetVideoSourceConfigurationResponse", {SourceConfiguration(asked, "trt:Configuration")}};
}

Element CompatibleSourceConfigurations(const Asked& asked) {
  CheckProfile(asked);
  return {"trt:GetCompatibleVideoSourceConfigurationsResponse",
          {SourceConfiguration(asked, "trt:Configurations")}};
}

Element EncoderConfigurations(const Asked& asked) {
  return {"trt:GetVideoEncoderConfigurationsResponse", {EncoderConfiguration(asked, "trt:Configurations")}};
}

Element OneEncoderConfiguration(const Asked& asked) {
  CheckConfiguration(asked, EncoderToken);
  return {"trt:GetVideoEncoderConfigurationResponse", {EncoderConfiguration(asked, "trt:Configuration")}};
}

Element CompatibleEncoderConfigurations(const Asked& asked) {
  CheckProfile(asked);
  return {"trt:GetCompatibleVideoEncoderConfigurationsResponse",
          {EncoderConfiguration(asked, "trt:Configurations")}};
}

/// There is nothing to choose: the stream is the camera's.
Element EncoderOptions(const Asked& asked) {
  CheckConfiguration(asked, EncoderToken);
  const auto only = [](std::string name, const char* value) {
    return Element(std::move(name), {Element("tt:Min", value), Element("tt:Max", value)});
  };
  return {"trt:GetVideoEncoderConfigurationOptionsResponse",
          {{"trt:Options",
            {only("tt:QualityRange", "1"),
             {"tt:H264",
              {{"tt:ResolutionsAvailable", Resolution(PictureOf(asked))},
               only("tt:GovLengthRange", "25"),
               only("tt:FrameRateRange", "25"),
               only("tt:EncodingIntervalRange", "1"),
               Element("tt:H264ProfilesSupported", "Main")}}}}}};
}

Element URI(const char* answer, const std::string& uri) {
  return {answer,
          {{"trt:MediaUri",
            {Element("tt:Uri", uri), Element("tt:InvalidAfterConnect", "false"),
             Element("tt:InvalidAfterReboot", "false"), Element("tt:Timeout", "PT0S")}}}};
}

Element StreamURI(const Asked& asked) {
  CheckProfile(asked);
  const auto& uri = PictureOf(asked).Stream;
  if (uri.empty())
    throw Fault("env:Receiver", {"ter:Action", "ter:IncompleteConfiguration"},
                "camera " + asked.Name + " has no stream in the gateway's settings");
  return URI("trt:GetStreamUriResponse", uri);
}

Element SnapshotURI(const Asked& asked) {
  CheckProfile(asked);
  const auto& uri = PictureOf(asked).Snapshot;
  if (uri.empty()) throw NotSupported("camera " + asked.Name + " has no snapshot in the gateway's settings");
  return URI("trt:GetSnapshotUriResponse", uri);
}

constexpr Operation All[] = {
    {"trt:GetServiceCapabilities", AtOnce<ServiceCapabilities>, true},
    {"trt:GetProfiles", AtOnce<Profiles>},
    {"trt:GetProfile", AtOnce<OneProfile>},
    {"trt:GetVideoSources", AtOnce<Sources>},
    {"trt:GetVideoSourceConfigurations", AtOnce<SourceConfigurations>},
    {"trt:GetVideoSourceConfiguration", AtOnce<OneSourceConfiguration>},
    {"trt:GetCompatibleVideoSourceConfigurations", AtOnce<CompatibleSourceConfigurations>},
    {"trt:GetVideoEncoderConfigurations", AtOnce<EncoderConfigurations>},
    {"trt:GetVideoEncoderConfiguration", AtOnce<OneEncoderConfiguration>},
    {"trt:GetCompatibleVideoEncoderConfigurations", AtOnce<CompatibleEncoderConfigurations>},
    {"trt:GetVideoEncoderConfigurationOptions", AtOnce<EncoderOptions>},
    {"trt:GetStreamUri", AtOnce<StreamURI>},
    {"trt:GetSnapshotUri", AtOnce<SnapshotURI>},
};

}  // namespace

Element MediaCapabilities() {
  return Element("trt:Capabilities", {Element("trt:ProfileCapabilities").With("MaximumNumberOfProfiles", "1"),
                                      Element("trt:StreamingCapabilities").With("RTP_RTSP_TCP", "true")})
      .With("SnapshotUri", "true");
}

std::span<const Operation> MediaOperations() { return All; }

}  // namespace ptzgate
