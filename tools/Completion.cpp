#include "Completion.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>

#include <ptzd/DriverData.h>
#include <ptzd/PTZDrivers.h>

#include "Connection.h"
#include "Words.h"
#include "cameras/CameraList.h"
#include "common/Numbers.h"

namespace ptzctl {

namespace {

using Candidate = Completion::Candidate;

/// The words of a line that are done with, and the one that is being typed, whose quotation mark may be open.
std::pair<std::vector<std::string>, std::string> Typed(const std::string& line) {
  const auto blank = line.find_last_of(" \t");
  const bool isOpen = std::ranges::count(line, '"') % 2 != 0;
  const auto begin = isOpen ? line.rfind('"') : blank == std::string::npos ? 0 : blank + 1;
  return {SplitWords(line.substr(0, begin)), line.substr(begin)};
}

bool IsOption(std::string_view word) {
  return word.starts_with('-') &&
         (word.size() < 2 || std::string_view("0123456789.").find(word[1]) == std::string_view::npos);
}

/// What a help text begins with, for a list.
std::string InShort(std::string help) {
  for (const char* end : {", for example", "; ", " (", ". "})
    help.erase(std::min(help.find(end), help.size()));
  return help;
}

/// What the words before the last one have said.
class Reading {
 public:
  Reading(const CLI::App& app, const Presets& presets) : Apps_{&app}, Presets_(presets) {}

  void Take(const std::string& word) {
    if (const auto* option = std::exchange(Wanting_, nullptr)) return Note(*option, word);
    if (IsOption(word)) return TakeOption(word);
    if (word.starts_with('@')) Camera_ = word.substr(1);
    if (const auto* command = Find(word)) {
      Apps_.push_back(command);
      Positional_ = 0;
    } else if (!word.starts_with('@')) {
      ++Positional_;
    }
  }

  std::vector<Candidate> Words(const std::string& begun, bool& isFile) const {
    if (Wanting_ != nullptr) return Values(*Wanting_, "", isFile);
    if (const auto sign = begun.find('='); IsOption(begun) && sign != std::string::npos) {
      const auto* option = FindOption(begun.substr(0, sign));
      return option == nullptr ? std::vector<Candidate>{}
                               : Values(*option, begun.substr(0, sign + 1), isFile);
    }
    if (IsOption(begun)) return Options();
    if (begun.starts_with('@')) return Cameras("@");
    if (auto commands = Commands(); !commands.empty()) return commands;
    const auto* positional = Positional();
    return positional == nullptr ? std::vector<Candidate>{} : Values(*positional, "", isFile);
  }

 private:
  static bool IsOffered(const CLI::App* command) { return !command->get_group().empty(); }

  std::vector<Candidate> Commands() const {
    std::vector<Candidate> found;
    for (const auto* command : Apps_.back()->get_subcommands(IsOffered))
      found.push_back({command->get_name(), InShort(command->get_description())});
    return found;
  }

  const CLI::App* Find(const std::string& word) const {
    const auto commands =
        Apps_.back()->get_subcommands([&](const CLI::App* command) { return command->check_name(word); });
    return commands.empty() ? nullptr : commands.front();
  }

  const CLI::Option* FindOption(const std::string& name) const {
    for (auto app = Apps_.rbegin(); app != Apps_.rend(); ++app)
      if (const auto* option = (*app)->get_option_no_throw(name)) return option;
    return nullptr;
  }

  /// Those of the command and of all above it, since they may stand behind it, too.
  std::vector<Candidate> Options() const {
    std::vector<Candidate> found;
    for (auto app = Apps_.rbegin(); app != Apps_.rend(); ++app)
      for (const auto* option : (*app)->get_options())
        for (const auto& name : option->get_lnames())
          if (std::ranges::find(found, "--" + name, &Candidate::Word) == found.end())
            found.push_back({"--" + name, InShort(option->get_description())});
    return found;
  }

  const CLI::Option* Positional() const {
    auto left = Positional_;
    for (const auto* option : Apps_.back()->get_options()) {
      if (!option->get_positional()) continue;
      if (left == 0 || option->get_items_expected_max() > 1) return option;
      --left;
    }
    return nullptr;
  }

  void TakeOption(const std::string& word) {
    const auto sign = word.find('=');
    const auto* option = FindOption(word.substr(0, sign));
    if (option == nullptr) return;
    if (sign != std::string::npos)
      Note(*option, word.substr(sign + 1));
    else if (option->get_items_expected_min() > 0)
      Wanting_ = option;
  }

  void Note(const CLI::Option& option, const std::string& word) {
    if (option.get_type_name() == "DRIVER") Driver_ = word;
    if (option.get_type_name() == "CAMERA") Camera_ = word;
    if (option.check_name("--cameras")) CameraFile_ = word;
  }

  std::vector<Candidate> Values(const CLI::Option& option, const std::string& before, bool& isFile) const {
    const auto kind = option.get_type_name();
    std::vector<Candidate> found;
    if (kind == "DRIVER") {
      const ptzd::PTZDrivers catalogue;
      for (const auto& entry : catalogue.NewEnum())
        if (ptzd::FindDriverClass(entry->Class()) != nullptr)
          found.push_back({before + entry->Class().substr(entry->Class().find('.') + 1), entry->Name()});
    } else if (kind == "CAMERA") {
      found = Cameras(before);
    } else if (kind == "PRESET") {
      for (const auto& [name, number] : Camera_.empty() ? Presets_ : Camera().Presets)
        found.push_back({before + name, std::to_string(number)});
    } else if (kind == "KEY=VALUE") {
      found = OptionValues(before);
    } else if (kind.find('|') != std::string::npos) {
      for (std::size_t begin = 0; begin <= kind.size();) {
        const auto end = std::min(kind.find('|', begin), kind.size());
        found.push_back({before + kind.substr(begin, end - begin), ""});
        begin = end + 1;
      }
    }
    isFile = kind == "FILE" || kind == "DEVICE" || kind == "FOLDER";
    return found;
  }

  std::vector<Candidate> Cameras(const std::string& before) const {
    std::vector<Candidate> found;
    const ptzd::CameraList cameras(CameraFile_);
    for (const auto& camera : cameras.All())
      found.push_back({before + camera.Name, camera.Settings.Driver + " " +
                                                 (camera.Address.empty() ? camera.Line : camera.Address)});
    return found;
  }

  ptzd::CameraSettings Camera() const { return ptzd::CameraList(CameraFile_).Find(Camera_).Settings; }

  /// `Key=`, and the whole of it where there is a choice.
  std::vector<Candidate> OptionValues(const std::string& before) const {
    std::vector<Candidate> found;
    if (Driver_.empty() && Camera_.empty()) return found;
    const auto& driver = FindDriver(Camera_.empty() ? Driver_ : Camera().Driver);
    auto options = DescribedOptions(driver);
    std::ranges::move(CommonOptions(driver), std::back_inserter(options));
    for (const auto& option : options) {
      const auto key = before + option.Name() + "=";
      const auto type = option.OType();
      if (type == ptzd::OptionChoiceIndex || type == ptzd::OptionChoiceText) {
        for (const auto& value : option.Values())
          found.push_back({key + ptzd::ToText(value), option.Description()});
      } else if (type == ptzd::OptionBoolean) {
        for (const char* value : {"true", "false"}) found.push_back({key + value, option.Description()});
      } else {
        found.push_back({key, option.Description()});
      }
    }
    return found;
  }

  std::vector<const CLI::App*> Apps_;
  const Presets& Presets_;
  const CLI::Option* Wanting_ = nullptr;  ///< the option whose value comes next
  std::size_t Positional_ = 0;            ///< how many of the innermost command's words were there
  std::string Driver_, Camera_, CameraFile_;
};

std::string Quoted(const std::string& word) {
  return word.find(' ') == std::string::npos ? word : '"' + word + '"';
}

}  // namespace

Completion Complete(const CLI::App& app, const std::string& line, const Presets& presets) {
  Completion completion;
  try {
    auto [words, begun] = Typed(line);
    Reading reading(app, presets);
    for (const auto& word : words) reading.Take(word);
    for (auto& candidate : reading.Words(begun, completion.IsFile)) {
      candidate.Word = Quoted(candidate.Word);
      if (candidate.Word.starts_with(begun)) completion.Candidates.push_back(std::move(candidate));
    }
    completion.Begun = std::move(begun);
  } catch (const UsageError&) {
    // Nothing completes a line that is wrong already.
  }
  return completion;
}

const char* CompletionScript(const std::string& shell) {
  if (shell == "bash")
    return R"(# Completes ptzctl's commands, options, drivers and cameras in bash.
_ptzctl() {
  local line=${COMP_LINE:0:COMP_POINT} answer word cut
  # bash replaces only what stands behind the last of its word breaks.
  cut=${line##*[[:space:]]}
  cut=${cut%"${cut##*["$COMP_WORDBREAKS"]}"}
  COMPREPLY=()
  while IFS= read -r answer; do
    if [[ $answer == :file ]]; then
      compopt -o default
      continue
    fi
    word=${answer%%$'\t'*}
    [[ $word == *= ]] && compopt -o nospace
    COMPREPLY+=("${word#"$cut"}")
  done < <("$1" complete -- "${line#*[[:space:]]}" 2>/dev/null)
}
complete -F _ptzctl ptzctl
)";
  return R"(#compdef ptzctl
# Completes ptzctl's commands, options, drivers and cameras in zsh.
_ptzctl() {
  local line="${words[2,CURRENT-1]} $PREFIX" answer word about
  [[ $CURRENT -eq 2 ]] && line=$PREFIX
  local -a plain open
  while IFS= read -r answer; do
    if [[ $answer == :file ]]; then
      _files
      continue
    fi
    word=${answer%%$'\t'*} about=${answer#*$'\t'}
    word=${word//:/\\:}
    [[ $word == *= ]] && open+=("$word:$about") || plain+=("$word:$about")
  done < <(${words[1]} complete -- "$line" 2>/dev/null)
  (( $#plain )) && _describe 'ptzctl' plain
  (( $#open )) && _describe 'option' open -S ''
}
if [[ $funcstack[1] == _ptzctl ]]; then _ptzctl "$@"; else compdef _ptzctl ptzctl; fi
)";
}

}  // namespace ptzctl
