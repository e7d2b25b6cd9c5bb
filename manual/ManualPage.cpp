#include "manual/ManualPage.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <map>
#include <sstream>
#include <utility>
#include <vector>

namespace manual {

namespace {

std::string Upper(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::toupper(c); });
  return text;
}

/// Text in a line of roff, where a hyphen is one to be copied and nothing is a request.
std::string Plain(const std::string& text) {
  std::string plain;
  for (const char c : text) {
    if (c == '\\')
      plain += "\\(rs";
    else if (c == '-')
      plain += "\\-";
    else
      plain += c;
  }
  return plain.starts_with('.') || plain.starts_with('\'') ? "\\&" + plain : plain;
}

/// Each line by itself; an empty one begins a paragraph.
std::string Lines(const std::string& text) {
  std::string lines;
  std::istringstream input(text);
  for (std::string line; std::getline(input, line);) lines += (line.empty() ? ".PP" : Plain(line)) + "\n";
  return lines;
}

std::string Bold(const std::string& text) { return "\\fB" + Plain(text) + "\\fR"; }
std::string Italic(const std::string& text) { return "\\fI" + Plain(text) + "\\fR"; }

bool IsShown(const CLI::Option* option) { return !option->get_group().empty(); }

std::vector<const CLI::App*> CommandsOf(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App* command) { return !command->get_group().empty(); });
}

std::vector<const CLI::Option*> OptionsOf(const CLI::App& app, bool positional) {
  return app.get_options([positional](const CLI::Option* option) {
    return IsShown(option) && option->get_positional() == positional;
  });
}

/// What an option takes, "TEXT", and behind a colon what is asked of it, "{both,d,p}".
std::pair<std::string, std::string> TypeOf(const CLI::Option& option) {
  const auto type = option.get_items_expected_max() == 0 ? "" : option.get_type_name();
  const auto colon = std::min(type.find(':'), type.size());
  return {type.substr(0, colon), type.substr(std::min(colon + 1, type.size()))};
}

/// "one of both, d, p"
std::string Demand(const std::string& demand) {
  if (demand.size() < 2 || demand.front() != '{') return demand;
  std::string words;
  for (const char c : demand.substr(1, demand.size() - 2)) words += c == ',' ? ", " : std::string(1, c);
  return "one of " + words;
}

/// "-o KEY=VALUE, --option KEY=VALUE", or the name of a word.
std::string Signature(const CLI::Option& option) {
  if (option.get_positional()) return Italic(option.get_name(true));
  const auto type = TypeOf(option).first;
  std::string names;
  const auto add = [&](const std::string& name) {
    names += (names.empty() ? "" : ", ") + Bold(name) + (type.empty() ? "" : " " + Italic(type));
  };
  for (const auto& name : option.get_snames()) add("-" + name);
  for (const auto& name : option.get_lnames()) add("--" + name);
  return names;
}

std::string Told(const CLI::Option& option) {
  const auto usual = option.get_default_str();
  const auto demand = Demand(TypeOf(option).second);
  return ".TP\n" + Signature(option) + "\n" + Lines(option.get_description()) +
         (demand.empty() ? "" : "(" + Plain(demand) + ")\n") +
         (usual.empty() || option.get_items_expected_min() == 0 ? ""
                                                                : "(" + Plain(usual) + " when not given)\n");
}

using Key = std::pair<std::string, std::string>;
Key KeyOf(const CLI::Option& option) { return {Signature(option), option.get_description()}; }

/// How many commands have an option. What several have is told once.
using Counts = std::map<Key, int>;

void Count(const CLI::App& app, Counts& counts) {
  for (const auto* command : CommandsOf(app)) {
    for (const auto* option : OptionsOf(*command, false)) ++counts[KeyOf(*option)];
    Count(*command, counts);
  }
}

bool IsHelp(const CLI::Option* option) { return option->check_lname("help"); }

bool IsCommon(const CLI::Option& option, const Counts& counts) { return counts.at(KeyOf(option)) > 2; }

/// "move direction [angle] [--wait [TIME]] [--device2]".
std::string Synopsis(const CLI::App& command, const std::string& name) {
  auto synopsis = Bold(name);
  const auto add = [&](const CLI::Option* option, const std::string& text) {
    synopsis += option->get_required() ? " " + text : " [" + text + "]";
    if (option->get_items_expected_max() >= CLI::detail::expected_max_vector_size) synopsis += "...";
  };
  for (const auto* option : OptionsOf(command, true)) add(option, Signature(*option));
  for (const auto* option : OptionsOf(command, false))
    if (!IsHelp(option)) add(option, Signature(*option));
  return synopsis;
}

void TellCommands(const CLI::App& app, const std::string& prefix, const Counts& counts, std::string& page) {
  for (const auto* command : CommandsOf(app)) {
    const auto name = prefix + command->get_name();
    if (!CommandsOf(*command).empty()) {
      TellCommands(*command, name + " ", counts, page);
      continue;
    }
    page +=
        ".SS " + Bold(name) + "\n" + Synopsis(*command, name) + "\n.PP\n" + Lines(command->get_description());
    for (const auto& alias : command->get_aliases()) page += ".PP\nAlso called " + Bold(alias) + ".\n";
    for (const auto* option : OptionsOf(*command, true)) page += Told(*option);
    for (const auto* option : OptionsOf(*command, false))
      if (!IsHelp(option) && !IsCommon(*option, counts)) page += Told(*option);
  }
}

/// What several commands have, in the order of their first one.
void TellCommon(const CLI::App& app, Counts& counts, std::string& options) {
  for (const auto* command : CommandsOf(app)) {
    for (const auto* option : OptionsOf(*command, false)) {
      auto& count = counts.at(KeyOf(*option));
      if (count > 2 && !IsHelp(option)) options += Told(*option);
      count = 0;
    }
    TellCommon(*command, counts, options);
  }
}

/// What stands below the help. A line that ends with a colon is the heading of indented ones, which are
/// entries where a gap parts a name from what it is, with their text perhaps going on below, and else stay as
/// they are.
class Footer {
 public:
  explicit Footer(const std::string& text) {
    std::istringstream input(text);
    for (std::string line; std::getline(input, line);) Take(line);
    Begin(Part::None, "");
  }

  const std::string& Page() const { return Page_; }

 private:
  enum class Part { None, Paragraph, Entry, Verbatim };

  void Begin(Part part, const char* request) {
    if (Part_ == Part::Verbatim && part != Part::Verbatim) Page_ += ".fi\n";
    if (part != Part_ || part == Part::Entry) Page_ += request;
    Part_ = part;
  }
  void Add(const std::string& text) { Page_ += Plain(text) + "\n"; }

  void Take(const std::string& line) {
    const auto indentation = std::min(line.find_first_not_of(' '), line.size());
    const auto text = line.substr(indentation);
    // The longest name has just a blank behind it.
    const auto gap = text.find(Part_ == Part::Entry && indentation == Indentation_ ? " " : "  ");
    if (text.empty()) {
      Begin(Part::None, "");
    } else if (indentation > 0 && gap != std::string::npos) {
      Begin(Part::Entry, ".TP\n");
      Indentation_ = indentation;
      Add(text.substr(0, gap));
      Add(text.substr(text.find_first_not_of(' ', gap)));
    } else if (Part_ == Part::Entry && indentation > 0) {
      Add(text);
    } else if (indentation > 0) {
      Begin(Part::Verbatim, ".PP\n.nf\n");
      Add(line);
    } else if (Part_ == Part::None && text.find(':') == text.size() - 1) {
      Page_ += ".SH " + Plain(Upper(text.substr(0, text.size() - 1))) + "\n";
    } else {
      Begin(Part::Paragraph, ".PP\n");
      Add(text);
    }
  }

  std::string Page_;
  Part Part_ = Part::None;
  std::size_t Indentation_ = 0;  ///< of the last entry
};

}  // namespace

std::string Page(const CLI::App& program, const std::string& version, const std::string& seeAlso) {
  const auto& name = program.get_name();
  const auto about = program.get_description();
  auto summary = about.substr(0, about.find_first_of(":."));
  summary.front() = static_cast<char>(std::tolower(static_cast<unsigned char>(summary.front())));

  auto page = ".TH " + Upper(name) + " 1 \"\" \"ptzd " + version + "\" \"User Commands\"\n";
  page += ".SH NAME\n" + Plain(name) + " \\- " + Plain(summary) + "\n";
  const bool hasToCommand = program.get_require_subcommand_min() > 0;
  page += ".SH SYNOPSIS\n" + Bold(name) + " [" + Italic("OPTIONS") + "] " + (hasToCommand ? "" : "[") +
          Italic("COMMAND") + " ..." + (hasToCommand ? "" : "]") + "\n";
  page += ".SH DESCRIPTION\n" + Lines(about) + ".SH OPTIONS\n";
  for (const auto* option : OptionsOf(program, false)) page += Told(*option);

  Counts counts;
  Count(program, counts);
  std::string commands;
  TellCommands(program, "", counts, commands);
  page += ".SH COMMANDS\n" + commands;
  std::string common;
  TellCommon(program, counts, common);
  if (!common.empty()) page += ".SH OPTIONS OF SEVERAL COMMANDS\n" + common;

  page += Footer(program.get_footer()).Page();
  return page + ".SH SEE ALSO\n" + Plain(seeAlso) + "\n";
}

}  // namespace manual
