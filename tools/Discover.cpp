#include "Discover.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <ptzd/Error.h>
#include "Aside.h"
#include "ExchangeLog.h"
#include "Makes.h"
#include "Words.h"
#include "common/ASCII.h"
#include "platform/CodePages.h"
#include "platform/Multicast.h"
#include "platform/Socket.h"
#include "platform/XmlDocument.h"
#include "transport/HTTP.h"
#include "transport/HTTPClient.h"
#include "transport/StringEncoding.h"

namespace ptzctl {

namespace {

using namespace ptzd;
using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;
using Json = nlohmann::ordered_json;

// Anybody on the network may send anything, as much as he likes.
constexpr std::size_t MostPackets = 4096, MostPacketsOfOne = 256;
constexpr std::size_t MostDevices = 256;
constexpr std::size_t LongestText = 256;  // bytes kept of what a device says of itself
constexpr std::size_t MostTexts = 32;     // likewise, of scopes and addresses
constexpr std::size_t MostDescriptions = 64;
constexpr std::int32_t LargestDescription = 64 * 1024;
constexpr unsigned DescriptionsAtOnce = 4;
constexpr Milliseconds DescriptionTime = 1500ms;
constexpr Milliseconds Grace = 250ms;

constexpr Milliseconds DefaultTime = 5000ms;
constexpr char Group[] = "239.255.255.250";

/// What has announced itself.
struct Device {
  std::string From;        ///< the host whose packets said so
  std::string Interface;   ///< by which they came
  std::string Identifier;  ///< its endpoint, or the unique name of its service
  std::vector<std::string> FoundBy;
  std::string Name, Model, Manufacturer, Server, Location;
  std::string WebAddress;  ///< "192.168.0.90:80", where it said it
  std::vector<std::string> Scopes, Addresses;
};

std::string UUID() {
  std::random_device random;
  std::array<char, 40> text{};
  const auto part = [&] { return random() & 0xFFFF; };
  std::snprintf(text.data(), text.size(), "%04x%04x-%04x-4%03x-a%03x-%04x%04x%04x", part(), part(), part(),
                part() & 0xFFF, part() & 0xFFF, part(), part(), part());
  return text.data();
}

std::string Probe(const std::string& types) {
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<s:Envelope xmlns:s="http://www.w3.org/2003/05/soap-envelope" xmlns:a="http://schemas.xmlsoap.org/ws/2004/08/addressing" xmlns:d="http://schemas.xmlsoap.org/ws/2005/04/discovery" xmlns:dn="http://www.onvif.org/ver10/network/wsdl"><s:Header><a:Action>http://schemas.xmlsoap.org/ws/2005/04/discovery/Probe</a:Action><a:MessageID>urn:uuid:)" +
         UUID() +
         "</a:MessageID><a:To>urn:schemas-xmlsoap-org:ws:2005:04:discovery</a:To></"
         "s:Header><s:Body><d:Probe>" +
         types + "</d:Probe></s:Body></s:Envelope>";
}

std::string Search(std::uint16_t port) {
  return std::string("M-SEARCH * HTTP/1.1\r\nHOST: ") + Group + ":" + std::to_string(port) +
         "\r\nMAN: \"ssdp:discover\"\r\nMX: 1\r\nST: upnp:rootdevice\r\n\r\n";
}

std::string Cut(std::string_view text) { return std::string(text.substr(0, LongestText)); }

std::vector<std::string> WordsIn(const std::string& text) {
  std::vector<std::string> words;
  std::istringstream input(text);
  for (std::string word; words.size() < MostTexts && input >> word;) words.push_back(Cut(word));
  return words;
}

/// The elements inside with that name, whatever its prefix, which every sender chooses as he likes.
void Find(const XmlNode& node, std::string_view name, std::vector<const XmlNode*>& found) {
  for (const auto& child : node.Children) {
    const auto colon = child.Name.find(':');
    if (std::string_view(child.Name).substr(colon == std::string::npos ? 0 : colon + 1) == name)
      found.push_back(&child);
    Find(child, name, found);
  }
}

std::string TextIn(const XmlNode& node, std::string_view name) {
  std::vector<const XmlNode*> found;
  Find(node, name, found);
  return found.empty() ? std::string() : found.front()->Text();
}

/// The host and port of a URL, where its host is the one that is meant.
std::string PlaceAt(const std::string& host, const std::string& url) {
  const auto parts = CrackUrl(url);
  if (parts.HostName != host || parts.Port == 0) return {};
  return host + (parts.Port == 80 ? "" : ":" + std::to_string(parts.Port));
}

void Learn(std::string& known, std::string_view told) {
  if (known.empty()) known = Cut(told);
}

/// What of an identifier is the same in both protocols.
std::string Key(const std::string& identifier) {
  const auto begin = identifier.find("uuid:");
  if (begin == std::string::npos) return identifier;
  const auto end = identifier.find("::", begin);
  std::string key = identifier.substr(begin, end == std::string::npos ? end : end - begin);
  std::ranges::transform(key, key.begin(), LowerASCII);
  return key;
}

/// What has been heard.
class Ear {
 public:
  void Take(const Datagram& datagram) {
    ++Packets_;
    if (++PacketsOf_[datagram.From] > MostPacketsOfOne || Packets_ > MostPackets) {
      ++Dropped_;
      return;
    }
    const std::string_view bytes = datagram.Bytes;
    if (bytes.starts_with("HTTP/1.") || bytes.starts_with("NOTIFY "))
      TakeSearchReply(datagram);
    else if (!bytes.starts_with("M-SEARCH "))
      TakeSoap(datagram);
  }

  bool IsFull() const { return Packets_ >= 2 * MostPackets; }
  std::vector<Device>& Devices() { return Devices_; }
  std::size_t Dropped() const { return Dropped_; }
  std::size_t Malformed() const { return Malformed_; }

 private:
  void TakeSoap(const Datagram& datagram) {
    XmlDocument document;
    if (!document.LoadXml(datagram.Bytes)) {
      ++Malformed_;
      return;
    }
    std::vector<const XmlNode*> matches;
    Find(*document.DocumentElement(), "ProbeMatch", matches);
    const bool answers = !matches.empty();
    if (!answers) Find(*document.DocumentElement(), "Hello", matches);
    for (const auto* match : matches) {
      auto* device = DeviceFor(datagram, TextIn(*match, "Address"), answers ? "ws-discovery" : "hello");
      if (device == nullptr) return;
      device->Scopes = WordsIn(TextIn(*match, "Scopes"));
      device->Addresses = WordsIn(TextIn(*match, "XAddrs"));
      for (const auto& scope : device->Scopes) {
        constexpr std::string_view name = "onvif://www.onvif.org/name/",
                                   model = "onvif://www.onvif.org/hardware/";
        constexpr std::string_view maker = "onvif://www.onvif.org/manufacturer/";
        if (scope.starts_with(maker)) Learn(device->Manufacturer, PercentDecode(scope.substr(maker.size())));
        if (scope.starts_with(name)) Learn(device->Name, PercentDecode(scope.substr(name.size())));
        if (scope.starts_with(model)) Learn(device->Model, PercentDecode(scope.substr(model.size())));
      }
      for (const auto& address : device->Addresses) Learn(device->WebAddress, PlaceAt(device->From, address));
    }
  }

  void TakeSearchReply(const Datagram& datagram) {
    std::map<std::string, std::string> fields;
    std::istringstream lines(datagram.Bytes);
    std::string first, line;
    std::getline(lines, first);
    while (fields.size() < MostTexts && std::getline(lines, line) && line != "\r" && !line.empty()) {
      if (line.ends_with('\r')) line.pop_back();
      const auto colon = std::min(line.find(':'), line.size());
      auto name = line.substr(0, colon);
      std::ranges::transform(name, name.begin(), LowerASCII);
      const auto value = line.find_first_not_of(" \t", colon + 1);
      if (value != std::string::npos) fields[name] = Cut(line.substr(value));
    }
    const bool answers = first.starts_with("HTTP/1.");
    const auto status = first.find(' ');
    const bool isGood = answers ? status != std::string::npos && first.compare(status + 1, 3, "200") == 0
                                : fields["nts"] == "ssdp:alive";
    if (!isGood || fields["usn"].empty()) {
      if (fields["nts"] != "ssdp:byebye") ++Malformed_;
      return;
    }
    auto* device = DeviceFor(datagram, fields["usn"], answers ? "ssdp" : "notify");
    if (device == nullptr) return;
    Learn(device->Server, fields["server"]);
    Learn(device->Location, fields["location"]);
  }

  /// The device that says this of itself; null where there are too many.
  Device* DeviceFor(const Datagram& datagram, const std::string& identifier, const char* foundBy) {
    const auto key = std::pair(datagram.From, Key(Cut(identifier)));
    const auto known = Index_.find(key);
    if (known == Index_.end() && Devices_.size() == MostDevices) {
      ++Dropped_;
      return nullptr;
    }
    const auto at = known == Index_.end() ? Devices_.size() : known->second;
    if (known == Index_.end()) {
      Index_[key] = at;
      Devices_.push_back({.From = datagram.From,
                          .Interface = datagram.Interface,
                          .Identifier = Cut(identifier),
                          .FoundBy = {},
                          .Name = {},
                          .Model = {},
                          .Manufacturer = {},
                          .Server = {},
                          .Location = {},
                          .WebAddress = {},
                          .Scopes = {},
                          .Addresses = {}});
    }
    auto& by = Devices_[at].FoundBy;
    if (std::ranges::find(by, foundBy) == by.end()) by.emplace_back(foundBy);
    return &Devices_[at];
  }

  std::map<std::pair<std::string, std::string>, std::size_t> Index_;
  std::map<std::string, std::size_t> PacketsOf_;
  std::vector<Device> Devices_;
  std::size_t Packets_ = 0, Dropped_ = 0, Malformed_ = 0;
};

/// What a description says; no more than the device itself could say.
struct Description {
  std::string Name, Model, Manufacturer, Page;
};

Description Described(const std::string& url, const std::shared_ptr<ExchangeLog>& log,
                      SteadyClock::time_point deadline) {
  HTTPClient client(SystemInternet(), SystemClock(), Teller(log, {}, 0));
  client.FollowRedirects(false);
  client.Timeout(static_cast<std::int32_t>(DescriptionTime.count()));
  client.ConnectTimeout(static_cast<std::int32_t>(DescriptionTime.count()));
  client.Progress = [deadline](std::int32_t received, std::int32_t, bool& cancel) {
    cancel = received > LargestDescription || SteadyClock::now() > deadline;
  };
  const auto body = client.GetResource(url, "", "");
  XmlDocument document;
  if (!document.LoadXml(std::string(body.begin(), body.end()))) return {};
  const auto& root = *document.DocumentElement();
  return {TextIn(root, "friendlyName"), TextIn(root, "modelName"), TextIn(root, "manufacturer"),
          TextIn(root, "presentationURL")};
}

/// Asks for the descriptions that lie on the host that announced them, and nowhere else.
void Describe(std::vector<Device>& devices, const std::shared_ptr<ExchangeLog>& log,
              SteadyClock::time_point deadline) {
  struct Results {
    std::mutex Mutex;
    std::map<std::size_t, Description> Descriptions;
  };
  const auto results = std::make_shared<Results>();
  std::vector<std::function<void()>> tasks;
  for (std::size_t i = 0; i < devices.size() && tasks.size() < MostDescriptions; ++i) {
    const auto& device = devices[i];
    if (CrackUrl(device.Location).HostName != device.From) continue;
    tasks.push_back([results, i, url = device.Location, log, deadline] {
      auto description = Described(url, log, deadline);
      const std::lock_guard lock(results->Mutex);
      results->Descriptions[i] = std::move(description);
    });
  }
  RunAside(std::move(tasks), DescriptionsAtOnce, deadline + Grace);
  const std::lock_guard lock(results->Mutex);
  for (const auto& [i, description] : results->Descriptions) {
    auto& device = devices[i];
    Learn(device.Name, description.Name);
    Learn(device.Model, description.Model);
    Learn(device.Manufacturer, description.Manufacturer);
    Learn(device.WebAddress, PlaceAt(device.From, description.Page));
  }
}

std::string NamesOf(const std::vector<NetworkInterface>& interfaces) {
  std::string names;
  for (const auto& one : interfaces)
    names.append(names.empty() ? "" : ", ")
        .append(one.Name == one.Address ? one.Name : one.Name + " (" + one.Address + ")");
  return names;
}

/// Those that are meant: the named one, or all that lead to others.
std::vector<NetworkInterface> Chosen(const std::string& name) {
  const auto all = NetworkInterfaces();
  std::vector<NetworkInterface> chosen;
  for (const auto& one : all)
    if (name.empty() ? one.IsUp && one.HasMulticast && !one.IsLoopback
                     : one.Name == name || one.Address == name)
      chosen.push_back(one);
  if (chosen.empty())
    throw UsageError((name.empty() ? "--interface: none of the network interfaces is up and takes multicast"
                                   : "--interface: there is no \"" + Printable(name) + "\"") +
                     "; there are " + NamesOf(all));
  return chosen;
}

Json JsonOf(const Device& device) {
  const auto said = device.Name + "\n" + device.Model + "\n" + device.Manufacturer + "\n" + device.Server;
  auto drivers = Json::array();
  for (const auto* driver : DriversNamedIn(said)) drivers.push_back(ShortName(*driver));
  return {{"address", device.WebAddress.empty() ? device.From : device.WebAddress},
          {"found_by", device.FoundBy},
          {"name", device.Name},
          {"model", device.Model},
          {"manufacturer", device.Manufacturer},
          {"drivers", std::move(drivers)},
          {"evidence",
           {{"from", device.From},
            {"interface", device.Interface},
            {"identifier", device.Identifier},
            {"scopes", device.Scopes},
            {"addresses", device.Addresses},
            {"server", device.Server},
            {"location", device.Location}}}};
}

}  // namespace

int RunDiscover(const Invocation& invocation, Report& report) {
  const auto begin = SteadyClock::now();
  const auto time = invocation.Time.value_or(DefaultTime);
  const auto deadline = begin + time;
  const auto interfaces = Chosen(invocation.Interface);
  const auto [discoveryPort, searchPort] = invocation.DiscoveryPorts;
  Outcome outcome;
  outcome.Operation = "discover";
  const auto multicast = MakeMulticast();
  bool asks = false;
  for (const auto& one : interfaces) {
    const auto note = [&](const std::string& what, std::int32_t error) {
      if (error == 0) return true;
      outcome.Notes.push_back(one.Name + ": " + what + ": " + std::to_string(error) + " " +
                              SocketErrorText(error));
      outcome.ErrorNumber = error;
      outcome.ErrorText = SocketErrorText(error);
      return false;
    };
    asks |= note("nobody can be asked", multicast->OpenToAsk(one.Address));
    for (const auto port : {discoveryPort, searchPort})
      note("who announces himself at port " + std::to_string(port) + " is not heard",
           multicast->Join(one.Address, Group, port));
  }

  // What is asked twice is not lost with one packet. The last part of the time is for descriptions.
  Ear ear;
  std::set<std::string> problems;
  const auto listens = time - std::min<Milliseconds>(time / 3, 2000ms);
  const auto end = begin + listens;
  const std::string camera = "<d:Types>dn:NetworkVideoTransmitter</d:Types>";
  for (int round = 0; asks && round < 2; ++round) {
    // Some cameras answer only who asks for cameras, others only who asks for everything.
    // What one interface does not take may leave by the others.
    for (const auto& [port, question] :
         {std::pair(discoveryPort, Probe(camera)), std::pair(discoveryPort, Probe("")),
          std::pair(searchPort, Search(searchPort))})
      if (const auto error = multicast->Ask(Group, port, question); error != 0)
        problems.insert("asking at port " + std::to_string(port) + ": " + std::to_string(error) + " " +
                        SocketErrorText(error));
    const auto until = round == 0 ? begin + listens / 3 : end;
    while (!ear.IsFull()) {
      const auto left = std::chrono::ceil<Milliseconds>(until - SteadyClock::now());
      if (left <= 0ms) break;
      if (const auto datagram = multicast->Receive(left)) ear.Take(*datagram);
    }
  }
  outcome.Notes.insert(outcome.Notes.end(), problems.begin(), problems.end());
  const auto log = std::make_shared<ExchangeLog>(invocation.Trace);
  Describe(ear.Devices(), log, deadline);

  auto devices = Json::array();
  for (const auto& device : ear.Devices()) devices.push_back(JsonOf(device));
  outcome.Took = SteadyClock::now() - begin;
  if (ear.Dropped() > 0)
    outcome.Notes.push_back("more was sent than is listened to: " + std::to_string(ear.Dropped()) +
                            " packets were not looked at");
  if (ear.Malformed() > 0)
    outcome.Notes.push_back(std::to_string(ear.Malformed()) + " packets were not of either protocol");
  if (devices.empty()) {
    outcome.Result = Result::NoConnection;
    outcome.Text = "nothing announced itself on " + NamesOf(interfaces) +
                   (asks ? "; asked by WS-Discovery and SSDP, for " : "; nobody could be asked, after ") +
                   Seconds(std::chrono::duration_cast<Milliseconds>(*outcome.Took));
  }
  outcome.Values = std::make_shared<const Json>(Json{{"devices", std::move(devices)}});
  outcome.Exchanges = log->Take();
  return ShowOnce(report, outcome);
}

}  // namespace ptzctl
