// What somebody types: the lines of `ptzctl run` and `shell`, their completion, and a whole command line.

#include "tools/Words.h"
#include "Target.h"
#include "tools/CommandLine.h"

namespace ptzd::fuzz {

namespace {

template <typename Call>
void Try(const Call& call) {
  try {
    call();
  } catch (const ptzctl::UsageError&) {
  } catch (const ptzctl::HelpRequest&) {
  }
}

}  // namespace

void Words(std::string_view input) {
  const std::string line(input);
  Try([&] {
    if (const auto operation = ptzctl::ParseLine(line)) Demand(!operation->Name.empty(), "it has a name");
  });
  // Whatever that was, the next line is understood.
  Demand(ptzctl::ParseLine("preset goto door")->PresetName == "door", "lines do not get in each other's way");
  Try([&] {
    for (const auto& candidate : ptzctl::CompleteLine(line, {{"gate", 3}, {"north yard", 4}}).Candidates)
      Demand(!candidate.Word.empty(), "a candidate is a word");
  });
}

void Arguments(std::string_view input) {
  Try([&] {
    auto words = ptzctl::SplitWords(std::string(input));
    words.insert(words.begin(), "ptzctl");
    std::vector<char*> arguments;
    for (auto& word : words) arguments.push_back(word.data());
    ptzctl::ParseCommandLine(static_cast<int>(arguments.size()), arguments.data());
  });
}

}  // namespace ptzd::fuzz
