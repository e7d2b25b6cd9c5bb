#include "platform/Keyring.h"

#include <stdexcept>

namespace ptzd {

namespace {

[[noreturn]] void Refuse() { throw std::runtime_error("there is no keyring on this system"); }

}  // namespace

std::optional<std::string> ReadFromKeyring(const std::string&, const std::string&) { Refuse(); }
void StoreInKeyring(const std::string&, const std::string&, const std::string&) { Refuse(); }
void RemoveFromKeyring(const std::string&, const std::string&) { Refuse(); }

}  // namespace ptzd
