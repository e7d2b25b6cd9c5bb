#include "simulators/engine/Recording.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "simulators/engine/Message.h"

namespace ptzsim {
namespace {

using Json = nlohmann::json;
using End = RecordedExchange::End;

constexpr int FormatVersion = 1;
constexpr double LongestTime = 3'600'000;  // milliseconds

template <class Value>
using Names = std::map<std::string, Value>;

const Names<Line> Links = {{"http", Line::HTTP}, {"tcp", Line::TCP}, {"serial", Line::Terminal}};
const Names<End> Failures = {{"not_sent", End::NotSent}, {"not_connected", End::NotConnected},
                             {"silent", End::Silent},    {"closed", End::Closed},
                             {"reset", End::Reset},      {"broken_off", End::BrokenOff}};

/// What is wrong with a line.
using Wrong = std::invalid_argument;

[[noreturn]] void Expected(const std::string& name, const Json* found, const std::string& what) {
  if (!found) throw Wrong("\"" + name + "\" is missing, which should be " + what);
  constexpr std::size_t most = 60;
  auto text = found->dump(-1, ' ', true);
  if (text.size() > most) text = text.substr(0, most) + "...";
  throw Wrong("\"" + name + "\" is " + text + " and should be " + what);
}

/// The members of a JSON object, each of the kind that it should be.
class Members {
 public:
  explicit Members(const Json& object) : Object_(object) {}

  const Json* Find(const std::string& name) const {
    const auto found = Object_.find(name);
    return found == Object_.end() ? nullptr : &*found;
  }
  const Json& Get(const std::string& name, bool (Json::*is)() const noexcept, const char* what) const {
    const Json* found = Find(name);
    if (!found || !(found->*is)()) Expected(name, found, what);
    return *found;
  }
  Members Object(const std::string& name, const char* what) const {
    return Members(Get(name, &Json::is_object, what));
  }
  std::string Text(const std::string& name) const {
    return Find(name) ? Get(name, &Json::is_string, "a text").get<std::string>() : "";
  }
  bool Flag(const std::string& name, bool unless) const {
    return Find(name) ? Get(name, &Json::is_boolean, "true or false").get<bool>() : unless;
  }
  std::int64_t Whole(const std::string& name, std::int64_t least, std::int64_t most) const {
    const auto what = "a whole number from " + std::to_string(least) + " to " + std::to_string(most);
    const Json& found = Get(name, &Json::is_number_integer, what.c_str());
    const auto value = found.is_number_unsigned() && found.get<std::uint64_t>() > INT64_MAX
                           ? INT64_MAX
                           : found.get<std::int64_t>();
    if (value < least || value > most) Expected(name, &found, what);
    return value;
  }
  std::chrono::milliseconds Time(const std::string& name) const {
    if (!Find(name)) return {};
    const Json& found = Get(name, &Json::is_number, "milliseconds");
    const auto value = found.get<double>();
    if (!(value >= 0 && value <= LongestTime)) Expected(name, &found, "milliseconds, at most an hour");
    return std::chrono::milliseconds(std::llround(value));
  }
  template <class Value>
  Value Choice(const std::string& name, const Names<Value>& choices) const {
    std::string what = "one of";
    for (const auto& [word, value] : choices) what += " " + word;
    const Json& found = Get(name, &Json::is_string, what.c_str());
    const auto choice = choices.find(found.get<std::string>());
    if (choice == choices.end()) Expected(name, &found, what);
    return choice->second;
  }
  /// Bytes: a text, or hexadecimal digits under the name for those.
  std::string Bytes(const std::string& asText, const std::string& asDigits) const {
    if (!Find(asDigits)) return Text(asText);
    auto digits = Text(asDigits);
    std::erase(digits, ' ');
    try {
      const auto bytes = BytesOf(digits);
      return {bytes.begin(), bytes.end()};
    } catch (const std::invalid_argument&) {
      Expected(asDigits, Find(asDigits), "bytes in hexadecimal digits, two each");
    }
  }

 private:
  const Json& Object_;
};

RecordedReply ReadReply(const Members& reply) {
  RecordedReply read;
  if (reply.Find("status")) read.Status = static_cast<int>(reply.Whole("status", 100, 999));
  read.Reason = reply.Text("reason");
  read.Body = reply.Bytes("body", "body_hex");
  if (reply.Find("headers")) {
    constexpr char what[] = "a list of headers, each a list of its name and its value";
    const Json& headers = reply.Get("headers", &Json::is_array, what);
    for (const Json& header : headers) {
      if (!header.is_array() || header.size() != 2 || !header[0].is_string() || !header[1].is_string())
        Expected("headers", &headers, what);
      read.Headers.emplace_back(header[0], header[1]);
    }
  }
  return read;
}

void ReadRequest(const Members& request, Line link, RecordedExchange& exchange) {
  if (link == Line::HTTP) {
    exchange.Method = request.Get("method", &Json::is_string, "a method such as GET");
    exchange.Target = request.Get("target", &Json::is_string, "a path, with what follows it");
    if (!exchange.Target.starts_with('/'))
      Expected("target", request.Find("target"), "a path that begins with /");
    exchange.Body = request.Bytes("body", "body_hex");
    exchange.Login = request.Flag("login", false);
    return;
  }
  exchange.Opens = request.Flag("open", false);
  if (exchange.Opens) return;
  exchange.Bytes = request.Bytes("", "hex");
  if (exchange.Bytes.empty())
    Expected("hex", request.Find("hex"), "the bytes that were sent, unless there is \"open\": true");
}

class Reader {
 public:
  void Read(const std::string& line, std::size_t at) {
    Json json;
    try {
      json = Json::parse(line);
    } catch (const Json::parse_error& error) {
      throw Wrong("column " + std::to_string(error.byte) +
                  ": this is no JSON; each line should be one object");
    } catch (const Json::out_of_range&) {
      throw Wrong("a number in it is beyond all that a number can be");
    }
    if (!json.is_object()) throw Wrong("each line should be one JSON object");
    HasHeader_ ? ReadExchange(Members(json), at) : ReadHeader(Members(json));
  }

  Recording Finished() {
    if (!HasHeader_) throw Wrong("the file is empty; its first line should be a recording's header");
    Recording_.Exchanges.clear();
    for (auto& [number, exchange] : Exchanges_) Recording_.Exchanges.push_back(std::move(exchange));
    if (Recording_.Exchanges.empty())
      throw Wrong("the recording ends here; at least one exchange should follow");
    return std::move(Recording_);
  }

 private:
  void ReadHeader(const Members& header) {
    const auto version = "the number " + std::to_string(FormatVersion) + ", in the first line of a recording";
    if (header.Get("ptzd_recording", &Json::is_number_integer, version.c_str()) != FormatVersion)
      Expected("ptzd_recording", header.Find("ptzd_recording"), version);
    Recording_.Driver = header.Text("driver");
    Recording_.On = header.Choice("link", Links);
    if (header.Find("options")) {
      for (const Json& option : header.Get("options", &Json::is_array, "a list of texts")) {
        if (!option.is_string()) Expected("options", &option, "a list of texts");
        Recording_.Options.push_back(option);
      }
    }
    HasHeader_ = true;
  }

  void ReadExchange(const Members& line, std::size_t at) {
    const auto number = static_cast<std::uint64_t>(line.Whole("number", 0, INT64_MAX));
    const auto known = Exchanges_.find(number);
    if (line.Find("request")) {
      if (known != Exchanges_.end())
        throw Wrong("number " + std::to_string(number) + " is that of the request in line " +
                    std::to_string(known->second.At) + "; each should have its own");
      auto& exchange = Exchanges_[number];
      exchange.Number = number;
      exchange.At = at;
      exchange.Awaited = line.Flag("awaited", true);
      ReadRequest(line.Object("request", "an object"), Recording_.On, exchange);
      ReadEnd(line, exchange);
    } else {
      if (known == Exchanges_.end())
        Expected("request", nullptr, "an object: no line before has this number");
      ReadEnd(line, known->second);
    }
  }

  /// What nobody has seen the end of had an ordinary one, as far as anybody knows.
  static void ReadEnd(const Members& line, RecordedExchange& exchange) {
    if (line.Find("reply")) exchange.Reply = ReadReply(line.Object("reply", "an object"));
    if (line.Find("failure")) exchange.Ended = line.Choice("failure", Failures);
    exchange.Took = line.Time("ms");
    if (!line.Find("reply") && !line.Find("failure")) exchange.Reply.Status = 200;
  }

  Recording Recording_{};
  bool HasHeader_ = false;
  std::map<std::uint64_t, RecordedExchange> Exchanges_;
};

}  // namespace

Recording ReadRecording(const std::string& file) {
  const auto cannot = [&](const std::string& why) {
    return std::runtime_error(file + ": the file cannot be read: " + why);
  };
  std::error_code none;
  // A folder has no lines, a device or a pipe perhaps no end.
  if (const auto status = std::filesystem::status(file, none);
      std::filesystem::exists(status) && !std::filesystem::is_regular_file(status))
    throw cannot("it is no plain file");
  std::ifstream input(file, std::ios::binary);
  if (!input) throw cannot(std::strerror(errno));
  Reader reader;
  std::size_t at = 0;
  try {
    for (std::string line; std::getline(input, line);) {
      ++at;
      if (line.find_first_not_of(" \t\r") != std::string::npos) reader.Read(line, at);
    }
    at = std::max<std::size_t>(at, 1);
    return reader.Finished();
  } catch (const Wrong& wrong) {
    throw std::runtime_error(file + ": line " + std::to_string(at) + ": " + wrong.what());
  }
}

}  // namespace ptzsim
