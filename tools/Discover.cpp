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
#include <string>
#include <utility>
#include <vector>

#include <ptzd/Error.h>
#include "Announcements.h"
#include "Aside.h"
#include "ExchangeLog.h"
#include "Makes.h"
#include "Words.h"
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

constexpr std::size_t MostDescriptions = 64;
constexpr std::int32_t LargestDescription = 64 * 1024;
constexpr unsigned DescriptionsAtOnce = 4;
constexpr Milliseconds DescriptionTime = 1500ms;
constexpr Milliseconds Grace = 250ms;

constexpr Milliseconds DefaultTime = 5000ms;
constexpr char Group[] = "239.255.255.250";

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
  Announcements heard;
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
    while (!heard.IsFull()) {
      const auto left = std::chrono::ceil<Milliseconds>(until - SteadyClock::now());
      if (left <= 0ms) break;
      if (const auto datagram = multicast->Receive(left)) heard.Take(*datagram);
    }
  }
  outcome.Notes.insert(outcome.Notes.end(), problems.begin(), problems.end());
  const auto log = std::make_shared<ExchangeLog>(invocation.Trace);
  Describe(heard.Devices(), log, deadline);

  auto devices = Json::array();
  for (const auto& device : heard.Devices()) devices.push_back(JsonOf(device));
  outcome.Took = SteadyClock::now() - begin;
  if (heard.Dropped() > 0)
    outcome.Notes.push_back("more was sent than is listened to: " + std::to_string(heard.Dropped()) +
                            " packets were not looked at");
  if (heard.Malformed() > 0)
    outcome.Notes.push_back(std::to_string(heard.Malformed()) + " packets were not of either protocol");
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
