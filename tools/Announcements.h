#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Multicast.h"
#include "platform/XmlDocument.h"

namespace ptzctl {

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

/// What was heard by WS-Discovery and by UPnP's SSDP. Anybody on the network may send anything, as much as he
/// likes: what is kept of it is bounded.
class Announcements {
 public:
  void Take(const ptzd::Datagram& datagram);

  bool IsFull() const;
  std::vector<Device>& Devices() { return Devices_; }
  std::size_t Dropped() const { return Dropped_; }
  std::size_t Malformed() const { return Malformed_; }

 private:
  void TakeSoap(const ptzd::Datagram& datagram);
  void TakeSearchReply(const ptzd::Datagram& datagram);
  Device* DeviceFor(const ptzd::Datagram& datagram, const std::string& identifier, const char* foundBy);

  std::map<std::pair<std::string, std::string>, std::size_t> Index_;
  std::map<std::string, std::size_t> PacketsOf_;
  std::vector<Device> Devices_;
  std::size_t Packets_ = 0, Dropped_ = 0, Malformed_ = 0;
};

/// The text of the first element inside with that name, whatever its prefix, which every sender chooses as he
/// likes; empty where there is none.
std::string TextIn(const ptzd::XmlNode& node, std::string_view name);
/// The host and port of a URL, where its host is the one that is meant.
std::string PlaceAt(const std::string& host, const std::string& url);
/// Keeps what is told where nothing was known, as much of it as is kept of any text.
void Learn(std::string& known, std::string_view told);

}  // namespace ptzctl
