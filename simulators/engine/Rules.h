#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulators/engine/Motion.h"
#include "simulators/engine/Query.h"

namespace ptzsim {

/// The shape of a parameter's value.
enum class Takes {
  Switch,  ///< "on" or "off"
  Number,
  Whole,  ///< a number without decimals
  Pair,   ///< two numbers with a comma between them
  Text,   ///< anything but nothing
};

/// A value as the camera understood it, and what the rule has to say to it.
struct Argument {
  std::string Text;
  double First = 0;
  double Second = 0;
  std::string Reply;  ///< set by the rule; stays empty for the make's usual acknowledgement
  std::string Wrong;  ///< set by the rule when it finds that the value is none it knows
};

/// A row of a make's table of NAME=VALUE parameters; `State` is what the make keeps per head.
template <class State>
struct Rule {
  std::string_view Name;
  unsigned Needs;  ///< bits of what the head must be able to do
  void (*Do)(State&, Argument&);
  Takes Form = Takes::Text;
  Motion::Range Range{};
  bool Clamps = false;  ///< a number beyond the range is taken as its end; otherwise it is refused
};

/// The number that a text is. Throws std::invalid_argument where it is none or beyond the range.
double NumberOf(const std::string& text, Motion::Range range = Motion::Any);
/// The same without decimals and exponent, and 0 without a sign.
long long WholeOf(const std::string& text, Motion::Range range = Motion::Any);

/// Reads `text` into `argument`. Empty when it fits, else what is wrong with it ("is not a number").
std::string ReadArgument(Takes form, Motion::Range range, bool clamps, const std::string& text,
                         Argument& argument);

struct Outcome {
  std::string Reply{};   ///< all that the rules replied
  std::string Wrong{};   ///< why the request was refused; empty when it was accepted
  unsigned Lacking = 0;  ///< the bits that the head lacks, when that was the reason
};

/// Works off the parameters of a query in their order, after all of them have been found to be in order.
/// Parameters called as in `others` are the caller's.
template <class State, std::size_t Size>
Outcome Obey(const Rule<State> (&table)[Size], State& state, unsigned abilities, const Query& query,
             const std::vector<std::string_view>& others) {
  std::vector<std::pair<const Rule<State>*, Argument>> work;
  for (const auto& [name, value] : query.Pairs) {
    if (std::find(others.begin(), others.end(), name) != others.end()) continue;
    const auto rule = std::find_if(std::begin(table), std::end(table),
                                   [&, &n = name](const auto& r) { return r.Name == n; });
    if (rule == std::end(table)) return {.Wrong = "unknown parameter " + name};
    if (!(rule->Needs & abilities)) return {.Wrong = name + " is not supported", .Lacking = rule->Needs};
    Argument argument;
    const std::string wrong = ReadArgument(rule->Form, rule->Range, rule->Clamps, value, argument);
    if (!wrong.empty()) return {.Wrong = name + " " + wrong};
    work.emplace_back(rule, argument);
  }
  if (work.empty()) return {.Wrong = "no command"};
  Outcome outcome;
  for (auto& [rule, argument] : work) {
    rule->Do(state, argument);
    outcome.Reply += argument.Reply;
    if (!argument.Wrong.empty()) outcome.Wrong = argument.Wrong;
  }
  return outcome;
}

}  // namespace ptzsim
