#include "simulators/Bosch.h"

#include <cmath>
#include <cstdio>
#include <iterator>
#include <nlohmann/json.hpp>
#include <numbers>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "simulators/engine/Make.h"
#include "simulators/engine/Message.h"
#include "simulators/engine/Query.h"

namespace ptzsim {
namespace {

// Angles are told in ten-thousandths of a radian. Pan is counted to the left, from straight behind.
constexpr double PerDegree = std::numbers::pi / 180 * 10000;
constexpr double FullTurn = 360 * PerDegree;
constexpr unsigned LargestPan = 62832;  // the full turn, rounded
constexpr Motion::Range TiltRange{-90 * PerDegree, 18 * PerDegree};
constexpr double PerZoom = 45;
constexpr Motion::Range ZoomRange{0, 30 * PerZoom};
constexpr double TurnSpeed = 200 * PerDegree, ZoomSpeed = 400;               // per second
constexpr double PanPerSpeed = 8 * PerDegree, TiltPerSpeed = 5 * PerDegree;  // of continuous motion

// Messages: lead, group and object of two bytes each, operation, data.
constexpr std::size_t HeadLength = 6;
constexpr unsigned Writing = 0x80, Reading = 0x81;
constexpr unsigned PtzGroup = 0x0006;
constexpr unsigned MotionObject = 0x0110, PanObject = 0x0112, TiltObject = 0x0113, ZoomObject = 0x0114;
constexpr unsigned GetOperation = 0x01, SetOperation = 0x02, RunOperation = 0x85;
constexpr unsigned Forward = 0xF;  // the direction digit of right and up; 0 is that of left and down

constexpr std::pair<const char*, const char*> Wanted[] = {
    {"command", "0x09A5"}, {"type", "P_OCTET"}, {"direction", "WRITE"}, {"num", "1"}};

// Error codes.
constexpr char UnknownCommand[] = "0x40", UnknownMessage[] = "0xf0";

std::vector<unsigned> Decode(std::string_view payload) {
  if (!payload.starts_with("0x")) throw std::invalid_argument("the payload does not begin with 0x");
  const auto bytes = BytesOf(payload.substr(2));
  return {bytes.begin(), bytes.end()};
}

std::string Text(const std::vector<unsigned>& bytes, const char* form) {
  std::string text;
  for (const unsigned byte : bytes) {
    char digits[8];
    std::snprintf(digits, sizeof digits, form, byte);
    text += digits;
  }
  return text;
}

unsigned Word(unsigned high, unsigned low) { return high << 8 | low; }

/// Of a 16-bit number as two's complement.
double Signed(unsigned word) { return word < 0x8000 ? word : static_cast<double>(word) - 0x10000; }

constexpr char DocumentBegin[] = R"(<?xml version="1.0" encoding="ISO-8859-1"?>
<rcp>
<command>
<hex>0x09a5</hex>
<dec>      2469</dec>
</command>
<type>P_OCTET</type>
<direction>WRITE</direction>
<num>1</num>
<idstring></idstring>
<payload>)";
constexpr char DocumentMiddle[] = R"(</payload>
<cltid>0x0046</cltid>
<sessionid>0x00000000</sessionid>
<auth>2</auth>
<protocol>TCP</protocol>
<result>
)";
constexpr char DocumentEnd[] = "\n</result>\n</rcp>\n";

HTTPReply Document(const std::string& payload, const std::string& result) {
  return HTTPReply::Text(DocumentBegin + payload + DocumentMiddle + result + DocumentEnd, "text/xml");
}

std::string Error(const char* code) { return std::string("<err>") + code + "</err>"; }

}  // namespace

Bosch::Bosch(Options options)
    : Simulator(options.Clock),
      Replies_(options.Form),
      Pan_(Time(), 23155, Motion::Endless, TurnSpeed),
      Tilt_(Time(), -3765, TiltRange, TurnSpeed),
      Zoom_(Time(), 333, ZoomRange, ZoomSpeed),
      Server_(*this, Mutex_, options.Port, [this](const Request& r) { return Answer(r); }) {}

HTTPReply Bosch::Answer(const Request& request) {
  const Query query(request.Target);
  if (query.Path != "/rcp.xml") return {.Status = 404, .Violation = "no such page: " + request.Target};
  const auto refused = [&](const char* code, const std::string& payload, const std::string& why) {
    return Document(payload, Error(code)).Blaming(why + ": " + request.Target);
  };
  for (const auto& [name, value] : Wanted)
    if (query.Find(name) != value)
      return refused(UnknownCommand, "", name + (" is not " + std::string(value)));
  const auto payload = query.Find("payload");
  if (!payload || query.Pairs.size() != std::size(Wanted) + 1)
    return refused(UnknownCommand, "", "a payload is wanted, and nothing that is unknown");
  Bytes message;
  try {
    message = Decode(*payload);
    return Document("0x" + Text(message, "%02x"), Result(message));
  } catch (const std::invalid_argument& wrong) {
    return refused(UnknownMessage, "0x" + Text(message, "%02x"), wrong.what());
  }
}

/// Acts on a message. Throws std::invalid_argument for one the head does not know.
std::string Bosch::Result(const Bytes& message) {
  if (message.size() < HeadLength) throw std::invalid_argument("the message is too short");
  const unsigned lead = message[0], group = Word(message[1], message[2]);
  const unsigned object = Word(message[3], message[4]), operation = message[5];
  const Bytes data(message.begin() + HeadLength, message.end());
  if (group != PtzGroup) throw std::invalid_argument("not the group of pan, tilt and zoom");
  const bool position = object == PanObject || object == TiltObject || object == ZoomObject;
  const bool gets = position && operation == GetOperation;
  const bool sets = position && operation == SetOperation;
  const bool runs = object == MotionObject && operation == RunOperation;
  if (!gets && !sets && !runs) throw std::invalid_argument("no such object or operation");
  if (lead != (gets ? Reading : Writing)) throw std::invalid_argument("the lead does not fit the operation");
  if (data.size() != (gets ? 0U : sets ? 2U : 3U)) throw std::invalid_argument("the data has a wrong length");

  if (sets && object == PanObject && Word(data[0], data[1]) > LargestPan)
    throw std::invalid_argument("pan is beyond a full turn");
  if (runs) {
    for (const unsigned byte : {data[0], data[1]})
      if (byte >> 4 != 0 && byte >> 4 != Forward)
        throw std::invalid_argument("a direction is neither F nor 0");
    if (data[2] != 0) throw std::invalid_argument("the last byte is not 00");
  }
  if (Replies_.Of == Support::Refusing) return Error(UnknownMessage);
  if (Replies_.Of == Support::Silent) return "<len>0</len>\n<str/>";
  if (sets) Set(object, Word(data[0], data[1]));
  if (runs) Run(data);

  Bytes bytes = message;
  if (gets) bytes.insert(bytes.end(), {Value(object) >> 8, Value(object) & 0xFF});
  if (Replies_.Longer) bytes.insert(bytes.end(), {0x5C, 0xE2});
  std::string text = Text(bytes, Replies_.UpperCase ? "%02X " : "%02x ");
  text.pop_back();
  if (Replies_.Padded) text = "\n\t  " + text + " \n";
  return "<len>" + std::to_string(bytes.size()) + "</len>\n<str>" + text + "</str>";
}

void Bosch::Set(unsigned object, unsigned value) {
  if (object == TiltObject) return Tilt_.MoveTo(Signed(value));
  if (object == ZoomObject) return Zoom_.MoveTo(value);
  Pan_.TurnTo(value, FullTurn);
}

/// The first digit of each byte is the direction, the second the speed.
void Bosch::Run(const Bytes& data) {
  const auto velocity = [](unsigned byte) {
    const double speed = byte & 0xF;
    return byte >> 4 == Forward ? speed : -speed;
  };
  Pan_.Run(-velocity(data[0]) * PanPerSpeed);
  Tilt_.Run(velocity(data[1]) * TiltPerSpeed);
}

unsigned Bosch::Value(unsigned object) const {
  if (object == PanObject)
    return static_cast<unsigned>(std::lround(Wrapped(Pan_.Position(), 0, FullTurn))) % LargestPan;
  return static_cast<unsigned>(std::lround((object == TiltObject ? Tilt_ : Zoom_).Position())) & 0xFFFF;
}

void Bosch::Reply(Replies replies) {
  const std::lock_guard lock(Mutex_);
  Replies_ = replies;
}

Bosch::HeadState Bosch::Head() const {
  const std::lock_guard lock(Mutex_);
  return {180 - Wrapped(Pan_.Position() / PerDegree, 0), Tilt_.Position() / PerDegree,
          Zoom_.Position() / PerZoom, Pan_.Moving() || Tilt_.Moving() || Zoom_.Moving()};
}

nlohmann::json Bosch::State() const {
  const HeadState head = Head();
  return {{"pan", head.Pan}, {"tilt", head.Tilt}, {"zoom", head.Zoom}, {"moving", head.Moving}};
}

const Make Bosch::AtShell = {
    "bosch", "Bosch dome (HTTP, messages in hexadecimal)", [](Shell& shell) {
      const auto options = std::make_shared<Options>();
      auto& form = options->Form;
      shell.Choice("--support", form.Of,
                   {{"full", Support::Full}, {"empty", Support::Silent}, {"error", Support::Refusing}},
                   "How it answers messages; full when not given");
      shell.Flag("--upper-case", form.UpperCase, true, "Answer with digits A to F, not a to f");
      shell.Flag("--padded", form.Padded, true, "Answer with line ends and blanks around the bytes");
      shell.Flag("--longer", form.Longer, true, "Answer with two bytes more than were asked for");
      return From<Bosch>(options);
    }};

}  // namespace ptzsim
