#pragma once

#include <cstdint>
#include <memory>
#include <string>

namespace ptzsim {

/// Announces a camera as cameras announce themselves: by WS-Discovery (Hello when it comes, Bye when it goes,
/// ProbeMatches for a Probe that asks for what it is), the dialect of ONVIF, and by UPnP's SSDP (NOTIFY, and
/// replies to M-SEARCH) with the description that its LOCATION leads to. It runs on a thread of its own from
/// its construction to its destruction. Whatever else comes to the two ports is ignored, as cameras do.
class Announcer {
 public:
  struct Identity {
    std::string Maker;    ///< "AXIS", as the camera says it
    std::string Model;    ///< "P5512"
    std::string Address;  ///< of its web server, "127.0.0.1:40123"
  };
  struct Options {
    std::string Interface = "127.0.0.1";  ///< the address of the network interface
    std::uint16_t DiscoveryPort = 3702, SearchPort = 1900;
  };

  /// Throws std::runtime_error where the interface or a port cannot be had.
  Announcer(Identity identity, const Options& options);
  ~Announcer();

 private:
  class Implementation;
  std::unique_ptr<Implementation> Implementation_;
};

}  // namespace ptzsim
