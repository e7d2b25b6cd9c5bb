#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulators/engine/Faults.h"

namespace ptzsim {

/// One message on a line that carries bare bytes: a raw TCP connection or a serial line.
struct Message {
  std::string Raw;              ///< its bytes, exactly as received
  std::string Meaning;          ///< in words, for the log and for faults limited to a target ("1: right 63")
  std::string Violation{};      ///< why it should never have been sent; empty when it was in order
  std::string Reply{};          ///< the bytes to answer with; most devices on such lines never do
  std::vector<Fault> Faults{};  ///< of this reply, besides those that are switched on
};

/// Takes the next message off the front of `received`, acts on it and tells what it was; nothing as long as
/// more bytes are needed, and then it leaves `received` alone. What is no message is taken off too, with its
/// violation. Called on the line's thread, again and again until it returns nothing.
using MessageHandler = std::function<std::optional<Message>(std::string& received)>;

/// "FF 01 00", as protocol tables print bytes.
std::string Hex(const std::string& bytes);

/// The bytes that digits in either case spell, two each. Throws std::invalid_argument for any others.
std::vector<unsigned char> BytesOf(std::string_view digits);

}  // namespace ptzsim
