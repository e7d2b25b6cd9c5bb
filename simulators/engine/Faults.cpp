#include "simulators/engine/Faults.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace ptzsim {
namespace {

enum class Value { None, Number, OptionalNumber, OptionalText, Text };
enum class Reach { Listener, Connection, Request };

constexpr unsigned HTTPOnly = static_cast<unsigned>(Line::HTTP);
constexpr unsigned Sockets = HTTPOnly | static_cast<unsigned>(Line::TCP);
constexpr unsigned Bytes = static_cast<unsigned>(Line::TCP) | static_cast<unsigned>(Line::Terminal);
constexpr unsigned Everywhere = HTTPOnly | Bytes;

struct Entry {
  FaultKind Kind;
  std::string_view Name;
  Value Takes;
  std::string_view Sample;
  Reach At;
  std::string_view Effect;
  unsigned Lines = HTTPOnly;
};

using enum FaultKind;
constexpr std::array Table{
    Entry{Refuse, "refuse", Value::None, "", Reach::Listener,
          "connections are refused, a serial line is not there", Everywhere},
    Entry{FullAcceptQueue, "full-accept-queue", Value::None, "", Reach::Listener,
          "connecting takes for ever: the queue is full and nothing is accepted", Sockets},
    Entry{CloseOnAccept, "close-on-accept", Value::None, "", Reach::Connection,
          "a connection is closed as soon as it is accepted, its request unread", Sockets},
    Entry{Vanish, "vanish", Value::None, "", Reach::Connection,
          "the line hangs up in the middle of a message, which is lost, and is there again",
          static_cast<unsigned>(Line::Terminal)},
    Entry{NeverRead, "never-read", Value::None, "", Reach::Listener,
          "nothing that comes in is read, the line stays open and fills up", Bytes},
    Entry{DelayReply, "delay", Value::Number, "MS", Reach::Request, "the reply waits MS milliseconds",
          Everywhere},
    Entry{StaySilent, "silent", Value::None, "", Reach::Request,
          "no reply ever comes, the connection stays open", Sockets},
    Entry{CloseBeforeReply, "close-before-reply", Value::None, "", Reach::Request,
          "the request is read and acted on, then the connection closed without an answer (a serial line "
          "hangs up and is there again)",
          Everywhere},
    Entry{CloseInMidReply, "close-mid-reply", Value::OptionalNumber, "BYTES", Reach::Request,
          "closed after BYTES of the reply (half of it)", Sockets},
    Entry{ResetInMidReply, "reset-mid-reply", Value::OptionalNumber, "BYTES", Reach::Request,
          "reset after BYTES of the reply (half of it)", Sockets},
    Entry{StallInMidBody, "stall-mid-body", Value::OptionalNumber, "BYTES", Reach::Request,
          "nothing follows after BYTES of the body (half of it), the connection stays open"},
    Entry{SplitReply, "split", Value::Number, "BYTES", Reach::Request,
          "the reply leaves in separate writes of BYTES each", Everywhere},
    Entry{PauseBetweenPieces, "pause", Value::Number, "MS", Reach::Request,
          "with split: MS milliseconds between the writes", Everywhere},
    Entry{Drip, "drip", Value::OptionalNumber, "MS", Reach::Request,
          "the reply leaves a byte at a time, MS milliseconds (10) between them", Everywhere},
    Entry{GarbageBeforeReply, "garbage", Value::OptionalText, "TEXT", Reach::Request,
          "TEXT (\"!?garbage\" and a line end) comes before the reply", Everywhere},
    Entry{CloseAfterReply, "close-after-reply", Value::None, "", Reach::Request,
          "a connection promised to stay is closed right after the reply", Sockets},
    Entry{CloseOnReuse, "close-on-reuse", Value::None, "", Reach::Request,
          "a kept connection is closed without an answer when its next request arrives", Sockets},
    Entry{WrongStatus, "status", Value::Text, "\"CODE REASON\"", Reach::Request,
          "the status line carries this status, all else is as usual"},
    Entry{NoReason, "no-reason", Value::None, "", Reach::Request, "the status line ends after the code"},
    Entry{BareBody, "bare-body", Value::None, "", Reach::Request,
          "the body comes without status line and headers, then close"},
    Entry{ShortBody, "short-body", Value::OptionalNumber, "BYTES", Reach::Request,
          "closed BYTES (100) before the announced length is reached"},
    Entry{LongBody, "long-body", Value::OptionalNumber, "BYTES", Reach::Request,
          "BYTES (100) more than the announced length are sent"},
    Entry{NoContentLength, "no-length", Value::None, "", Reach::Request,
          "no length announced, the body ends by closing"},
    Entry{Chunked, "chunked", Value::OptionalNumber, "BYTES", Reach::Request, "body in chunks of BYTES (16)"},
    Entry{ChunkedCutOff, "chunked-cut", Value::OptionalNumber, "BYTES", Reach::Request,
          "chunked, closed after BYTES of the body (half of it) in mid-chunk"},
    Entry{OversizedBody, "oversized", Value::Number, "MB", Reach::Request,
          "a body of MB times 1048576 bytes"},
    Entry{LongHeaders, "long-headers", Value::Number, "CHARS", Reach::Request,
          "a header block of more than CHARS characters"},
    Entry{EndlessHeaders, "endless-headers", Value::None, "", Reach::Request, "the header block never ends"},
    Entry{EndlessBody, "endless-body", Value::None, "", Reach::Request,
          "no length announced, the body comes again and again"},
    Entry{EndlessChunks, "endless-chunks", Value::None, "", Reach::Request,
          "chunked, the body comes again and again"},
    Entry{EndlessParts, "endless-parts", Value::None, "", Reach::Request,
          "multipart/x-mixed-replace, the body is one part after the other"},
    Entry{Continue, "continue", Value::OptionalNumber, "COUNT", Reach::Request,
          "COUNT times (without end) 100 Continue comes before the reply"},
    Entry{ResetOnReuse, "reset-on-reuse", Value::OptionalNumber, "N", Reach::Request,
          "the Nth reuse (first) of a kept connection is reset without an answer"},
    Entry{LineFeedHeaders, "lf-headers", Value::None, "", Reach::Request,
          "the header lines end with a line feed alone"},
    Entry{ControlHeaders, "control-headers", Value::None, "", Reach::Request,
          "a header holds the control characters, those above 7F among them"},
    Entry{ControlBody, "control-body", Value::None, "", Reach::Request,
          "the same, and NUL, CR and LF, in the middle of the body"},
    Entry{OtherNumbers, "numbers", Value::OptionalText, "TEXT", Reach::Request,
          "every number of the body, decimal or hexadecimal, is TEXT (nothing)"},
    Entry{XMLBomb, "xml-bomb", Value::None, "", Reach::Request,
          "the body is an XML document whose entities grow to gigabytes"},
    Entry{EmptyBody, "empty-body", Value::None, "", Reach::Request, "a body of length 0"},
    Entry{NoContent, "no-content", Value::None, "", Reach::Request, "204 No Content"},
    Entry{Redirect, "redirect", Value::Text, "URL", Reach::Request,
          "302 to URL, the request is not acted on"},
    Entry{AnsweredBy, "answered-by", Value::Text, "ADDRESS:PORT", Reach::Request,
          "another camera gets the request and answers in place of this one"},
    Entry{Cookie, "cookie", Value::OptionalText, "NAME=VALUE", Reach::Request,
          "the first reply sets a cookie (session=4711), later requests without it are violations (403)"},
    Entry{Basic, "basic", Value::Text, "USER:PASSWORD", Reach::Request,
          "401 until Basic credentials are right"},
    Entry{Digest, "digest", Value::Text, "USER:PASSWORD", Reach::Request,
          "401 until the Digest (MD5, qop=auth) is right"},
    Entry{DigestStale, "digest-stale", Value::Text, "USER:PASSWORD", Reach::Request,
          "the same, and the first right answer is told once that its nonce is stale"},
};

const Entry& EntryOf(FaultKind kind) {
  return *std::find_if(Table.begin(), Table.end(), [&](const Entry& entry) { return entry.Kind == kind; });
}

std::int64_t ParseCount(std::string_view what, std::string_view text) {
  std::int64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || stop != end || number < 0) {
    throw std::invalid_argument(std::string(what) + ": \"" + std::string(text) +
                                "\" is not a whole number of 0 or more");
  }
  return number;
}

bool Knows(const Entry& entry, Line line) { return entry.Lines & static_cast<unsigned>(line); }

void Check(const Fault& fault) {
  const Entry& entry = EntryOf(fault.Kind);
  const std::string name(entry.Name);
  if (fault.Times < 0)
    throw std::invalid_argument(name + ": cannot be meant for the next " + std::to_string(fault.Times));
  if (entry.At == Reach::Listener && (fault.Times != 0 || fault.After != 0)) {
    throw std::invalid_argument(name + ": holds until it is cleared, what it turns away cannot be counted");
  }
  if (entry.At != Reach::Request && !fault.Target.empty()) {
    throw std::invalid_argument(name + ": acts before a target is known, so it cannot be limited to one");
  }
  if (entry.Takes == Value::Number && fault.Number == Fault::Unset) {
    throw std::invalid_argument(name + ": needs a value, " + name + "=" + std::string(entry.Sample));
  }
  if (fault.Kind == SplitReply && fault.Number == 0)
    throw std::invalid_argument(name + ": pieces of 0 bytes");
  if (fault.Kind == Chunked && fault.Number == 0) throw std::invalid_argument(name + ": chunks of 0 bytes");
  const auto colon = fault.Text.rfind(':');
  if (fault.Kind == AnsweredBy && (colon == std::string::npos || colon + 1 == fault.Text.size() ||
                                   ParseCount(name, fault.Text.substr(colon + 1)) > 65535))
    throw std::invalid_argument(name + ": must end with a colon and a port");
  if (fault.Kind == ResetOnReuse && fault.Number == 0)
    throw std::invalid_argument(name + ": reuses count from 1");
  if (entry.Takes == Value::Text && fault.Text.empty()) {
    throw std::invalid_argument(name + ": needs a value, " + name + "=" + std::string(entry.Sample));
  }
  const auto digits = std::min(fault.Text.find_first_not_of("0123456789"), fault.Text.size());
  if (fault.Kind == WrongStatus && digits != 3)
    throw std::invalid_argument(name + ": must begin with three digits");
}

bool TakesNumber(const Entry& entry) {
  return entry.Takes == Value::Number || entry.Takes == Value::OptionalNumber;
}

/// Whether its time has come; else it is one request nearer.
bool IsDue(Fault& fault) { return fault.After == 0 || fault.After-- == 0; }

/// Counts the fault off; true when that was its last time.
bool CountOff(Fault& fault) { return fault.Times > 0 && --fault.Times == 0; }

int ParseTimes(std::string_view what, std::string_view text) {
  const auto times = ParseCount(what, text);
  if (times < 1 || times > 1'000'000)
    throw std::invalid_argument(std::string(what) + ": must be 1 to 1000000");
  return static_cast<int>(times);
}

}  // namespace

Fault ParseFault(std::string_view text) {
  Fault fault{.Kind = Refuse};
  const auto prefixed = [&](std::string_view prefix) { return text.substr(0, prefix.size()) == prefix; };
  while (prefixed("after=") || prefixed("next=") || prefixed("at=")) {
    const auto comma = text.find(',');
    if (comma == std::string_view::npos) {
      throw std::invalid_argument("\"" + std::string(text) +
                                  "\": a comma and the name of a fault must follow");
    }
    if (prefixed("next=")) {
      fault.Times = ParseTimes("next", text.substr(5, comma - 5));
    } else if (prefixed("after=")) {
      fault.After = ParseTimes("after", text.substr(6, comma - 6));
    } else {
      fault.Target = text.substr(3, comma - 3);
    }
    text.remove_prefix(comma + 1);
  }

  const auto equals = text.find('=');
  const auto name = text.substr(0, equals);
  const auto entry = std::find_if(Table.begin(), Table.end(), [&](const Entry& e) { return e.Name == name; });
  if (entry == Table.end()) throw std::invalid_argument("no fault is called \"" + std::string(name) + "\"");
  fault.Kind = entry->Kind;
  if (equals != std::string_view::npos) {
    const auto value = text.substr(equals + 1);
    if (entry->Takes == Value::None) throw std::invalid_argument(std::string(name) + ": takes no value");
    if (TakesNumber(*entry)) {
      fault.Number = ParseCount(name, value);
    } else {
      fault.Text = value;
    }
  }
  Check(fault);
  return fault;
}

std::string FaultHelp(Line line) {
  std::string help;
  for (const auto& entry : Table) {
    if (!Knows(entry, line)) continue;
    std::string form(entry.Name);
    if (entry.Takes == Value::OptionalNumber || entry.Takes == Value::OptionalText) {
      form += "[=" + std::string(entry.Sample) + "]";
    } else if (entry.Takes != Value::None) {
      form += "=" + std::string(entry.Sample);
    }
    form.resize(std::max<std::size_t>(form.size() + 2, 28), ' ');
    help += "  " + form + std::string(entry.Effect) + "\n";
  }
  return help;
}

const Fault* FaultSet::Find(FaultKind kind) const {
  for (const auto& fault : Faults_) {
    if (fault.Kind == kind) return &fault;
  }
  return nullptr;
}

std::optional<std::int64_t> FaultSet::Number(FaultKind kind) const {
  const Fault* fault = Find(kind);
  if (!fault || fault->Number == Fault::Unset) return std::nullopt;
  return fault->Number;
}

void FaultSwitches::Set(Fault fault) {
  Check(fault);
  {
    const std::lock_guard lock(Mutex_);
    const Entry& entry = EntryOf(fault.Kind);
    if (!Knows(entry, Line_))
      throw std::invalid_argument(std::string(entry.Name) + ": has no meaning on this kind of line");
    Faults_.push_back(std::move(fault));
  }
  Changed();
}

void FaultSwitches::Clear() {
  {
    const std::lock_guard lock(Mutex_);
    Faults_.clear();
  }
  Changed();
}

void FaultSwitches::Clear(FaultKind kind) {
  {
    const std::lock_guard lock(Mutex_);
    std::erase_if(Faults_, [&](const Fault& fault) { return fault.Kind == kind; });
  }
  Changed();
}

bool FaultSwitches::IsSet(FaultKind kind) const {
  const std::lock_guard lock(Mutex_);
  return std::any_of(Faults_.begin(), Faults_.end(), [&](const Fault& fault) { return fault.Kind == kind; });
}

void FaultSwitches::Serve(Line line) {
  const std::lock_guard lock(Mutex_);
  Line_ = line;
}

FaultSet FaultSwitches::TakeForRequest(std::string_view target) {
  const std::lock_guard lock(Mutex_);
  std::vector<Fault> taken;
  for (auto fault = Faults_.begin(); fault != Faults_.end();) {
    const bool fits =
        EntryOf(fault->Kind).At == Reach::Request && target.find(fault->Target) != target.npos &&
        std::none_of(taken.begin(), taken.end(), [&](const Fault& t) { return t.Kind == fault->Kind; }) &&
        IsDue(*fault);
    if (fits) taken.push_back(*fault);
    fault = fits && CountOff(*fault) ? Faults_.erase(fault) : std::next(fault);
  }
  return FaultSet(std::move(taken));
}

bool FaultSwitches::Take(FaultKind kind) {
  const std::lock_guard lock(Mutex_);
  const auto fault =
      std::find_if(Faults_.begin(), Faults_.end(), [&](const Fault& f) { return f.Kind == kind; });
  if (fault == Faults_.end() || !IsDue(*fault)) return false;
  if (CountOff(*fault)) Faults_.erase(fault);
  return true;
}

int FaultSwitches::Watch(std::function<void()> changed) {
  const std::lock_guard lock(WatchersMutex_);
  Watchers_[++LastWatcher_] = std::move(changed);
  return LastWatcher_;
}

void FaultSwitches::Forget(int watcher) {
  const std::lock_guard lock(WatchersMutex_);
  Watchers_.erase(watcher);
}

void FaultSwitches::Changed() {
  // Called unlocked: a watcher waits for its server's thread, which may itself be setting a fault.
  std::unique_lock lock(WatchersMutex_);
  const auto watchers = Watchers_;
  lock.unlock();
  for (const auto& [number, changed] : watchers) changed();
}

Plan PlanReply(std::string reply, std::size_t bodyAt, bool close, const FaultSet& faults,
               const std::string& endless) {
  using enum Step::Kind;
  Plan plan;
  if (const auto ms = faults.Number(DelayReply)) {
    plan.push_back({.What = Wait, .Time = std::chrono::milliseconds(*ms)});
  }
  if (faults.Has(StaySilent) || faults.Has(CloseBeforeReply)) {
    plan.push_back({.What = faults.Has(StaySilent) ? Hold : Close});
    return plan;
  }
  if (const Fault* garbage = faults.Find(GarbageBeforeReply)) {
    const std::string text = garbage->Text.empty() ? "!?garbage\r\n" : garbage->Text;
    reply.insert(0, text);
    bodyAt += text.size();
  }

  std::size_t size = reply.size();
  std::optional<Step::Kind> end;
  if (close || faults.Has(CloseAfterReply)) {
    end = Close;
  } else if (faults.Has(CloseOnReuse)) {
    end = DieOnReuse;
  }
  const auto cut = [&](FaultKind kind, std::size_t from, Step::Kind then) {
    if (!faults.Has(kind) || from == reply.size()) return;
    const auto length = static_cast<std::int64_t>(reply.size() - from);
    size = from + static_cast<std::size_t>(std::min(faults.Number(kind).value_or(length / 2), length));
    end = then;
  };
  cut(CloseInMidReply, 0, Close);
  cut(ResetInMidReply, 0, Reset);
  cut(StallInMidBody, bodyAt, Hold);

  const bool drips = faults.Has(Drip);
  const auto piece = drips ? 1 : static_cast<std::size_t>(faults.Number(SplitReply).value_or(INT64_MAX));
  const std::chrono::milliseconds pause(drips ? faults.Number(Drip).value_or(10)
                                              : faults.Number(PauseBetweenPieces).value_or(0));
  bool first = true;
  const auto write = [&](const std::string& bytes, std::size_t count) {
    for (std::size_t at = 0; at < count; at += std::min(piece, count - at)) {
      if (!std::exchange(first, false) && pause.count() > 0) plan.push_back({.What = Wait, .Time = pause});
      plan.push_back({.What = Write, .Bytes = bytes.substr(at, std::min(piece, count - at))});
    }
  };
  write(reply, size);
  if (!endless.empty()) {
    const auto begin = plan.size();
    write(endless, endless.size());
    plan.push_back({.What = Again, .Back = plan.size() - begin});
  }
  if (end) plan.push_back({.What = *end});
  return plan;
}

}  // namespace ptzsim
