#include "Check.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <future>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <system_error>

#include <ptzd/DriverFactory.h>
#include <ptzd/PropertyBag.h>
#include "CheckPage.h"
#include "Checks.h"
#include "Connection.h"
#include "ExchangeLog.h"
#include "LineReader.h"
#include "Session.h"
#include "Words.h"
#include "common/Credentials.h"
#include "common/Numbers.h"
#include "platform/StandardInput.h"
#ifdef _WIN32
#include "ForeignDriver.h"
#endif

namespace ptzctl {

namespace {

using namespace ptzd;
using Json = nlohmann::ordered_json;

/// As long as a camera is stopped and put back after a signal, at most.
constexpr std::chrono::seconds TimeToPutBack(60);

/// A driver to check, and how it is told of its camera.
struct Subject {
  std::string Name, About, Address;
  Bytes Options;
  bool HasLogin = false;
  std::optional<CameraLimits> PanLimits, TiltLimits, ZoomLimits;
  std::function<DriverUnderTest(const Platform&)> Make;
};

/// Limits of the site, as the driver has them.
std::optional<CameraLimits> Turned(const std::optional<CameraLimits>& limits, bool inverted) {
  if (!limits || !inverted) return limits;
  return CameraLimits{-limits->Greatest, -limits->Least};
}

Subject SubjectOf(const Invocation& invocation, const Report& report, const Interruption& interruption) {
  Subject subject;
  std::string address;
#ifdef _WIN32
  if (IsForeign(invocation)) {
    const auto foreign = ForeignOptionsOf(invocation);
    subject.Name = invocation.Driver;
    subject.About = "a COM class of this machine";
    subject.Options = foreign.Contents;
    address = foreign.Address;
    subject.Make = [name = invocation.Driver](const Platform&) { return MakeForeignDriver(name); };
  } else
#endif
  {
    auto settings = SettingsOf(invocation, report, &interruption);
    const auto& driver = FindDriver(settings.Driver);
    subject.Name = driver.ProgID;
    subject.About = "the driver of ptzctl itself";
    subject.PanLimits = Turned(settings.PanLimits, settings.InvertPan);
    subject.TiltLimits = Turned(settings.TiltLimits, settings.InvertTilt);
    subject.ZoomLimits = settings.ZoomLimits;
    subject.Options = settings.Options;
    PropertyBag options;
    options.Contents(subject.Options);
    address = options.Text("Address");
    subject.Make = [&driver, ports = settings.Ports](const Platform& platform) {
      if (ports) UseSerialPortPool(ports);
      return InterfacesOf(driver.Create(platform), driver.Data);
    };
  }
  subject.HasLogin = address.find('@') != std::string::npos;
  subject.Address = !invocation.Line.empty() ? invocation.Line : address.substr(address.rfind('@') + 1);
  return subject;
}

/// A file that takes its name when it is whole. What is no file, as a device, is written to and stays what
/// it is.
class PageFile {
 public:
  explicit PageFile(const std::string& path) : Path_(path) {
    if (path.empty()) return;
    std::error_code isAbsent;
    const auto status = std::filesystem::status(path, isAbsent);
    if (std::filesystem::is_directory(status)) throw UsageError("--html: " + path + " is a folder");
    if (!std::filesystem::exists(status) || std::filesystem::is_regular_file(status)) Draft_ = path + ".part";
    errno = 0;
    File_.open(Draft_.empty() ? path : Draft_, std::ios::binary);
    if (!File_) throw UsageError("--html: " + path + " cannot be written: " + SystemReason());
  }
  ~PageFile() {
    File_.close();
    std::error_code ignored;  // the draft is nobody's
    if (!Draft_.empty()) std::filesystem::remove(Draft_, ignored);
  }
  PageFile(const PageFile&) = delete;
  PageFile& operator=(const PageFile&) = delete;

  /// Why it could not be written; empty where it was.
  std::string Write(const std::string& page) {
    if (!File_.is_open()) return {};
    errno = 0;
    File_ << page;
    if (!File_.flush()) return Path_ + " cannot be written: " + SystemReason();
    File_.close();
    if (Draft_.empty()) return {};
    std::error_code problem;
    std::filesystem::rename(Draft_, Path_, problem);
    if (problem) return Path_ + " cannot be written: " + problem.message();
    Draft_.clear();
    return {};
  }

 private:
  const std::string Path_;
  std::string Draft_;  ///< empty where there is none
  std::ofstream File_;
};

bool Agrees(const Subject& subject, const Invocation& invocation, const Interruption& interruption) {
  std::cerr << "The camera " << Printable(subject.Address)
            << " is going to be moved a little, stopped, and put back"
            << (invocation.Preset ? "; its preset " + std::to_string(*invocation.Preset) + " is overwritten"
                                  : "")
            << ". Go on? [y/N] " << std::flush;
  LineReader reader(interruption);
  const auto answer = reader.Next();
  return answer && (*answer == "y" || *answer == "Y" || *answer == "yes");
}

CheckScope ScopeOf(const Subject& subject, const Invocation& invocation, const Report& report,
                   const Interruption& interruption) {
  CheckScope scope;
  scope.HasLogin = subject.HasLogin;
  scope.Preset = invocation.Preset;
  scope.PanLimits = subject.PanLimits;
  scope.TiltLimits = subject.TiltLimits;
  scope.ZoomLimits = subject.ZoomLimits;
  scope.Moves = invocation.Moves;
  if (scope.Moves) return scope;
  const bool canAsk = !report.IsJSON() && InputIsTerminal();
  scope.Moves = canAsk && Agrees(subject, invocation, interruption);
  if (!scope.Moves) scope.WhyStill = canAsk ? "it was not agreed to" : "it may not be moved (--move)";
  return scope;
}

Json JsonOf(const CheckResult& result) {
  Json figures = Json::array();
  for (const auto& figure : result.Figures)
    figures.push_back({{"name", figure.Name}, {"value", Round(figure.Value, 3)}, {"unit", figure.Unit}});
  return {{"check", Identifier(result.Name)},
          {"finds", result.Finds},
          {"verdict", Identifier(Name(result.Verdict))},
          {"figures", figures},
          {"looks", result.Looks}};
}

std::shared_ptr<const Json> Keep(Json json) { return std::make_shared<const Json>(std::move(json)); }

void Show(Report& report, const CheckResult& result) {
  if (report.IsJSON()) {
    Outcome outcome;
    outcome.Operation = "check";
    outcome.Result = result.Verdict == Verdict::Failed ? Result::Refused : Result::Done;
    outcome.Text = result.Text;
    outcome.Exchanges = result.Exchanges;
    outcome.Took = result.Took;
    outcome.Values = Keep(JsonOf(result));
    return report.Show(outcome);
  }
  constexpr std::size_t nameWidth = 12, verdictWidth = 13;
  auto name = result.Name;
  name.resize(nameWidth, ' ');
  std::string verdict = result.Verdict == Verdict::Failed ? "FAILED" : Name(result.Verdict);
  verdict.resize(verdictWidth, ' ');
  auto text = name + verdict + Printable(result.Text) + '\n';
  if (result.Verdict == Verdict::Failed)
    text += std::string(nameWidth, ' ') + "finds: " + result.Finds + '\n';
  std::string figures;
  for (const auto& figure : result.Figures)
    figures += (figures.empty() ? "" : ", ") + figure.Name + " " + FigureText(figure);
  if (!figures.empty()) text += std::string(nameWidth, ' ') + figures + '\n';
  if (result.Verdict == Verdict::Failed)
    for (const auto& line : WireTexts(result.Exchanges)) text += "  " + line + '\n';
  report.Write(text);
}

void ShowEnd(Report& report, const CheckProtocol& protocol, int signal) {
  Outcome outcome;
  outcome.Operation = "check";
  const int failed = protocol.Count(Verdict::Failed);
  outcome.Result = signal != 0 ? Result::Interrupted : failed != 0 ? Result::Refused : Result::Done;
  outcome.Signal = signal;
  Json counts;
  for (const auto verdict : {Verdict::Passed, Verdict::Failed, Verdict::NotProvable, Verdict::Skipped})
    counts[Identifier(Name(verdict))] = protocol.Count(verdict);
  for (const auto& [name, count] : counts.items()) {
    auto words = name;
    std::ranges::replace(words, '_', ' ');
    outcome.Text += (outcome.Text.empty() ? "" : ", ") + std::to_string(count.get<int>()) + " " + words;
  }
  if (!protocol.Ending.empty()) outcome.Text += "; " + protocol.Ending;
  if (!report.IsJSON()) return report.Write(outcome.Text + '\n');
  Json track = Json::array();
  for (const auto& seen : protocol.Track) {
    Json point = {
        {"s", Round(std::chrono::duration<double>(seen.When - protocol.Track.front().When).count(), 3)},
        {"pan", AsWritten(seen.Pan)},
        {"tilt", AsWritten(seen.Tilt)},
        {"told", seen.TellsHead}};
    if (seen.Zoom) point["zoom"] = AsWritten(*seen.Zoom);
    track.push_back(std::move(point));
  }
  outcome.Values = Keep({{"driver", protocol.Driver},
                         {"address", protocol.Address},
                         {"when", DateText(protocol.When)},
                         {"counts", counts},
                         {"track", track}});
  report.Show(outcome);
}

/// Has a signal wait until the camera is put back.
class PutBackFirst {
 public:
  PutBackFirst(Interruption& interruption, CheckBench& bench) : Interruption_(interruption) {
    Interruption_.OnSignal([this, &bench] {
      bench.Cut();
      Over_.wait_for(TimeToPutBack);
    });
  }
  ~PutBackFirst() {
    Finished();
    Interruption_.OnSignal({});
  }
  PutBackFirst(const PutBackFirst&) = delete;
  PutBackFirst& operator=(const PutBackFirst&) = delete;

  void Finished() {
    if (!std::exchange(IsOver_, true)) Promise_.set_value();
  }

 private:
  Interruption& Interruption_;
  bool IsOver_ = false;
  std::promise<void> Promise_;
  const std::shared_future<void> Over_ = Promise_.get_future().share();
};

}  // namespace

int RunCheck(const Invocation& invocation, Report& report) {
  Interruption interruption;
  PageFile page(invocation.Page);
  Subject subject;
  try {
    subject = SubjectOf(invocation, report, interruption);
  } catch (const Interrupted&) {
    return ExitCodeOf(interruption.Signal());
  }
  const auto scope = ScopeOf(subject, invocation, report, interruption);
  if (interruption.Came()) return ExitCodeOf(interruption.Signal());  // at the question
  const auto log = std::make_shared<ExchangeLog>(
      invocation.Trace,
      invocation.Record.empty()
          ? nullptr
          : std::make_unique<Recording>(invocation.Record, subject.Name, invocation.Options, &report));
  CheckBench bench(subject.Make, log, interruption, invocation.StopTime);
  PutBackFirst putBack(interruption, bench);

  CheckProtocol protocol{.Name = invocation.Camera,
                         .Driver = subject.Name,
                         .Address = subject.Address,
                         .About = subject.About,
                         .When = std::chrono::system_clock::now()};
  CarryOutChecks(bench, subject.Options, scope, interruption, [&](const CheckResult& result) {
    Show(report, result);
    if (report.Signal() != 0) interruption.Note(report.Signal());
    protocol.Results.push_back(result);
  });
  putBack.Finished();
  protocol.Capabilities = CapabilityWordsOf(bench.Driver().Device->Capabilities());
  protocol.Track = bench.Track();
  protocol.Motions = bench.Motions();
  if (interruption.Came()) protocol.Ending = "interrupted before all was checked";
  const auto unwritten = page.Write(CheckPage(protocol));
  ShowEnd(report, protocol, interruption.Signal());
  for (const auto& problem : {unwritten, report.Failure()})
    if (!problem.empty()) report.Warn(problem);
  if (interruption.Came()) return ExitCodeOf(interruption.Signal());
  const bool failed = protocol.Count(Verdict::Failed) != 0 || !unwritten.empty() ||
                      !report.Failure().empty() || !log->RecordingProblem().empty();
  return static_cast<int>(failed ? Result::Refused : Result::Done);
}

}  // namespace ptzctl
