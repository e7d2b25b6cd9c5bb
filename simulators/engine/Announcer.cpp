#include "simulators/engine/Announcer.h"

#include <algorithm>
#include <array>
#include <boost/asio/ip/multicast.hpp>
#include <boost/asio/ip/udp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/property_tree/ptree.hpp>
#include <boost/property_tree/xml_parser.hpp>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "simulators/engine/HTTPServer.h"
#include "simulators/engine/Loop.h"

namespace ptzsim {
namespace {

namespace asio = boost::asio;
using asio::ip::address_v4;
using asio::ip::udp;
using boost::property_tree::ptree;
using boost::system::error_code;

// Both protocols have this group.
const address_v4 Group = address_v4::from_string("239.255.255.250");

constexpr char Addressing[] = "http://schemas.xmlsoap.org/ws/2004/08/addressing";
constexpr char Discovery[] = "http://schemas.xmlsoap.org/ws/2005/04/discovery";
constexpr char DeviceType[] = "NetworkVideoTransmitter";
constexpr char DescriptionPath[] = "/description.xml";
constexpr int LongestDelay = 200;  // milliseconds, at random, so that not all cameras answer at once

std::mt19937& Random() {
  static thread_local std::mt19937 engine{std::random_device{}()};
  return engine;
}

std::string UUID() {
  const auto part = [] { return static_cast<unsigned>(Random()() & 0xFFFF); };
  char text[40];
  std::snprintf(text, sizeof text, "%04x%04x-%04x-4%03x-a%03x-%04x%04x%04x", part(), part(), part(),
                part() & 0xFFF, part() & 0xFFF, part(), part(), part());
  return text;
}

std::string Escaped(std::string_view text) {
  std::string escaped;
  for (const char c : text) {
    const auto* entity = c == '&' ? "&amp;" : c == '<' ? "&lt;" : c == '"' ? "&quot;" : nullptr;
    entity != nullptr ? escaped.append(entity) : escaped.append(1, c);
  }
  return escaped;
}

/// For a scope, which is a URI.
std::string PercentEncoded(std::string_view text) {
  std::string encoded;
  for (const char c : text) {
    if (std::isalnum(static_cast<unsigned char>(c)) || std::string_view("-_.").find(c) != text.npos) {
      encoded += c;
    } else {
      char escape[4];
      std::snprintf(escape, sizeof escape, "%%%02X", static_cast<unsigned char>(c));
      encoded += escape;
    }
  }
  return encoded;
}

std::string LowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

/// The first element with that name, whatever its prefix.
const ptree* Find(const ptree& tree, std::string_view name) {
  for (const auto& [key, child] : tree) {
    if (key == "<xmlattr>") continue;
    const auto colon = key.find(':');
    if (std::string_view(key).substr(colon == key.npos ? 0 : colon + 1) == name) return &child;
    if (const auto* found = Find(child, name)) return found;
  }
  return nullptr;
}

/// What a client looks for.
struct Probe {
  std::string MessageID, Types;
};

/// Nothing where the message is not a Probe.
std::optional<Probe> ReadProbe(const std::string& message) {
  try {
    ptree tree;
    std::istringstream input(message);
    boost::property_tree::read_xml(input, tree, boost::property_tree::xml_parser::trim_whitespace);
    const auto* action = Find(tree, "Action");
    const auto* id = Find(tree, "MessageID");
    const auto* probe = Find(tree, "Probe");
    if (!action || !id || !probe || action->data() != std::string(Discovery) + "/Probe") return std::nullopt;
    const auto* types = Find(*probe, "Types");
    return Probe{id->data(), types ? types->data() : ""};
  } catch (const boost::property_tree::xml_parser_error&) {
    return std::nullopt;
  }
}

/// The fields of a message with the head of HTTP, names in lower case; "" is its first line.
std::map<std::string, std::string> ReadFields(const std::string& message) {
  std::map<std::string, std::string> fields;
  std::istringstream lines(message);
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty()) break;
    if (fields.empty()) {
      fields[""] = line;
    } else if (const auto colon = line.find(':'); colon != line.npos) {
      const auto value = line.find_first_not_of(' ', colon + 1);
      fields[LowerCase(line.substr(0, colon))] = value == line.npos ? "" : line.substr(value);
    }
  }
  return fields;
}

/// A port of the group, which other programs may have, too.
class Member {
 public:
  using Handler = std::function<void(const std::string& message, const udp::endpoint& from)>;

  Member(Loop& loop, const address_v4& interface, std::uint16_t port, Handler handler)
      : Socket_(loop.Context()), Group_(Group, port), Handler_(std::move(handler)) {
    try {
      Socket_.open(udp::v4());
      Socket_.set_option(udp::socket::reuse_address(true));
#ifdef _WIN32
      Socket_.bind({interface, port});
#else
      Socket_.bind(Group_);  // else the port's own messages would come too
#endif
      Socket_.set_option(asio::ip::multicast::join_group(Group, interface));
      Socket_.set_option(asio::ip::multicast::outbound_interface(interface));
      Socket_.set_option(asio::ip::multicast::enable_loopback(true));
    } catch (const boost::system::system_error& error) {
      throw std::runtime_error("cannot announce on " + interface.to_string() + ", port " +
                               std::to_string(port) + ": " + error.code().message());
    }
    loop.Run([this] { Receive(); });
  }

  void Send(const std::string& message, const udp::endpoint& to) {
    error_code ignored;  // nobody hears an announcement that is lost
    Socket_.send_to(asio::buffer(message), to, 0, ignored);
  }
  void Announce(const std::string& message) { Send(message, Group_); }

  /// A reply leaves when its time has come.
  void SendSoon(std::string message, const udp::endpoint& to) {
    const auto timer = std::make_shared<asio::steady_timer>(Socket_.get_executor());
    timer->expires_after(std::chrono::milliseconds(Random()() % LongestDelay));
    timer->async_wait([this, timer, message = std::move(message), to](const error_code& error) {
      if (!error) Send(message, to);
    });
  }

  const udp::endpoint& All() const { return Group_; }

 private:
  void Receive() {
    Socket_.async_receive_from(asio::buffer(Buffer_), From_,
                               [this](const error_code& error, std::size_t size) {
                                 if (error == asio::error::operation_aborted) return;
                                 if (!error) Handler_(std::string(Buffer_.data(), size), From_);
                                 Receive();
                               });
  }

  udp::socket Socket_;
  const udp::endpoint Group_;
  Handler Handler_;
  std::array<char, 65536> Buffer_{};
  udp::endpoint From_;
};

}  // namespace

class Announcer::Implementation {
 public:
  Implementation(Identity identity, const Options& options)
      : Identity_(std::move(identity)),
        Interface_(address_v4::from_string(options.Interface)),
        Description_([this](const Request& request) { return Describe(request); }),
        Discovery_(Loop_, Interface_, options.DiscoveryPort,
                   [this](const auto& message, const auto& from) { AnswerProbe(message, from); }),
        Search_(Loop_, Interface_, options.SearchPort,
                [this](const auto& message, const auto& from) { AnswerSearch(message, from); }) {
    Loop_.Run([this] {
      Discovery_.Announce(Envelope("Hello", "urn:schemas-xmlsoap-org:ws:2005:04:discovery", "",
                                   "<d:Hello>" + Endpoint() + Service() + "</d:Hello>"));
      Search_.Announce(Notify("ssdp:alive", Fields()));
    });
  }

  ~Implementation() {
    Loop_.Run([this] {
      Discovery_.Announce(Envelope("Bye", "urn:schemas-xmlsoap-org:ws:2005:04:discovery", "",
                                   "<d:Bye>" + Endpoint() + "</d:Bye>"));
      Search_.Announce(Notify("ssdp:byebye", ""));
    });
    Loop_.Stop();
  }

 private:
  std::string Envelope(const std::string& action, const std::string& to, const std::string& relatesTo,
                       const std::string& body) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n"
           "<s:Envelope xmlns:s=\"http://www.w3.org/2003/05/soap-envelope\" xmlns:a=\"" +
           std::string(Addressing) + "\" xmlns:d=\"" + Discovery +
           "\" xmlns:dn=\"http://www.onvif.org/ver10/network/wsdl\"><s:Header><a:Action>" + Discovery + "/" +
           action + "</a:Action><a:MessageID>urn:uuid:" + UUID() + "</a:MessageID>" +
           (relatesTo.empty() ? "" : "<a:RelatesTo>" + Escaped(relatesTo) + "</a:RelatesTo>") + "<a:To>" +
           to + "</a:To><d:AppSequence InstanceId=\"1\" MessageNumber=\"" + std::to_string(++Messages_) +
           "\"/></s:Header><s:Body>" + body + "</s:Body></s:Envelope>";
  }

  std::string Endpoint() const {
    return "<a:EndpointReference><a:Address>urn:uuid:" + UUID_ + "</a:Address></a:EndpointReference>";
  }

  std::string Service() const {
    const auto scope = [](const std::string& path) { return "onvif://www.onvif.org/" + path; };
    return std::string("<d:Types>dn:") + DeviceType + "</d:Types><d:Scopes>" + scope("type/video_encoder ") +
           scope("Profile/Streaming ") + scope("hardware/" + PercentEncoded(Identity_.Model) + " ") +
           scope("name/" + PercentEncoded(Identity_.Maker + " " + Identity_.Model)) +
           "</d:Scopes><d:XAddrs>http://" + Identity_.Address +
           "/onvif/device_service</d:XAddrs><d:MetadataVersion>1</d:MetadataVersion>";
  }

  void AnswerProbe(const std::string& message, const udp::endpoint& from) {
    const auto probe = ReadProbe(message);
    if (!probe) return;
    // All of the types asked for must be there; this device has one, and what every device is.
    std::istringstream types(probe->Types);
    for (std::string type; types >> type;) {
      const auto name = type.substr(type.find(':') + 1);
      if (name != DeviceType && name != "Device") return;
    }
    Discovery_.SendSoon(
        Envelope(
            "ProbeMatches", std::string(Addressing) + "/role/anonymous", probe->MessageID,
            "<d:ProbeMatches><d:ProbeMatch>" + Endpoint() + Service() + "</d:ProbeMatch></d:ProbeMatches>"),
        from);
  }

  std::string USN() const { return "uuid:" + UUID_ + "::upnp:rootdevice"; }
  /// Of a message that says where the device is.
  std::string Fields() const {
    return "CACHE-CONTROL: max-age=1800\r\nLOCATION: " + Description_.URL() + DescriptionPath +
           "\r\nSERVER: Linux/2.6 UPnP/1.0 " + Identity_.Maker + "/1.0\r\n";
  }
  std::string Notify(const std::string& kind, const std::string& fields) const {
    return "NOTIFY * HTTP/1.1\r\nHOST: 239.255.255.250:" + std::to_string(Search_.All().port()) + "\r\n" +
           fields + "NT: upnp:rootdevice\r\nNTS: " + kind + "\r\nUSN: " + USN() + "\r\n\r\n";
  }

  void AnswerSearch(const std::string& message, const udp::endpoint& from) {
    auto fields = ReadFields(message);
    if (fields[""] != "M-SEARCH * HTTP/1.1" || fields["man"] != "\"ssdp:discover\"") return;
    const auto& target = fields["st"];
    if (target != "ssdp:all" && target != "upnp:rootdevice" && target != "uuid:" + UUID_) return;
    Search_.SendSoon(
        "HTTP/1.1 200 OK\r\n" + Fields() + "EXT:\r\nST: upnp:rootdevice\r\nUSN: " + USN() + "\r\n\r\n", from);
  }

  HTTPReply Describe(const Request& request) const {
    if (request.Target != DescriptionPath) return {.Status = 404};
    const auto element = [](const std::string& name, const std::string& text) {
      return "<" + name + ">" + Escaped(text) + "</" + name + ">\n";
    };
    return HTTPReply::Text(
        "<?xml version=\"1.0\"?>\n<root "
        "xmlns=\"urn:schemas-upnp-org:device-1-0\">\n<specVersion><major>1</major>"
        "<minor>0</minor></specVersion>\n<device>\n<deviceType>urn:schemas-upnp-org:device:Basic:1</"
        "deviceType>\n" +
            element("friendlyName", Identity_.Maker + " " + Identity_.Model) +
            element("manufacturer", Identity_.Maker) + element("modelName", Identity_.Model) +
            element("UDN", "uuid:" + UUID_) +
            element("presentationURL", "http://" + Identity_.Address + "/") + "</device>\n</root>\n",
        "text/xml");
  }

  const Identity Identity_;
  const address_v4 Interface_;
  const std::string UUID_ = UUID();
  int Messages_ = 0;
  HTTPServer Description_;
  Loop Loop_;
  Member Discovery_, Search_;
};

Announcer::Announcer(Identity identity, const Options& options)
    : Implementation_(std::make_unique<Implementation>(std::move(identity), options)) {}
Announcer::~Announcer() = default;

}  // namespace ptzsim
