// What stands in files that people and other packages write, and what devices on the network say of
// themselves.

#include <fstream>
#include <sstream>

#include "Scratch.h"
#include "Target.h"
#include "cameras/CameraFile.h"
#include "cameras/InputWords.h"
#include "cameras/TourFile.h"
#include "platform/ConfigurationFolders.h"
#include "platform/DriverAnnouncements.h"
#include "tools/Announcements.h"

namespace ptzd::fuzz {

namespace {

std::string TextOf(const std::string& file) {
  std::ostringstream text;
  text << std::ifstream(file, std::ios::binary).rdbuf();
  return text.str();
}

}  // namespace

void Cameras(std::string_view input) {
  const std::string text(input);
  std::vector<NamedCamera> cameras;
  try {
    cameras = ReadCameras(text, "cameras.toml");
  } catch (const InputError&) {
    return;
  }
  if (cameras.empty()) return;
  // What can be read can be changed, and then read again.
  const auto file = Scratch::Write("cameras.toml", input);
  const auto name = cameras.front().Name;
  try {
    RemoveCamera(file, name);
  } catch (const InputError&) {
    Demand(TextOf(file) == text, "what was refused has changed nothing");
    return;
  }
  Demand(ReadCameraFile(file, true).size() == cameras.size() - 1, "one camera is gone");
  try {
    StoreCamera(file, cameras.front(), false);
  } catch (const InputError&) {
    return;
  }
  Demand(ReadCameraFile(file, true).size() == cameras.size(), "and there again");
}

void Tours(std::string_view input) {
  try {
    Demand(!ReadTour(Scratch::Write("tour.toml", input)).Stops.empty(), "a tour has stops");
  } catch (const InputError&) {
  }
}

/// The first part is a file of announced drivers, the others are datagrams that come to `ptzctl discover`.
void Announcements(std::string_view input) {
  const auto parts = PartsOf(input);
  std::filesystem::create_directories(UserConfigurationFolder());
  std::ofstream(UserConfigurationFolder() / "drivers", std::ios::binary) << parts.front();
  for (const auto& driver : SystemDriverAnnouncements().User())
    Demand(!driver.ProgID.empty() && driver.ProgID.find('\n') == std::string::npos, "a ProgID is a word");

  ptzctl::Announcements heard;
  for (std::size_t i = 1; i < parts.size(); ++i)
    heard.Take({.From = i % 3 == 0 ? "10.0.0.6" : "10.0.0.5",
                .Bytes = std::string(parts[i]),
                .Interface = "10.0.0.1"});
  for (const auto& device : heard.Devices()) {
    Demand(device.Scopes.size() <= 32 && device.Addresses.size() <= 32, "what is kept is bounded");
    Demand(device.WebAddress.empty() || device.WebAddress.starts_with(device.From),
           "a device is where it says it is");
  }
}

}  // namespace ptzd::fuzz
