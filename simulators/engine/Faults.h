#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ptzsim {

/// What can go wrong on the wire, named after what the client sees. The text names, the values each takes and
/// the value meant when none is given stand in one table in Faults.cpp; `FaultHelp` prints it.
enum class FaultKind {
  // The listener, from the moment the switch is set until it is cleared. Connections that are open are
  // closed.
  Refuse,
  FullAcceptQueue,
  // A new connection.
  CloseOnAccept,
  // A message on its way in.
  Vanish,
  // What the other side sends, from the moment the switch is set until it is cleared.
  NeverRead,
  // The bytes of a reply, on any kind of line.
  DelayReply,
  StaySilent,
  CloseBeforeReply,
  CloseInMidReply,
  ResetInMidReply,
  StallInMidBody,
  SplitReply,
  PauseBetweenPieces,
  Drip,
  GarbageBeforeReply,
  CloseAfterReply,
  CloseOnReuse,
  // HTTP.
  WrongStatus,
  NoReason,
  BareBody,
  ShortBody,
  LongBody,
  NoContentLength,
  Chunked,
  ChunkedCutOff,
  OversizedBody,
  LongHeaders,
  EndlessHeaders,
  EndlessBody,
  EndlessChunks,
  EndlessParts,
  Continue,
  ResetOnReuse,
  LineFeedHeaders,
  ControlHeaders,
  ControlBody,
  OtherNumbers,
  XMLBomb,
  EmptyBody,
  NoContent,
  Redirect,
  AnsweredBy,
  Cookie,
  Basic,
  Digest,
  DigestStale,
};

/// What a device hangs on. A fault that means nothing there is refused.
enum class Line : unsigned { HTTP = 1, TCP = 2, Terminal = 4 };

struct Fault {
  FaultKind Kind;
  std::int64_t Number = Unset;  ///< for kinds that take a number
  std::string Text{};           ///< for kinds that take a text
  int Times = 0;         ///< for the next so many requests (connections for CloseOnAccept); 0: until cleared
  std::string Target{};  ///< only for requests whose target contains this text; empty: for all
  int After = 0;         ///< only once so many of them have passed

  static constexpr std::int64_t Unset = -1;  ///< the kind's own default
};

/// Reads "[after=N,][next=N,][at=TEXT,]NAME[=VALUE]", for example "next=2,at=ptz.cgi,delay=300". The value
/// reaches to the end of the text. Throws std::invalid_argument with a message that names what is wrong.
Fault ParseFault(std::string_view text);

/// One line per fault of that kind of line: name, value, effect.
std::string FaultHelp(Line line);

/// The faults a reply has been dealt.
class FaultSet {
 public:
  explicit FaultSet(std::vector<Fault> faults = {}) : Faults_(std::move(faults)) {}

  void Add(const std::vector<Fault>& faults) { Faults_.insert(Faults_.end(), faults.begin(), faults.end()); }
  const Fault* Find(FaultKind kind) const;
  bool Has(FaultKind kind) const { return Find(kind) != nullptr; }
  /// The number of that fault; nothing when it is not in the set or leaves the number to the kind's default.
  std::optional<std::int64_t> Number(FaultKind kind) const;

 private:
  std::vector<Fault> Faults_;
};

/// The switches of one device. All members may be called from any thread, before a server starts and while it
/// runs; not while one is being destroyed.
class FaultSwitches {
 public:
  /// Adds a fault; when the call returns it is in force. Different kinds add up. Of several of one kind the
  /// first that fits a request serves it. Throws std::invalid_argument for a combination that cannot be and
  /// for a fault that the device's kind of line does not know.
  void Set(Fault fault);
  void Set(std::string_view text) { Set(ParseFault(text)); }
  void Clear();
  void Clear(FaultKind kind);

  bool IsSet(FaultKind kind) const;

  /// For servers: what they serve; HTTP unless told otherwise.
  void Serve(Line line);
  /// For servers: the faults for a request to `target`, each counted off by one.
  FaultSet TakeForRequest(std::string_view target);
  /// For servers: whether a fault that acts before there is a request acts now, counted off by one.
  bool Take(FaultKind kind);
  /// For servers: calls `changed` after each change, on the thread that made it, until `Forget` of the
  /// result.
  int Watch(std::function<void()> changed);
  void Forget(int watcher);

 private:
  void Changed();

  mutable std::mutex Mutex_;
  Line Line_ = Line::HTTP;
  std::vector<Fault> Faults_;
  std::mutex WatchersMutex_;
  std::map<int, std::function<void()>> Watchers_;
  int LastWatcher_ = 0;
};

/// What a line is told to do for one reply, step by step.
struct Step {
  enum class Kind {
    Write,       ///< send `Bytes`, in one write of its own
    Wait,        ///< let `Time` pass
    Hold,        ///< do nothing more until the other side closes
    Close,       ///< close in the usual way
    Reset,       ///< close with a reset, where the line knows such a thing
    Again,       ///< go back to the step `Back` steps before
    DieOnReuse,  ///< stay open, but close as soon as the next byte arrives
  };
  Kind What;
  std::string Bytes{};
  std::chrono::milliseconds Time{};
  std::size_t Back = 0;
};
using Plan = std::vector<Step>;

/// The plan for sending `reply` under the faults that concern bytes and time. `bodyAt` is where the payload
/// begins in it (0 on lines without headers); `close` ends the plan with closing the line. `endless`, where
/// there is any, follows the reply again and again until the other side closes.
Plan PlanReply(std::string reply, std::size_t bodyAt, bool close, const FaultSet& faults,
               const std::string& endless = {});

}  // namespace ptzsim
