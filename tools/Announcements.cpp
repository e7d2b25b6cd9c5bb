#include "Announcements.h"

#include <algorithm>
#include <sstream>

#include "common/ASCII.h"
#include "transport/HTTP.h"

namespace ptzctl {

using namespace ptzd;

namespace {

constexpr std::size_t MostPackets = 4096, MostPacketsOfOne = 256;
constexpr std::size_t MostDevices = 256;
constexpr std::size_t LongestText = 256;  // bytes kept of what a device says of itself
constexpr std::size_t MostTexts = 32;     // likewise, of scopes and addresses

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

/// What of an identifier is the same in both protocols.
std::string Key(const std::string& identifier) {
  const auto begin = identifier.find("uuid:");
  if (begin == std::string::npos) return identifier;
  const auto end = identifier.find("::", begin);
  std::string key = identifier.substr(begin, end == std::string::npos ? end : end - begin);
  std::ranges::transform(key, key.begin(), LowerASCII);
  return key;
}

}  // namespace

std::string TextIn(const XmlNode& node, std::string_view name) {
  std::vector<const XmlNode*> found;
  Find(node, name, found);
  return found.empty() ? std::string() : found.front()->Text();
}

std::string PlaceAt(const std::string& host, const std::string& url) {
  const auto parts = CrackUrl(url);
  if (parts.HostName != host || parts.Port == 0) return {};
  return host + (parts.Port == 80 ? "" : ":" + std::to_string(parts.Port));
}

void Learn(std::string& known, std::string_view told) {
  if (known.empty()) known = Cut(told);
}

void Announcements::Take(const Datagram& datagram) {
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

bool Announcements::IsFull() const { return Packets_ >= 2 * MostPackets; }

void Announcements::TakeSoap(const Datagram& datagram) {
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

void Announcements::TakeSearchReply(const Datagram& datagram) {
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
Device* Announcements::DeviceFor(const Datagram& datagram, const std::string& identifier,
                                 const char* foundBy) {
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

}  // namespace ptzctl
