#include "gateway/onvif/Discovery.h"

#include <boost/asio/ip/multicast.hpp>

#include <algorithm>
#include <stdexcept>

#include "gateway/onvif/Identity.h"
#include "platform/Multicast.h"

namespace ptzgate {

using boost::system::error_code;

namespace {

constexpr char Group[] = "239.255.255.250";
constexpr std::uint16_t Port = 3702;
constexpr char ToEverybody[] = "urn:schemas-xmlsoap-org:ws:2005:04:discovery";
constexpr char Anonymous[] = "http://schemas.xmlsoap.org/ws/2004/08/addressing/role/anonymous";
constexpr std::string_view Discovering = "http://schemas.xmlsoap.org/ws/2005/04/discovery/";
/// Whoever asks may be somebody else than he says, who is not to be flooded.
constexpr int ProbesPerSecond = 20;
/// No question is answered any more once there were so many answers in a second, one for each camera.
constexpr int AnswersPerSecond = 1000;

std::vector<std::string> Words(const std::string& text) {
  std::vector<std::string> words;
  for (std::size_t at = 0; (at = text.find_first_not_of(" \t\r\n", at)) != std::string::npos;) {
    const auto end = std::min(text.find_first_of(" \t\r\n", at), text.size());
    words.push_back(text.substr(at, end - at));
    at = end;
  }
  return words;
}

/// As URIs match by their beginning: all of their parts.
bool IsWithin(const std::string& scope, const std::string& wanted) {
  return scope.starts_with(wanted) &&
         (scope.size() == wanted.size() || wanted.ends_with('/') || scope[wanted.size()] == '/');
}

std::string MessageText(const std::string& id, std::string_view action, const std::string& to,
                        const std::string& relatesTo, const std::string& sequence, Element body) {
  Element header("env:Header", {Element("wsa:MessageID", id), Element("wsa:To", to),
                                Element("wsa:Action", std::string(Discovering) + std::string(action))});
  if (!relatesTo.empty()) header.Children.emplace_back("wsa:RelatesTo", relatesTo);
  header.Children.push_back(Element("d:AppSequence")
                                .With("InstanceId", sequence.substr(0, sequence.find('.')))
                                .With("MessageNumber", sequence.substr(sequence.find('.') + 1)));
  std::vector<Element> content;
  content.push_back(std::move(body));
  return XMLText({"env:Envelope", {std::move(header), Element("env:Body", std::move(content))}});
}

}  // namespace

std::optional<Probe> ReadProbe(std::string_view text) {
  try {
    const auto root = ReadXML(text);
    const auto *header = root.Child("Header"), *body = root.Child("Body");
    const auto* probe = body == nullptr ? nullptr : body->Child("Probe");
    const auto* id = header == nullptr ? nullptr : header->Child("MessageID");
    if (root.Name != "env:Envelope" || probe == nullptr || probe->Name != "d:Probe" || id == nullptr)
      return std::nullopt;
    Probe result{id->Text, {}, {}, false};
    if (const auto* types = probe->Child("Types"))
      for (const auto& type : Words(types->Text)) result.Types.push_back(type.substr(type.find(':') + 1));
    if (const auto* scopes = probe->Child("Scopes")) {
      result.Scopes = Words(scopes->Text);
      const auto* rule = scopes->Attribute("MatchBy");
      const auto isRule = [&](const char* name) { return *rule == std::string(Discovering) + name; };
      if (rule != nullptr && !isRule("rfc3986") && !isRule("strcmp0")) return std::nullopt;
      result.WantsWholeScopes = rule != nullptr && isRule("strcmp0");
    }
    return result;
  } catch (const NoXML&) {
    return std::nullopt;
  }
}

Discovery::Discovery(Gate& gate, WhereIs whereIs)
    : Gate_(gate),
      WhereIs_(std::move(whereIs)),
      Socket_(gate.Context()),
      Begun_(static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::seconds>(
                                            std::chrono::system_clock::now().time_since_epoch())
                                            .count())) {
  Join();
  for (const auto& camera : Gate_.Cameras()) Tell(*camera, true);
  Watch_ = Gate_.Watch([this](GateCamera& camera, Gate::Change change) {
    if (change != Gate::Change::Changed) Tell(camera, change == Gate::Change::Added);
  });
  Receive();
}

Discovery::~Discovery() {
  for (const auto& camera : Gate_.Cameras()) Tell(*camera, false);
}

/// On the interfaces by which a client can come.
void Discovery::Join() {
  try {
    Socket_.open(UDP::v4());
    Socket_.set_option(UDP::socket::reuse_address(true));
    Socket_.bind({boost::asio::ip::make_address_v4(Group), Port});
  } catch (const boost::system::system_error& error) {
    throw std::runtime_error("the network's questions for cameras cannot be heard: " +
                             error.code().message());
  }
  Socket_.non_blocking(true);
  Socket_.set_option(boost::asio::ip::multicast::enable_loopback(true));
  const auto& settings = Gate_.Settings();
  auto listens = settings.Web.Listen;
  for (const auto& [camera, listen] : settings.ONVIF.Ports) listens.push_back(listen);
  for (const auto& interface : ptzd::NetworkInterfaces()) {
    const auto reaches = [&](const ListenAddress& listen) {
      return listen.Host == interface.Address || listen.Host == "0.0.0.0" || listen.Host == "::";
    };
    if (!interface.IsUp || std::ranges::none_of(listens, reaches)) continue;
    error_code failed;
    const auto address = boost::asio::ip::make_address_v4(interface.Address, failed);
    if (failed) continue;
    Socket_.set_option(
        boost::asio::ip::multicast::join_group(boost::asio::ip::make_address_v4(Group), address), failed);
    if (failed)
      Gate_.Journal().Warn("questions for cameras on " + interface.Address +
                           " are not heard: " + failed.message());
    else
      Interfaces_.push_back(address);
  }
}

void Discovery::Receive() {
  Socket_.async_receive_from(boost::asio::buffer(Buffer_), From_,
                             [this](const error_code& error, std::size_t size) {
                               if (error == boost::asio::error::operation_aborted) return;
                               if (!error)
                                 if (const auto probe = ReadProbe({Buffer_.data(), size}))
                                   Answer(*probe, From_);
                               Receive();
                             });
}

Element Discovery::Match(std::string name, const GateCamera& camera,
                         const boost::asio::ip::address& local) const {
  auto reach = WhereIs_(camera.Name());
  error_code none;
  const auto host = boost::asio::ip::make_address(reach.Host, none);
  if (!none && host.is_unspecified()) reach.Host = local.to_string();
  if (!none && host.is_v6() && !host.is_unspecified()) reach.Host = "[" + reach.Host + "]";
  std::string scopes;
  for (const auto& scope : ScopesOf(camera.Name(), std::string(camera.Driver().ProgID)))
    scopes += (scopes.empty() ? "" : " ") + scope;
  return {std::move(name),
          {{"wsa:EndpointReference", {Element("wsa:Address", "urn:uuid:" + Identity(camera.Name()).UUID)}},
           Element("d:Types", "dn:NetworkVideoTransmitter tds:Device"),
           Element("d:Scopes", scopes),
           Element("d:XAddrs", (reach.IsSecure ? "https://" : "http://") + reach.Host + ":" +
                                   std::to_string(reach.Port) + reach.Path),
           Element("d:MetadataVersion", "1")}};
}

void Discovery::Answer(const Probe& probe, const UDP::endpoint& to) {
  const auto now = std::chrono::steady_clock::now();
  if (now - Second_ >= std::chrono::seconds(1)) {
    Second_ = now;
    Probes_ = Answers_ = 0;
  }
  if (++Probes_ > ProbesPerSecond || Answers_ >= AnswersPerSecond) return;
  for (const auto& type : probe.Types)
    if (type != "NetworkVideoTransmitter" && type != "Device") return;
  // The address by which this machine reaches whoever asked.
  error_code failed;
  UDP::socket way(Gate_.Context());
  way.open(UDP::v4(), failed);
  way.connect(to, failed);
  const auto local = way.local_endpoint(failed);
  if (failed) return;
  for (const auto& camera : Gate_.Cameras()) {
    const auto scopes = ScopesOf(camera->Name(), std::string(camera->Driver().ProgID));
    const bool isMeant = std::ranges::all_of(probe.Scopes, [&](const std::string& wanted) {
      return std::ranges::any_of(scopes, [&](const std::string& scope) {
        return probe.WantsWholeScopes ? scope == wanted : IsWithin(scope, wanted);
      });
    });
    if (!isMeant) continue;
    ++Answers_;
    // One for each: there are clients that read the first match of a message only.
    Send(MessageText(NewMessage(), "ProbeMatches", Anonymous, probe.MessageID, NextNumber(),
                     {"d:ProbeMatches", {Match("d:ProbeMatch", *camera, local.address())}}),
         to);
  }
}

void Discovery::Tell(const GateCamera& camera, bool isThere) {
  for (const auto& interface : Interfaces_) {
    error_code failed;
    Socket_.set_option(boost::asio::ip::multicast::outbound_interface(interface), failed);
    if (failed) continue;
    Element bye("d:Bye", {{"wsa:EndpointReference",
                           {Element("wsa:Address", "urn:uuid:" + Identity(camera.Name()).UUID)}}});
    Send(MessageText(NewMessage(), isThere ? "Hello" : "Bye", ToEverybody, "", NextNumber(),
                     isThere ? Match("d:Hello", camera, interface) : std::move(bye)),
         {boost::asio::ip::make_address_v4(Group), Port});
  }
}

/// A datagram may be lost in any case.
void Discovery::Send(const std::string& text, const UDP::endpoint& to) {
  error_code lost;
  Socket_.send_to(boost::asio::buffer(text), to, 0, lost);
}

std::string Discovery::NextNumber() { return std::to_string(Begun_) + "." + std::to_string(++Sent_); }

std::string Discovery::NewMessage() const {
  return "urn:uuid:" + Identity(std::to_string(Begun_) + "." + std::to_string(Sent_)).UUID;
}

}  // namespace ptzgate
