#include "cameras/CameraFile.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <string_view>
#include <system_error>

// Exceptions are how it tells of errors; nothing here writes TOML with it.
#define TOML_ENABLE_FORMATTERS 0
#include <ptzd/PropertyBag.h>
#include "cameras/ConnectionOptions.h"
#include "cameras/InputWords.h"
#include "cameras/TOMLReader.h"
#include "common/Nearest.h"
#include "common/Numbers.h"
#include "common/Printable.h"
#include "platform/ConfigurationFolders.h"
#include "platform/PrivateFile.h"

namespace ptzd {

namespace {

constexpr std::string_view Top = "camera";

constexpr bool IsDigit(char c) { return c >= '0' && c <= '9'; }
constexpr bool IsLetter(char c) { return LowerASCII(c) >= 'a' && LowerASCII(c) <= 'z'; }

/// Reads one file.
class Reader : private TOMLReader {
 public:
  using TOMLReader::TOMLReader;

  std::vector<NamedCamera> Cameras(const toml::table& document) const;

 private:
  CameraLimits LimitsAt(const toml::node& node, const std::string& what) const;
  std::map<std::string, std::int32_t> PresetsAt(const toml::node& node, const std::string& what) const;
  Bytes OptionsAt(const toml::node& node, const DriverClass& driver, const std::string& what) const;
  Variant OptionAt(const toml::node& node, const PTZOption& option, const std::string& what) const;
  NamedCamera CameraAt(const std::string& name, const toml::table& table) const;
};

CameraLimits Reader::LimitsAt(const toml::node& node, const std::string& what) const {
  const auto* list = node.as_array();
  if (list == nullptr || list->size() != 2) FailType(node, what, "a list of two numbers such as [-90, 90]");
  const CameraLimits limits{NumberAt(*list->get(0), what), NumberAt(*list->get(1), what)};
  if (!(limits.Least < limits.Greatest))
    Fail(node.source(), what + ": expected the lesser number first, not " + Text(limits.Least) + " before " +
                            Text(limits.Greatest));
  return limits;
}

std::map<std::string, std::int32_t> Reader::PresetsAt(const toml::node& node, const std::string& what) const {
  std::map<std::string, std::int32_t> presets;
  for (const auto& [key, value] : Table(node, what)) {
    const std::string name(key.str());
    if (name.empty() || Printable(name) != name || IsDigit(name[0]) || name.find_first_of("+-.") == 0)
      Fail(key.source(),
           what + ": expected a name that begins as no number does, not \"" + Printable(name) + "\"");
    const auto number = WholeNumberAt(value, what + " " + name);
    if (number < 0) Fail(value.source(), what + " " + name + ": presets are counted from 0");
    presets[name] = number;
  }
  return presets;
}

Variant Reader::OptionAt(const toml::node& node, const PTZOption& option, const std::string& what) const {
  const auto type = option.OType();
  if (type == OptionBoolean) return BooleanAt(node, what);
  const bool choice = type == OptionChoiceIndex || type == OptionChoiceText;
  Variant value;
  if (type == OptionInteger)
    value = WholeNumberAt(node, what);
  else if (choice && !node.is_integer() && !node.is_string())
    FailType(node, what, "one of the option's choices");
  else
    value = choice && node.is_integer() ? std::to_string(node.as_integer()->get()) : TextAt(node, what);
  if (choice)
    value = Placed(node, what + ": ", [&] { return ReadOption(option, std::get<std::string>(value)); });
  if (const auto warning = RangeWarning(option, value); !warning.empty()) Fail(node.source(), warning);
  return value;
}

Bytes Reader::OptionsAt(const toml::node& node, const DriverClass& driver, const std::string& what) const {
  PropertyBag bag;
  const auto known = OptionsOf(driver);
  std::vector<std::string> names;
  for (const auto& option : known) names.push_back(option.Name());
  for (const auto& [key, value] : Table(node, what)) {
    const auto option = std::ranges::find(known, std::string(key.str()), &PTZOption::Name);
    if (option == known.end())
      FailUnknown(key, "the option of the driver " + std::string(driver.ProgID), names);
    if (option->Name() == "Address" || option->Name() == "COMPort")
      Fail(key.source(), what + ": expected this as " + (option->Name() == "Address" ? "address" : "line") +
                             " of the camera, not as an option");
    bag.WriteProperty(option->Name(), OptionAt(value, *option, what + " " + option->Name()));
  }
  return bag.Contents();
}

NamedCamera Reader::CameraAt(const std::string& name, const toml::table& table) const {
  static const std::vector<std::string> known = {
      "driver",     "address",      "line",          "options",          "user",
      "password",   "password_env", "password_file", "password_keyring", "password_prompt",
      "invert_pan", "invert_tilt",  "pan_limits",    "tilt_limits",      "zoom_limits",
      "presets"};
  NamedCamera camera{.Name = name, .File = File()};
  const auto whose = "camera " + name;
  const auto* driverNode = table.get("driver");
  if (driverNode == nullptr) Fail(table.source(), whose + ": expected a driver, such as driver = \"Axis\"");
  const auto* driver = Placed(*driverNode, whose + ": ",
                              [&] { return &DriverNamed(TextAt(*driverNode, whose + ", driver")); });
  auto& settings = camera.Settings;
  settings.Driver = driver->ProgID;
  settings.Options = PropertyBag().Contents();
  const toml::key* passwordKey = nullptr;
  for (const auto& [key, node] : table) {
    const std::string word(key.str());
    const auto what = whose + ", " + word;
    if (word == "address" || word == "line") {
      const bool onLine = !driver->Data->Reads("Address");
      if (onLine != (word == "line"))
        Fail(key.source(), what + ": the driver " + std::string(driver->ProgID) +
                               (onLine ? " reads no address; expected a line" : " uses no serial line"));
      if (onLine)
        camera.Line = node.is_integer() ? std::to_string(WholeNumberAt(node, what)) : TextAt(node, what);
      else
        camera.Address = Placed(node, whose + ", ",
                                [&, &node = node] { return CheckedAddress("address", TextAt(node, what)); });
      if (camera.Address.find('@') != std::string::npos)
        Fail(node.source(),
             what +
                 ": expected HOST or HOST:PORT; a user and where the password comes from have keys "
                 "of their own");
    } else if (word == "options") {
      settings.Options = OptionsAt(node, *driver, what);
    } else if (word == "user") {
      camera.User = TextAt(node, what);
      if (!camera.User.empty() && !driver->Data->Reads("Address"))
        Fail(key.source(), what + ": nobody logs in on a serial line");
    } else if (word.starts_with("password") && std::ranges::find(known, word) != known.end()) {
      if (passwordKey != nullptr)
        Fail(key.source(), what + ": expected one source of the password, and there is " +
                               std::string(passwordKey->str()) + " already");
      passwordKey = &key;
      camera.Password = PasswordAt(word, node, what);
    } else if (word == "invert_pan") {
      settings.InvertPan = BooleanAt(node, what);
    } else if (word == "invert_tilt") {
      settings.InvertTilt = BooleanAt(node, what);
    } else if (word == "pan_limits") {
      settings.PanLimits = LimitsAt(node, what);
    } else if (word == "tilt_limits") {
      settings.TiltLimits = LimitsAt(node, what);
    } else if (word == "zoom_limits") {
      settings.ZoomLimits = LimitsAt(node, what);
    } else if (word == "presets") {
      settings.Presets = PresetsAt(node, what);
    } else if (word != "driver") {
      FailUnknown(key, whose + ": the key", known);
    }
  }
  if (camera.Address.empty() && camera.Line.empty())
    Fail(table.source(), whose + ": expected " + (driver->Data->Reads("Address") ? "an address" : "a line"));
  if (passwordKey != nullptr && camera.User.empty())
    Fail(passwordKey->source(), whose + ": expected a user beside " + std::string(passwordKey->str()));
  return camera;
}

std::vector<NamedCamera> Reader::Cameras(const toml::table& document) const {
  std::vector<NamedCamera> cameras;
  for (const auto& [key, node] : document) {
    if (key.str() != Top)
      Fail(key.source(), "expected cameras as [camera.NAME], not \"" + Printable(key.str()) + "\"");
    for (const auto& [nameKey, table] : Table(node, "camera")) {
      const std::string name(nameKey.str());
      try {
        CheckCameraName(name);
      } catch (const InputError& error) {
        Fail(nameKey.source(), error.what());
      }
      for (const auto& other : cameras)
        if (EqualsIgnoringCase(other.Name, name))
          Fail(nameKey.source(), "camera " + name + ": expected another name, since there is " + other.Name);
      cameras.push_back(CameraAt(name, Table(table, "camera " + name)));
    }
  }
  return cameras;
}

}  // namespace

void CheckCameraName(const std::string& name) {
  constexpr std::size_t longest = 64;
  const auto fits = [](char c) { return IsLetter(c) || IsDigit(c) || c == '-' || c == '_' || c == '.'; };
  if (!name.empty() && name.size() <= longest && (IsLetter(name[0]) || IsDigit(name[0])) &&
      std::ranges::all_of(name, fits))
    return;
  throw InputError(
      "\"" + Printable(name.substr(0, longest)) +
      "\" is no name for a camera: expected letters, digits, \"-\", \"_\" and \".\", a letter or digit "
      "first, 64 at most");
}

namespace {

std::string Quoted(const std::string& text) {
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
      quoted += "\\u00" + Hex2(c);
    else
      quoted += c;
  }
  return quoted + '"';
}

/// A name may have a point, which would divide a key.
std::string KeyOf(const std::string& name) {
  return name.find('.') == std::string::npos ? name : Quoted(name);
}

std::string ValueOf(const DriverClass& driver, const std::string& name, const Variant& value) {
  const auto known = OptionsOf(driver);
  const auto option = std::ranges::find(known, name, &PTZOption::Name);
  if (option != known.end() && option->OType() == OptionChoiceIndex)
    return Quoted(ToText(option->Values().at(static_cast<std::size_t>(ToInt32(value)))));
  if (const auto* flag = std::get_if<bool>(&value)) return *flag ? "true" : "false";
  if (const auto* number = std::get_if<std::int32_t>(&value)) return std::to_string(*number);
  return Quoted(ToText(value));
}

/// The first of the lines (counted from 1) at which a table or one inside of it has its heading.
void CollectHeadings(const toml::table& table, std::vector<std::size_t>& lines) {
  if (table.is_inline()) return;
  lines.push_back(table.source().begin.line);
  for (const auto& [key, node] : table)
    if (const auto* inner = node.as_table()) CollectHeadings(*inner, lines);
}

/// A table that tells of a camera.
std::string TableOf(const NamedCamera& camera) {
  using Kind = PasswordSource::Kind;
  const auto& driver = DriverNamed(camera.Settings.Driver);
  auto table = "[" + std::string(Top) + "." + KeyOf(camera.Name) + "]\n";
  const auto add = [&](const char* key, const std::string& text) {
    if (!text.empty()) table.append(key).append(" = ").append(Quoted(text)).append("\n");
  };
  add("driver", std::string(driver.ProgID.substr(driver.ProgID.find('.') + 1)));
  add("address", camera.Address);
  add("line", camera.Line);
  add("user", camera.User);
  const auto& [from, where] = camera.Password;
  if (from == Kind::Environment) add("password_env", where);
  if (from == Kind::File) add("password_file", where);
  if (from == Kind::Here) table += "password = " + Quoted(where) + "\n";
  if (from == Kind::Keyring) table += "password_keyring = true\n";
  if (from == Kind::Asked) table += "password_prompt = true\n";
  PropertyBag bag;
  bag.Contents(camera.Settings.Options);
  std::string options;
  for (const auto& [name, value] : bag.Values())
    options.append(options.empty() ? "" : ", ")
        .append(name)
        .append(" = ")
        .append(ValueOf(driver, name, value));
  if (!options.empty()) table += "options = { " + options + " }\n";
  if (camera.Settings.InvertPan) table += "invert_pan = true\n";
  if (camera.Settings.InvertTilt) table += "invert_tilt = true\n";
  const auto addLimits = [&](const char* key, const std::optional<CameraLimits>& limits) {
    if (limits)
      table.append(key).append(" = [" + Text(limits->Least) + ", " + Text(limits->Greatest) + "]\n");
  };
  addLimits("pan_limits", camera.Settings.PanLimits);
  addLimits("tilt_limits", camera.Settings.TiltLimits);
  addLimits("zoom_limits", camera.Settings.ZoomLimits);
  std::string presets;
  for (const auto& [name, number] : camera.Settings.Presets)
    presets.append(presets.empty() ? "" : ", ").append(Quoted(name)).append(" = " + std::to_string(number));
  if (!presets.empty()) table += "presets = { " + presets + " }\n";
  return table;
}

/// The text without the table of a camera.
std::string WithoutCamera(const std::string& text, const std::string& file, const std::string& name) {
  std::vector<std::string> lines;
  for (std::size_t begin = 0; begin < text.size();) {
    const auto end = std::min(text.find('\n', begin), text.size() - 1) + 1;
    lines.push_back(text.substr(begin, end - begin));
    begin = end;
  }
  const auto beginning = [&](std::size_t line) -> char {
    const auto at = lines[line].find_first_not_of(" \t\r\n");
    return at == std::string::npos ? '\0' : lines[line][at];
  };
  std::vector<std::size_t> headings;
  const auto document = ParseTOML(text, file);
  if (const auto* table = document[Top][name].as_table()) CollectHeadings(*table, headings);
  for (const auto heading : headings) {
    const auto first = heading - 1;
    if (first >= lines.size() || beginning(first) != '[') continue;
    auto last = first;
    for (auto line = first + 1; line < lines.size() && beginning(line) != '['; ++line)
      if (beginning(line) != '\0' && beginning(line) != '#') last = line;
    for (auto line = first; line <= last; ++line) lines[line].clear();
  }
  std::string rest;
  for (const auto& line : lines) rest += line;

  const auto cannot = [&] {
    return InputError("camera " + name + " is written in " + file +
                      " such that it cannot be cut out; please edit the file");
  };
  auto before = ReadCameras(text, file);
  std::erase_if(before, [&](const NamedCamera& camera) { return camera.Name == name; });
  std::vector<NamedCamera> after;
  try {
    after = ReadCameras(rest, file);
  } catch (const InputError&) {
    throw cannot();
  }
  if (!std::ranges::equal(before, after, AreAlike)) throw cannot();
  return rest;
}

FileContents ContentsOf(const std::string& file, bool mustBeThere) {
  constexpr std::size_t longest = 8 << 20;
  try {
    return ReadWholeFile(PathOf(file), longest);
  } catch (const std::system_error& error) {
    if (!mustBeThere &&
        (error.code() == std::errc::no_such_file_or_directory || error.code() == std::errc::not_a_directory))
      return {};
    throw InputError("the cameras' file " + file + " cannot be read: " + error.what());
  }
}

/// Writes what can be read again.
void Write(const std::string& file, const std::string& text) {
  const auto cameras = ReadCameras(text, file);
  const bool hasPassword = std::ranges::any_of(
      cameras, [](const NamedCamera& camera) { return camera.Password.From == PasswordSource::Kind::Here; });
  try {
    WriteWholeFile(PathOf(file), text, hasPassword);
  } catch (const std::system_error& error) {
    throw InputError("the cameras' file " + file + " cannot be written: " + error.what());
  }
}

/// While it lives, nobody else changes the file.
std::shared_ptr<void> Hold(const std::string& file) {
  try {
    return HoldFile(PathOf(file));
  } catch (const std::system_error& error) {
    throw InputError("the cameras' file " + file + " cannot be written: " + error.what());
  }
}

}  // namespace

std::vector<NamedCamera> ReadCameras(const std::string& text, const std::string& file,
                                     const std::string& openness) {
  return Reader(file, openness).Cameras(ParseTOML(text, file));
}

void CheckCamera(const NamedCamera& camera) try {
  ReadCameras(TableOf(camera), "");
} catch (const InputError& error) {
  const std::string text = error.what();
  throw InputError(text.substr(text.find(": ") + 2));  // without its place, which is in no file
}

std::vector<NamedCamera> ReadCameraFile(const std::string& file, bool mustBeThere) {
  const auto contents = ContentsOf(file, mustBeThere);
  return ReadCameras(contents.Text, file, contents.Openness);
}

void StoreCamera(const std::string& file, const NamedCamera& camera, bool replaces) {
  const auto held = Hold(file);
  const auto contents = ContentsOf(file, false);
  auto text = contents.Text;
  for (const auto& other : ReadCameras(text, file, contents.Openness)) {
    if (!EqualsIgnoringCase(other.Name, camera.Name)) continue;
    if (!replaces) throw InputError("there is a camera " + other.Name + " in " + file + " by now");
    text = WithoutCamera(text, file, other.Name);
  }
  if (!text.empty()) text += text.ends_with('\n') ? "\n" : "\n\n";
  Write(file, text + TableOf(camera));
}

void RemoveCamera(const std::string& file, const std::string& name) {
  const auto held = Hold(file);
  Write(file, WithoutCamera(ContentsOf(file, true).Text, file, name));
}

}  // namespace ptzd
