#include "gateway/onvif/Identity.h"

#include <openssl/evp.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <stdexcept>

namespace ptzgate {

std::string HostName() {
  std::array<char, 256> name{};
  if (gethostname(name.data(), name.size() - 1) != 0 || name[0] == '\0') return "ptzgate";
  return name.data();
}

std::vector<std::string> ScopesOf(const std::string& camera, const std::string& driver) {
  const std::string base = "onvif://www.onvif.org/";
  return {base + "type/video_encoder", base + "type/ptz", base + "Profile/Streaming",
          base + "hardware/" + driver, base + "name/" + camera};
}

Identity::Identity(const std::string& camera) {
  const auto text = "ptzgate " + HostName() + " " + camera;
  std::array<unsigned char, EVP_MAX_MD_SIZE> of{};
  unsigned size = 0;
  if (EVP_Digest(text.data(), text.size(), of.data(), &size, EVP_sha256(), nullptr) != 1)
    throw std::runtime_error("OpenSSL cannot work out a digest");
  std::array<char, 40> line{};
  // As UUIDs are that are made from names.
  std::snprintf(line.data(), line.size(),
                "%02x%02x%02x%02x-%02x%02x-%02x%02x-%02x%02x-%02x%02x%02x%02x%02x%02x", of[0], of[1], of[2],
                of[3], of[4], of[5], (of[6] & 0x0F) | 0x50, of[7], (of[8] & 0x3F) | 0x80, of[9], of[10],
                of[11], of[12], of[13], of[14], of[15]);
  UUID = line.data();
  std::snprintf(line.data(), line.size(), "%02x%02x%02x%02x%02x%02x", of[16], of[17], of[18], of[19], of[20],
                of[21]);
  Serial = line.data();
  std::snprintf(line.data(), line.size(), "%02x:%02x:%02x:%02x:%02x:%02x", (of[16] & 0xFC) | 0x02, of[17],
                of[18], of[19], of[20], of[21]);
  HardwareAddress = line.data();
}

}  // namespace ptzgate
