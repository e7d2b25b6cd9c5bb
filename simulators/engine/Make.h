#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "simulators/engine/Faults.h"
#include "simulators/engine/Simulator.h"

namespace ptzsim {

/// The command of a make, to which it adds its own options. What they name is filled in when the command line
/// is read, and must live until then.
class Shell {
 public:
  using Take = std::function<void(const std::string&)>;

  virtual ~Shell() = default;
  /// `into` becomes `value` when it is given.
  virtual void Flag(const char* name, bool& into, bool value, const std::string& about) = 0;
  virtual void Number(const char* name, int& into, int least, int most, const std::string& about) = 0;
  virtual void Text(const char* name, std::string& into, const std::string& about) = 0;
  /// One of a few words, or one of any.
  virtual void Word(const char* name, const std::vector<std::string>& words, Take take,
                    const std::string& about) = 0;
  /// The same several times, with commas between them.
  virtual void Words(const char* name, const std::vector<std::string>& words, Take take,
                     const std::string& about) = 0;

  /// A word for each value.
  template <class Value>
  void Choice(const char* name, Value& into, const std::map<std::string, Value>& values,
              const std::string& about) {
    std::vector<std::string> words;
    for (const auto& value : values) words.push_back(value.first);
    Word(
        name, words, [values, &into](const std::string& word) { into = values.at(word); }, about);
  }
};

/// Makes a camera as it was asked for. Throws what the camera's constructor throws.
using Builder = std::function<std::unique_ptr<Simulator>(std::uint16_t port)>;

/// A make at the shell. Each stands with its camera, as the static member `AtShell`.
struct Make {
  const char* Name;
  const char* About;
  /// Adds the make's own options and answers what builds a camera once they have been read.
  Builder (*Declare)(Shell&);
  Line On = Line::HTTP;
  const char* Maker = Name;  ///< as cameras of it announce themselves
};

/// What builds a camera from options that a command fills in.
template <class Camera>
Builder From(std::shared_ptr<typename Camera::Options> options) {
  return [options](std::uint16_t port) {
    if constexpr (requires { options->Port; }) options->Port = port;
    return std::make_unique<Camera>(*options);
  };
}

/// A make that offers no choice.
template <class Camera>
Builder Plainly(Shell&) {
  return From<Camera>(std::make_shared<typename Camera::Options>());
}

/// The options of a make that has `Models`, with the model to choose.
template <class Camera>
std::shared_ptr<typename Camera::Options> WithModel(Shell& shell) {
  auto options = std::make_shared<typename Camera::Options>();
  shell.Word(
      "--model", Camera::Models(), [options](const std::string& model) { options->Model = model; },
      "Kind of camera; " + options->Model + " when not given");
  return options;
}

/// A make whose only choice is its model.
template <class Camera>
Builder ByModel(Shell& shell) {
  return From<Camera>(WithModel<Camera>(shell));
}

}  // namespace ptzsim
