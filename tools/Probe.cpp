#include "Probe.h"

#include <algorithm>
#include <atomic>
#include <functional>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <utility>

#include <ptzd/Error.h>
#include <ptzd/SerialPort.h>
#include "Aside.h"
#include "Connection.h"
#include "ExchangeLog.h"
#include "Makes.h"
#include "Session.h"
#include "Words.h"
#include "common/ASCII.h"
#include "common/Credentials.h"
#include "control/ExchangeCollector.h"
#include "drivers/kit/LineExchange.h"
#include "platform/CodePages.h"
#include "platform/Socket.h"
#include "transport/HTTP.h"
#include "transport/HTTPClient.h"
#include "transport/StringEncoding.h"

namespace ptzctl {

namespace {

using namespace ptzd;
using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;
using Json = nlohmann::ordered_json;

constexpr unsigned AtOnce = 3;  // cameras are small
constexpr Milliseconds DefaultTime = 10000ms;
constexpr Milliseconds RequestTime = 3000ms;
constexpr Milliseconds Grace = 250ms;  // for a request to end by itself when the time is over
constexpr std::int32_t MaxBody = 256 * 1024;
constexpr std::size_t LongestMatch = 100;

/// What a server answers to this it answers to anything.
constexpr std::string_view NobodysPage = "/ptzctl-asks-for-a-page-that-nobody-has";

struct Reply {
  std::int32_t Status = 0;  ///< 0: there is none
  std::string Reason;
  std::string Headers;  ///< those by which a server tells what it is
  std::string Body;     ///< bytes
  std::int32_t ErrorNumber = 0;
  std::string ErrorText = "not asked";
  bool HadConnection = false, WasSlow = false;

  std::string Text() const {
    if (Status == 0) return ErrorText;
    return std::to_string(Status) + (Reason.empty() ? "" : " " + Reason) + ", " +
           std::to_string(Body.size()) + " bytes";
  }
};

/// The lines of a header block that name the server or the realm of its login.
std::string TellingHeaders(std::string_view block) {
  std::string telling;
  while (!block.empty()) {
    const auto end = std::min(block.find("\r\n"), block.size());
    const auto line = block.substr(0, end);
    for (const std::string_view name : {"Server:", "WWW-Authenticate:"})
      if (EqualsIgnoringCase(line.substr(0, name.size()), name)) telling.append(line).append("\n");
    block.remove_prefix(std::min(end + 2, block.size()));
  }
  return telling;
}

struct Questions {
  const DriverClass* Driver;
  std::vector<Reply> Replies;  ///< of the rows of its evidence
};

/// What the threads of a probe share, which may outlive it.
struct Probing {
  std::string Address, Bare;  ///< with and without the login
  std::shared_ptr<ExchangeSink> Exchanges;
  SteadyClock::time_point End;
  std::atomic<bool> LoginRefused = false;
  Reply Baseline;
  bool Speaks = false;  ///< there is a web server

  std::mutex Mutex;  ///< of what the replies fill in
  std::vector<Questions> All;

  bool HasLogin() const { return Bare.size() != Address.size(); }
  Milliseconds Left() const {
    return std::chrono::ceil<Milliseconds>(std::max(End - SteadyClock::now(), SteadyClock::duration{}));
  }
};

/// One client's requests, which have their cookies in common.
class Asker {
 public:
  explicit Asker(Probing& probing, std::string_view driver = {})
      : Probing_(probing),
        Kept_(std::make_shared<ExchangeCollector>(probing.Exchanges)),
        Client_(SystemInternet(), SystemClock(), Teller(Kept_, driver, 0)) {
    Client_.FollowRedirects(false);  // who is asked is this address, and nobody else
    Client_.Progress = [this](std::int32_t received, std::int32_t, bool& cancel) {
      cancel = received > MaxBody || Probing_.Left() == 0ms;
    };
  }

  Reply Get(std::string_view path) {
    Reply reply;
    const auto time = std::min(RequestTime, Probing_.Left());
    if (time == 0ms) reply.ErrorText = "not asked: the time was over";
    if (time == 0ms) return reply;
    Client_.Timeout(static_cast<std::int32_t>(time.count()));
    Client_.ConnectTimeout(static_cast<std::int32_t>(time.count()));
    const bool logsIn = Probing_.HasLogin() && !Probing_.LoginRefused;
    std::optional<Bytes> body;
    try {
      body =
          Client_.GetResource(("http://" + (logsIn ? Probing_.Address : Probing_.Bare)).append(path), "", "");
      reply.Headers = TellingHeaders(Client_.GetHeader());
    } catch (const Error&) {
      // The exchange says why.
    }
    auto all = Kept_->Take();
    const auto told = all.empty() ? Exchange{} : std::move(all.back());
    if (!body) body = EncodeText(told.ReplyBeginning, CodePage1252);  // too long, or broken off
    reply.Status = told.StatusCode;
    reply.Reason = told.Reason;
    reply.Body.assign(body->begin(), body->end());
    reply.ErrorNumber = told.ErrorNumber;
    reply.ErrorText = told.ErrorText.empty() ? "a reply without a status" : told.ErrorText;
    reply.HadConnection = told.HadConnection;
    reply.WasSlow = told.Took > time / 2;
    if (reply.Status == 401 && logsIn) Probing_.LoginRefused = true;
    return reply;
  }

 private:
  Probing& Probing_;
  const std::shared_ptr<ExchangeCollector> Kept_;
  HTTPClient Client_;
};

std::vector<Reply> AskAll(Probing& probing, const DriverClass& driver) {
  Asker asker(probing, driver.ProgID);
  std::vector<Reply> replies;
  for (const auto& row : driver.Data->Evidence)
    replies.push_back(row.Place == Evidence::Places::Body ? asker.Get(row.Request) : Reply{});
  return replies;
}

std::string Shown(std::string_view bytes) {
  std::string text(bytes.substr(0, LongestMatch));
  if (bytes.size() > LongestMatch) text += "...";
  const std::vector<std::uint8_t> raw(text.begin(), text.end());
  return MaskCredentials(DecodeBytes(raw, CodePage1252));
}

/// The line of a text that has a place within it.
std::string_view LineAt(std::string_view text, std::size_t at) {
  const auto begin = at == 0 ? 0 : text.rfind('\n', at - 1) + 1;
  return text.substr(begin, text.find('\n', begin) - begin);
}

Likelihood LikelihoodOf(Evidence::Strengths strength) { return static_cast<Likelihood>(strength); }

/// What the replies to one driver's questions come to.
class Judge {
 public:
  Judge(const Probing& probing, const Questions& questions)
      : Baseline_(probing.Baseline), Driver_(*questions.Driver), Replies_(questions.Replies) {}

  MakeVerdict Verdict() {
    Verdict_.Driver = &Driver_;
    Replies_.resize(Driver_.Data->Evidence.size());
    std::size_t at = 0;
    Headers_ = Baseline_.Headers;
    for (const auto& reply : Replies_) Headers_ += reply.Headers;
    for (const auto& row : Driver_.Data->Evidence) {
      const auto& reply = Replies_[at++];
      if (row.Place == Evidence::Places::Body && !row.Pattern.empty()) JudgeBody(row, reply);
    }
    for (const auto& row : Driver_.Data->Evidence)
      if (row.Place == Evidence::Places::Headers)
        if (const auto found = FindPattern(row.Pattern, Headers_)) TakeHeader(row.Strength, found->first);
    JudgeNames();
    return std::move(Verdict_);
  }

 private:
  void JudgeBody(const Evidence& row, const Reply& reply) {
    Finding finding{.Asked = std::string("GET ").append(row.Request), .Answer = reply.Text(), .Matched = {}};
    const auto found = reply.Status == 200 ? FindPattern(row.Pattern, reply.Body) : std::nullopt;
    if (found && (Baseline_.Status != 200 || Baseline_.Body != reply.Body)) {
      finding.Matched =
          Shown(std::string_view(reply.Body).substr(found->first, found->second - found->first));
      Raise(LikelihoodOf(row.Strength), "answers as it does: " + finding.Matched);
    } else if (reply.Status == 401) {
      const bool alone = Baseline_.Status == 404;
      Raise(Likelihood::Possible, alone ? "has this page, which demands a login" : "demands a login");
    } else if (Verdict_.Likelihood == Likelihood::Not) {
      Denied_ = reply.Status != 0;
      Verdict_.Reason = reply.Status == 200 ? "answers, but not as it does" : reply.Text();
    }
    Verdict_.Findings.push_back(std::move(finding));
  }

  /// Whoever does not know the make's own page is hardly of this kind of it.
  void TakeHeader(Evidence::Strengths strength, std::size_t at) {
    const auto line = Shown(LineAt(Headers_, at));
    Verdict_.Findings.push_back({"headers", "", line});
    Raise(Denied_ ? Likelihood::Possible : LikelihoodOf(strength),
          "says \"" + line + "\"" + (Denied_ ? ", but " + Verdict_.Reason : ""));
  }

  void JudgeNames() {
    for (std::string_view rest = Headers_; !rest.empty();) {
      const auto line = LineAt(rest, 0);
      if (NamesMake(Driver_, line))
        return TakeHeader(Evidence::Strengths::Suggests, Headers_.size() - rest.size());
      rest.remove_prefix(std::min(line.size() + 1, rest.size()));
    }
  }

  void Raise(Likelihood likelihood, std::string reason) {
    if (likelihood <= Verdict_.Likelihood) return;
    Verdict_.Likelihood = likelihood;
    Verdict_.Reason = std::move(reason);
  }

  const Reply& Baseline_;
  const DriverClass& Driver_;
  std::vector<Reply> Replies_;
  std::string Headers_;
  MakeVerdict Verdict_;
  bool Denied_ = false;
};

bool Has(const DriverClass& driver, Evidence::Places place) {
  return std::ranges::any_of(driver.Data->Evidence, [&](const auto& row) { return row.Place == place; });
}

void JudgeSocket(const Probing& probing, MakeVerdict& verdict, ProbeResult& result) {
  const auto url = ParseUrl("probe://" + probing.Bare, SystemInternet());
  for (const auto& row : verdict.Driver->Data->Evidence) {
    if (row.Place != Evidence::Places::Sockets) continue;
    const auto port = url.Port != 0 ? std::to_string(url.Port) : std::string(row.Request);
    const auto where = url.HostName + ":" + port;
    verdict.Findings.push_back({"TCP " + where, "", ""});
    auto& finding = verdict.Findings.back();
    result.Tried += ", TCP port " + port;
    if (url.Port != 0 && probing.Speaks) {
      verdict.Reason = finding.Answer = "a web server is there";
      continue;
    }
    const auto time = std::min(RequestTime, probing.Left());
    const auto socket = SystemSockets().Create();
    const Teller teller(probing.Exchanges, verdict.Driver->ProgID, 0);
    const auto error = TellLine(teller, ExchangeLink::TCP, where, {}, [&] {
      const auto problem = socket->Open();
      return problem != 0 ? problem
                          : socket->Connect(url.HostName, static_cast<std::uint16_t>(std::stoi(port)),
                                            static_cast<std::int32_t>(time.count()));
    });
    verdict.Reason = finding.Answer = error == 0 ? "takes a connection" : SocketErrorText(error);
    if (error != 0) continue;
    finding.Matched = finding.Answer;
    verdict.Likelihood = LikelihoodOf(row.Strength);
    verdict.Reason = "takes a connection; it never answers, so that no more can be told";
  }
}

void JudgeLine(const ProbeSettings& settings, MakeVerdict& verdict, ProbeResult& result) {
  const auto& line = settings.Line;
  const bool isNumber = line.find_first_not_of("0123456789") == std::string::npos;
  const auto number = isNumber ? ReadWholeNumber("--line", line) : 1;
  Finding finding{"line " + line, "open", ""};
  try {
    const auto port = MakeSerialPort(number, isNumber ? DefaultSerialDevice(number) : line);
    const Teller teller(settings.Exchanges, verdict.Driver->ProgID, 0);
    TellLine(teller, ExchangeLink::Serial, line, {}, [&] {
      port->Settings("2400,n,8,1");
      port->PortOpen(true);
      return 0;
    });
    result.Answered = true;
    verdict.Likelihood = Likelihood::Possible;
    verdict.Reason =
        "the line is there; its receivers never answer, so that no more can be told, and nothing "
        "was sent";
  } catch (const Error& error) {
    result.ErrorNumber = error.Number();
    verdict.Reason = finding.Answer = result.ErrorText = error.Description();
  }
  result.Tried = "to open the line " + line;
  verdict.Findings.push_back(std::move(finding));
}

/// What stands between the quotation marks behind `realm=`, and the server's name.
std::pair<std::string, std::string> RealmAndServer(std::string_view headers) {
  std::string realm, server;
  if (const auto found = FindPattern("realm=\"*\"", headers))
    realm = headers.substr(found->first + 7, found->second - found->first - 8);
  if (const auto found = FindPattern("Server:", headers)) {
    const auto line = headers.substr(found->second, headers.find('\n', found->second) - found->second);
    server = line.substr(std::min(line.find_first_not_of(' '), line.size()));
  }
  return {Shown(realm), Shown(server)};
}

/// False where it is of no use to ask more.
bool AskWebServer(const std::shared_ptr<Probing>& probing, ProbeResult& result) {
  const auto ask = [probing] {
    auto reply = Asker(*probing).Get(NobodysPage);
    const std::lock_guard lock(probing->Mutex);
    probing->Baseline = std::move(reply);
  };
  const bool ended = RunAside({ask}, 1, probing->End + Grace);
  const std::lock_guard lock(probing->Mutex);
  const auto& baseline = probing->Baseline;
  probing->Speaks = ended && baseline.Status != 0;
  result.Answered = probing->Speaks;
  std::tie(result.Realm, result.Server) = RealmAndServer(baseline.Headers);
  result.LoginDemanded = baseline.Status == 401;
  result.ErrorNumber = baseline.ErrorNumber;
  result.ErrorText = ended ? baseline.ErrorText : "no reply in time";
  return probing->Speaks || (ended && baseline.HadConnection && !baseline.WasSlow);
}

void AskMakes(const std::shared_ptr<Probing>& probing) {
  std::vector<std::function<void()>> tasks;
  for (std::size_t i = 0; i < probing->All.size(); ++i)
    tasks.push_back([probing, i] {
      auto replies = AskAll(*probing, *probing->All[i].Driver);
      const std::lock_guard lock(probing->Mutex);
      probing->All[i].Replies = std::move(replies);
    });
  RunAside(std::move(tasks), AtOnce, probing->End + Grace);
}

Json JsonOf(const MakeVerdict& verdict) {
  auto evidence = Json::array();
  for (const auto& finding : verdict.Findings)
    evidence.push_back({{"asked", finding.Asked}, {"answer", finding.Answer}, {"matched", finding.Matched}});
  return {{"driver", ShortName(*verdict.Driver)},
          {"verdict", Name(verdict.Likelihood)},
          {"why", verdict.Reason},
          {"evidence", std::move(evidence)}};
}

}  // namespace

std::string Summary(const ProbeResult& result, const std::string& where) {
  if (!result.Answered) return "nothing answers at " + where + "; tried " + result.Tried;
  const auto& first = result.Makes.front();
  if (first.Likelihood >= Likelihood::Likely) {
    std::string text;
    for (const auto& make : result.Makes)
      if (make.Likelihood == first.Likelihood) text += (text.empty() ? "" : " or ") + ShortName(*make.Driver);
    return where + ": " + text + ", " + Name(first.Likelihood);
  }
  const auto realm = result.Realm.empty() ? "" : " (of \"" + result.Realm + "\")";
  if (result.LoginRefused) return where + " refuses this login" + realm + ", so that its make cannot be told";
  if (result.LoginDemanded)
    return where + " demands a login" + realm + ", without which its make cannot be told";
  return where + (first.Likelihood == Likelihood::Possible
                      ? " is possibly one of ours, but nothing says so"
                      : " answers, but as none of the makes that are known here");
}

namespace {

Outcome OutcomeOf(const ProbeResult& result, const std::string& where) {
  Outcome outcome;
  outcome.Operation = "probe";
  outcome.Text = Summary(result, where);
  if (!result.Answered) {
    outcome.Result = Result::NoConnection;
    outcome.ErrorNumber = result.ErrorNumber;
    outcome.ErrorText = result.ErrorText;
  } else if (result.Makes.front().Likelihood < Likelihood::Likely) {
    outcome.Result = Result::Refused;
  }
  auto makes = Json::array();
  for (const auto& make : result.Makes)
    if (result.Answered || make.Likelihood != Likelihood::Not) makes.push_back(JsonOf(make));
  Json values = {{"address", where}};
  if (!result.Server.empty()) values["server"] = result.Server;
  if (!result.Realm.empty()) values["realm"] = result.Realm;
  values["login"] = result.LoginRefused ? "refused" : result.LoginDemanded ? "demanded" : "not demanded";
  values["makes"] = std::move(makes);
  outcome.Values = std::make_shared<const Json>(std::move(values));
  return outcome;
}

}  // namespace

const char* Name(Likelihood likelihood) {
  constexpr const char* names[] = {"not", "possible", "likely", "proven"};
  return names[static_cast<int>(likelihood)];
}

const MakeVerdict* ProbeResult::Best() const {
  if (Makes.empty() || Makes.front().Likelihood < Likelihood::Likely) return nullptr;
  const bool alone = Makes.size() == 1 || Makes[1].Likelihood < Makes.front().Likelihood;
  return alone ? &Makes.front() : nullptr;
}

ProbeResult ProbeCamera(const ProbeSettings& settings) {
  const auto probing = std::make_shared<Probing>();
  probing->Address = CheckedAddress(settings.Address);
  probing->Bare = probing->Address.substr(probing->Address.rfind('@') + 1);
  probing->Exchanges = settings.Exchanges;
  probing->End = SteadyClock::now() + settings.Time;
  const bool onNetwork = settings.Line.empty();
  ProbeResult result;
  std::vector<MakeVerdict> others;
  for (const auto& driver : DriverClasses()) {
    if (settings.Only != nullptr && settings.Only->ProgID != driver.ProgID) continue;
    if (onNetwork && Has(driver, Evidence::Places::Body))
      probing->All.push_back({&driver, {}});
    else
      others.push_back(
          {.Driver = &driver, .Reason = onNetwork ? "is on a serial line" : "is on the network"});
  }
  if (onNetwork) {
    result.Tried = "HTTP";
    if (AskWebServer(probing, result)) AskMakes(probing);
  }

  const std::lock_guard lock(probing->Mutex);
  for (const auto& questions : probing->All) {
    result.Makes.push_back(Judge(*probing, questions).Verdict());
    for (const auto& reply : questions.Replies) result.Answered |= reply.Status != 0;
  }
  for (auto& verdict : others) {
    if (onNetwork && Has(*verdict.Driver, Evidence::Places::Sockets)) JudgeSocket(*probing, verdict, result);
    if (!onNetwork && Has(*verdict.Driver, Evidence::Places::Line)) JudgeLine(settings, verdict, result);
    result.Makes.push_back(std::move(verdict));
  }
  result.LoginRefused = probing->LoginRefused;
  std::ranges::stable_sort(result.Makes, std::greater{}, &MakeVerdict::Likelihood);
  return result;
}

int RunProbe(const Invocation& invocation, Report& report) {
  const auto [address, line] = PlaceOf(invocation);
  const auto log = std::make_shared<ExchangeLog>(invocation.Trace);
  const auto begin = SteadyClock::now();
  const auto result =
      ProbeCamera({.Address = address,
                   .Line = line,
                   .Only = invocation.Driver.empty() ? nullptr : &FindDriver(invocation.Driver),
                   .Time = invocation.Time.value_or(DefaultTime),
                   .Exchanges = log});
  auto outcome = OutcomeOf(result, address.empty() ? line : address.substr(address.rfind('@') + 1));
  outcome.Took = SteadyClock::now() - begin;
  if (outcome.Result == Result::NoConnection)
    outcome.Text += ", for " + Seconds(std::chrono::duration_cast<Milliseconds>(*outcome.Took)) + "; " +
                    std::to_string(result.ErrorNumber) + " " + result.ErrorText;
  outcome.Exchanges = log->Take();
  return ShowOnce(report, outcome);
}

}  // namespace ptzctl
