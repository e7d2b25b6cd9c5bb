#include <ptzd/Version.h>

#include <boost/asio/ip/address.hpp>

#include <chrono>
#include <ctime>
#include <string>

#include "gateway/onvif/Asked.h"
#include "gateway/onvif/Identity.h"

namespace ptzgate {

namespace {

constexpr char DeviceURI[] = "http://www.onvif.org/ver10/device/wsdl";
constexpr char MediaURI[] = "http://www.onvif.org/ver10/media/wsdl";
constexpr char PTZURI[] = "http://www.onvif.org/ver20/ptz/wsdl";

const char* Text(bool is) { return is ? "true" : "false"; }
Element Says(std::string name, bool is) { return {std::move(name), Text(is)}; }

/// What follows the name of a service's elements.
std::vector<Element> Version(const std::string& prefix) {
  return {Element(prefix + ":Major", "2"), Element(prefix + ":Minor", "60")};
}

Element DateAndTime(const Asked&) {
  const auto now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
  std::tm utc{}, local{};
  gmtime_r(&now, &utc);
  localtime_r(&now, &local);
  const auto element = [](std::string name, const std::tm& at) {
    return Element(std::move(name), {{"tt:Time",
                                      {Element("tt:Hour", std::to_string(at.tm_hour)),
                                       Element("tt:Minute", std::to_string(at.tm_min)),
                                       Element("tt:Second", std::to_string(at.tm_sec))}},
                                     {"tt:Date",
                                      {Element("tt:Year", std::to_string(at.tm_year + 1900)),
                                       Element("tt:Month", std::to_string(at.tm_mon + 1)),
                                       Element("tt:Day", std::to_string(at.tm_mday))}}});
  };
  // POSIX has the hours that are to be added to local time.
  const auto west = -local.tm_gmtoff;
  std::string zone = "UTC" + std::to_string(west / 3600);
  if (const auto minutes = std::abs(west) % 3600 / 60; minutes != 0) zone += ":" + std::to_string(minutes);
  return {"tds:GetSystemDateAndTimeResponse",
          {{"tds:SystemDateAndTime",
            {Element("tt:DateTimeType", "NTP"),
             Says("tt:DaylightSavings", false),
             {"tt:TimeZone", {Element("tt:TZ", zone)}},
             element("tt:UTCDateTime", utc),
             element("tt:LocalDateTime", local)}}}};
}

Element Information(const Asked& asked) {
  const std::string driver(asked.Camera->Driver().ProgID);
  return {"tds:GetDeviceInformationResponse",
          {Element("tds:Manufacturer", "ptzgate"), Element("tds:Model", driver),
           Element("tds:FirmwareVersion", PTZD_VERSION),
           Element("tds:SerialNumber", Identity(asked.Name).Serial), Element("tds:HardwareId", asked.Name)}};
}

Element DeviceCapabilities() {
  return {"tds:Capabilities",
          {Element("tds:Network")
               .With("IPFilter", "false")
               .With("ZeroConfiguration", "false")
               .With("IPVersion6", "false")
               .With("DynDNS", "false"),
           Element("tds:Security")
               .With("UsernameToken", "true")
               .With("HttpDigest", "true")
               .With("AccessPolicyConfig", "false"),
           Element("tds:System")
               .With("DiscoveryResolve", "false")
               .With("DiscoveryBye", "true")
               .With("RemoteDiscovery", "false")
               .With("SystemBackup", "false")
               .With("SystemLogging", "false")
               .With("FirmwareUpgrade", "false")}};
}

Element ServiceCapabilities(const Asked&) {
  return {"tds:GetServiceCapabilitiesResponse", {DeviceCapabilities()}};
}

Element Services(const Asked& asked) {
  const bool wanted = BooleanOf(asked.Action, "IncludeCapability", false);
  const auto service = [&](const char* uri, const char* path, Element capabilities) {
    Element element("tds:Service",
                    {Element("tds:Namespace", uri), Element("tds:XAddr", asked.Service(path))});
    if (wanted) element.Children.push_back({"tds:Capabilities", {std::move(capabilities)}});
    element.Children.push_back({"tds:Version", Version("tt")});
    return element;
  };
  return {"tds:GetServicesResponse",
          {service(DeviceURI, "device_service", DeviceCapabilities()),
           service(MediaURI, "media_service", MediaCapabilities()),
           service(PTZURI, "ptz_service", PTZCapabilities())}};
}

Element Capabilities(const Asked& asked) {
  const auto category = TextOf(asked.Action, "Category");
  const bool isAll = category.empty() || category == "All";
  if (!isAll && category != "Device" && category != "Media" && category != "PTZ")
    throw Fault("env:Receiver", {"ter:ActionNotSupported", "ter:NoSuchService"},
                "there is no service " + category);
  Element capabilities("tds:Capabilities");
  const auto add = [&](const char* name, Element element) {
    if (isAll || category == name) capabilities.Children.push_back(std::move(element));
  };
  add("Device", {"tt:Device",
                 {Element("tt:XAddr", asked.Service("device_service")),
                  {"tt:Network",
                   {Says("tt:IPFilter", false), Says("tt:ZeroConfiguration", false),
                    Says("tt:IPVersion6", false), Says("tt:DynDNS", false)}},
                  {"tt:System",
                   {Says("tt:DiscoveryResolve", false),
                    Says("tt:DiscoveryBye", true),
                    Says("tt:RemoteDiscovery", false),
                    Says("tt:SystemBackup", false),
                    Says("tt:SystemLogging", false),
                    Says("tt:FirmwareUpgrade", false),
                    {"tt:SupportedVersions", Version("tt")}}},
                  {"tt:Security",
                   {Says("tt:TLS1.1", false), Says("tt:TLS1.2", asked.Call->Asked().IsSecure),
                    Says("tt:OnboardKeyGeneration", false), Says("tt:AccessPolicyConfig", false),
                    Says("tt:X.509Token", false), Says("tt:SAMLToken", false),
                    Says("tt:KerberosToken", false), Says("tt:RELToken", false)}}}});
  add("Media",
      {"tt:Media",
       {Element("tt:XAddr", asked.Service("media_service")),
        {"tt:StreamingCapabilities",
         {Says("tt:RTPMulticast", false), Says("tt:RTP_TCP", false), Says("tt:RTP_RTSP_TCP", true)}}}});
  add("PTZ", {"tt:PTZ", {Element("tt:XAddr", asked.Service("ptz_service"))}});
  return {"tds:GetCapabilitiesResponse", {std::move(capabilities)}};
}

Element Scopes(const Asked& asked) {
  Element answer("tds:GetScopesResponse");
  for (const auto& scope : ScopesOf(asked.Name, std::string(asked.Camera->Driver().ProgID)))
    answer.Children.push_back(
        {"tds:Scopes", {Element("tt:ScopeDef", "Fixed"), Element("tt:ScopeItem", scope)}});
  return answer;
}

Element Hostname(const Asked&) {
  return {"tds:GetHostnameResponse",
          {{"tds:HostnameInformation", {Says("tt:FromDHCP", false), Element("tt:Name", HostName())}}}};
}

/// The one by which the client came. It is no card of its own that a camera has here, but clients know
/// devices by their card's address.
Element NetworkInterfaces(const Asked& asked) {
  const Identity identity(asked.Name);
  auto host = asked.Call->Asked().Host;
  host.resize(std::min(host.rfind(':'), host.size()));
  boost::system::error_code none;
  const auto address = boost::asio::ip::make_address_v4(host, none);
  Element interface("tds:NetworkInterfaces",
                    {Says("tt:Enabled", true),
                     {"tt:Info",
                      {Element("tt:Name", "ptzgate"), Element("tt:HwAddress", identity.HardwareAddress),
                       Element("tt:MTU", "1500")}}});
  if (!none)
    interface.Children.push_back(
        {"tt:IPv4",
         {Says("tt:Enabled", true),
          {"tt:Config",
           {{"tt:Manual", {Element("tt:Address", address.to_string()), Element("tt:PrefixLength", "32")}},
            Says("tt:DHCP", false)}}}});
  return {"tds:GetNetworkInterfacesResponse", {std::move(interface).With("token", "interface")}};
}

/// Those who may do something with the camera.
Element UserList(const Asked& asked) {
  const auto& users = asked.Site.Users();
  if (users.RoleOf(asked.Who.User, asked.Name) != Role::Administrator)
    throw Fault("env:Sender", {"ter:NotAuthorized"}, "to list users is for administrators");
  Element answer("tds:GetUsersResponse");
  for (const auto& user : users.All()) {
    const auto role = users.RoleOf(user.Name, asked.Name);
    if (role == Role::None) continue;
    const char* level = role == Role::Administrator ? "Administrator"
                        : role == Role::Operator    ? "Operator"
                                                    : "User";
    answer.Children.push_back(
        {"tds:User", {Element("tt:Username", user.Name), Element("tt:UserLevel", level)}});
  }
  return answer;
}

Element WsdlUrl(const Asked&) {
  return {"tds:GetWsdlUrlResponse",
          {Element("tds:WsdlUrl", "http://www.onvif.org/onvif/ver10/device/wsdl/")}};
}

Element EndpointReference(const Asked& asked) {
  return {"tds:GetEndpointReferenceResponse", {Element("tds:GUID", "urn:uuid:" + Identity(asked.Name).UUID)}};
}

Element DiscoveryMode(const Asked& asked) {
  return {"tds:GetDiscoveryModeResponse",
          {Element("tds:DiscoveryMode",
                   asked.Site.Settings().ONVIF.Discovery ? "Discoverable" : "NonDiscoverable")}};
}

constexpr Operation All[] = {
    {"tds:GetSystemDateAndTime", AtOnce<DateAndTime>, true},
    {"tds:GetServices", AtOnce<Services>, true},
    {"tds:GetServiceCapabilities", AtOnce<ServiceCapabilities>, true},
    {"tds:GetCapabilities", AtOnce<Capabilities>, true},
    {"tds:GetHostname", AtOnce<Hostname>, true},
    {"tds:GetWsdlUrl", AtOnce<WsdlUrl>, true},
    {"tds:GetEndpointReference", AtOnce<EndpointReference>, true},
    {"tds:GetDeviceInformation", AtOnce<Information>},
    {"tds:GetScopes", AtOnce<Scopes>},
    {"tds:GetNetworkInterfaces", AtOnce<NetworkInterfaces>},
    {"tds:GetDiscoveryMode", AtOnce<DiscoveryMode>},
    {"tds:GetUsers", AtOnce<UserList>},
};

}  // namespace

std::span<const Operation> DeviceOperations() { return All; }

}  // namespace ptzgate
