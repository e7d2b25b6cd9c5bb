#include "cameras/TOMLReader.h"

#include <cmath>
#include <limits>
#include <optional>

#include "cameras/NamedCamera.h"
#include "common/Nearest.h"
#include "common/Printable.h"
#include "platform/ConfigurationFolders.h"

namespace ptzd {

namespace {

const char* KindOf(const toml::node& node) {
  switch (node.type()) {
    case toml::node_type::string:
      return "a text";
    case toml::node_type::integer:
      return "a whole number";
    case toml::node_type::floating_point:
      return "a number with a point";
    case toml::node_type::boolean:
      return "true or false";
    case toml::node_type::array:
      return "a list";
    case toml::node_type::table:
      return "a table";
    default:
      return "a date or time";
  }
}

}  // namespace

toml::table ParseTOML(const std::string& text, const std::string& file) {
  try {
    return toml::parse(text, file);
  } catch (const toml::parse_error& error) {
    const auto at = error.source().begin;
    auto problem = std::string(error.description());
    // What the library quotes may be a part of a password.
    std::size_t begin = 0;
    for (toml::source_index line = 1; line < at.line && begin < text.size(); ++line)
      begin = text.find('\n', begin) + 1;
    const auto line = text.substr(begin, text.find('\n', begin) - begin);
    if (line.find("password") != std::string::npos) problem = "expected a key, \"=\" and a text in quotes";
    throw InputError(file + ":" + std::to_string(at.line) + ":" + std::to_string(at.column) + ": " +
                     Printable(problem));
  }
}

std::string TOMLReader::PlaceOf(const toml::source_region& at) const {
  return File_ + ":" + std::to_string(at.begin.line) + ":" + std::to_string(at.begin.column) + ": ";
}

void TOMLReader::Fail(const toml::source_region& at, const std::string& problem) const {
  throw InputError(PlaceOf(at) + problem);
}

void TOMLReader::FailUnknown(const toml::key& key, const std::string& what,
                             const std::vector<std::string>& known) const {
  Fail(key.source(), what + " \"" + Printable(key.str()) + "\" is not known" + DoYouMean(key.str(), known));
}

void TOMLReader::FailType(const toml::node& node, const std::string& what, const char* expected) const {
  Fail(node.source(), what + ": expected " + expected + ", not " + KindOf(node));
}

const toml::table& TOMLReader::Table(const toml::node& node, const std::string& what) const {
  if (const auto* table = node.as_table()) return *table;
  FailType(node, what, "a table");
}

std::string TOMLReader::TextAt(const toml::node& node, const std::string& what) const {
  const auto* text = node.as_string();
  if (text == nullptr) FailType(node, what, "a text in quotes");
  if (text->get().empty()) Fail(node.source(), what + ": the text is empty");
  if (Printable(text->get()) != text->get()) Fail(node.source(), what + ": the text has control characters");
  return text->get();
}

bool TOMLReader::BooleanAt(const toml::node& node, const std::string& what) const {
  if (const auto* value = node.as_boolean()) return value->get();
  FailType(node, what, "true or false");
}

float TOMLReader::NumberAt(const toml::node& node, const std::string& what) const {
  const auto value = node.is_number() ? node.value<double>() : std::nullopt;
  if (!value) FailType(node, what, "a number");
  if (!(std::abs(*value) <= std::numeric_limits<float>::max()))
    Fail(node.source(), what + ": the number is too large");
  return static_cast<float>(*value);
}

std::int32_t TOMLReader::WholeNumberAt(const toml::node& node, const std::string& what) const {
  const auto* value = node.as_integer();
  if (value == nullptr) FailType(node, what, "a whole number");
  using Limits = std::numeric_limits<std::int32_t>;
  if (value->get() < Limits::min() || value->get() > Limits::max())
    Fail(node.source(), what + ": the number is too large");
  return static_cast<std::int32_t>(value->get());
}

std::chrono::milliseconds TOMLReader::TimeAt(const toml::node& node, const std::string& what) const {
  if (node.is_number() && *node.value<double>() == 0) return {};
  return Placed(node, "", [&] {
    return ReadDuration(what, node.is_number() ? std::to_string(*node.value<double>()) : TextAt(node, what));
  });
}

std::string TOMLReader::PathAt(const toml::node& node, const std::string& what) const {
  const auto text = TextAt(node, what);
  if (text.starts_with("~/")) return TextOf(HomeFolder() / PathOf(text.substr(2)));
  return TextOf(PathOf(File()).parent_path() / PathOf(text));
}

PasswordSource TOMLReader::PasswordAt(const std::string& key, const toml::node& node,
                                      const std::string& what) const {
  using Kind = PasswordSource::Kind;
  if (key == "password_env") return {Kind::Environment, TextAt(node, what)};
  if (key == "password_file") return {Kind::File, PathAt(node, what)};
  if (key == "password") {
    if (!node.is_string()) FailType(node, what, "a text in quotes");
    if (!Openness_.empty()) Fail(node.source(), what + ": no password may stand in this file: " + Openness_);
    return {Kind::Here, node.as_string()->get()};
  }
  const bool is = BooleanAt(node, what);
  if (!is) Fail(node.source(), what + ": expected true, or no such line");
  return {key == "password_keyring" ? Kind::Keyring : Kind::Asked, {}};
}

}  // namespace ptzd
