#pragma once

#include <stdexcept>
#include <string>

namespace ptzgate {

/// What the gateway does not even pass on to a camera; the text says why, for whoever wished it.
class Refusal : public std::runtime_error {
 public:
  enum class Why {
    Unknown,      ///< there is no such camera, preset, tour or option
    Invalid,      ///< a number, a word or a text that cannot be what it is for
    NotAllowed,   ///< the user's role does not go that far
    Held,         ///< somebody else holds the camera
    Unsupported,  ///< neither this camera nor its driver does that
    Exhausted,    ///< there are as many of them as there may be
    Ending,       ///< the gateway is ending
  };

  Refusal(Why why, const std::string& text) : std::runtime_error(text), Why_(why) {}
  Why Reason() const { return Why_; }

 private:
  Why Why_;
};

}  // namespace ptzgate
