#include "CheckPage.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <iomanip>
#include <sstream>

#include <ptzd/Version.h>
#include "ExchangeLog.h"
#include "Words.h"
#include "common/Numbers.h"

namespace ptzctl {

namespace {

using namespace ptzd;
using std::chrono::steady_clock;

constexpr char Style[] = R"css(
:root{--paper:#fff;--ink:#1a2027;--soft:#5b6673;--line:#d9dee4;--band:#eef2f6;--pan:#0b62c4;--tilt:#b2480b;--zoom:#5b3fa8;
--passed:#17733a;--failed:#b3161b;--doubt:#8a5a00;--skipped:#5b6673;--passed-bg:#e5f4ea;--failed-bg:#fbe6e6;--doubt-bg:#fbf0d9;--skipped-bg:#eef0f3}
@media (prefers-color-scheme:dark){:root{--paper:#14181d;--ink:#e6eaef;--soft:#9aa6b3;--line:#323a44;--band:#1e252d;--pan:#6cb0ff;--tilt:#f0975c;--zoom:#b7a1ff;
--passed:#6fd394;--failed:#ff8a8a;--doubt:#eec06a;--skipped:#9aa6b3;--passed-bg:#173424;--failed-bg:#41191c;--doubt-bg:#3a2d12;--skipped-bg:#262d35}}
@media print{:root{--paper:#fff;--ink:#000;--soft:#444;--line:#bbb;--band:#f0f2f5;--pan:#0b62c4;--tilt:#b2480b;--zoom:#5b3fa8;
--passed:#0f5a2b;--failed:#a01015;--doubt:#704900;--skipped:#444;--passed-bg:#fff;--failed-bg:#fff;--doubt-bg:#fff;--skipped-bg:#fff}
body{padding:0!important;font-size:9.5pt!important;max-width:none!important}.badge,.sum b{border:1px solid currentColor}section,tr,figure{break-inside:avoid}}
@page{size:A4;margin:16mm 15mm}
*{box-sizing:border-box}
html{background:var(--paper)}
body{margin:0 auto;max-width:960px;padding:32px 24px;background:var(--paper);color:var(--ink);font:15px/1.45 system-ui,"Segoe UI",Roboto,"DejaVu Sans",Arial,sans-serif}
header{display:flex;flex-wrap:wrap;gap:12px 24px;justify-content:space-between;align-items:flex-end;border-bottom:2px solid var(--ink);padding-bottom:12px}
h1{font-size:1.55em;line-height:1.2;margin:0}h2{font-size:1.1em;margin:28px 0 8px}
header p{margin:4px 0 0;color:var(--soft)}
.verdict{font-weight:700;font-size:1.1em;padding:6px 14px;border-radius:4px;border:1px solid currentColor;white-space:nowrap}
.passed{color:var(--passed);background:var(--passed-bg)}.failed{color:var(--failed);background:var(--failed-bg)}
.not_provable{color:var(--doubt);background:var(--doubt-bg)}.skipped{color:var(--skipped);background:var(--skipped-bg)}
dl{display:grid;grid-template-columns:max-content 1fr;gap:4px 20px;margin:16px 0}dt{color:var(--soft)}dd{margin:0;overflow-wrap:anywhere}
.sum{display:flex;flex-wrap:wrap;gap:8px;margin:16px 0 0;padding:0;list-style:none}.sum b{display:inline-block;padding:3px 10px;border-radius:4px;font-weight:600}
table{width:100%;border-collapse:collapse}th{text-align:left;font-weight:600;color:var(--soft);font-size:.85em;border-bottom:1px solid var(--ink);padding:4px 8px}
td{vertical-align:top;padding:9px 8px;border-bottom:1px solid var(--line)}td:first-child,th:first-child{padding-left:0}td:last-child,th:last-child{padding-right:0}
.no{color:var(--soft);width:1.6em;text-align:right}.name{font-weight:600;white-space:nowrap}.state{width:8.2em}
.badge{display:inline-block;padding:2px 8px;border-radius:4px;font-weight:600;font-size:.87em;white-space:nowrap}
.text{overflow-wrap:anywhere}.finds{color:var(--soft);font-size:.87em;margin:2px 0 0}
.figures{display:flex;flex-wrap:wrap;gap:2px 18px;margin:6px 0 0;padding:0;list-style:none;font-variant-numeric:tabular-nums;font-size:.9em}.figures span{color:var(--soft)}
.wire{margin:6px 0 0;padding:0;list-style:none;font:.76em/1.45 ui-monospace,"DejaVu Sans Mono",Consolas,monospace;color:var(--soft)}.wire li{overflow-wrap:anywhere;padding-left:1.2em;text-indent:-1.2em}
figure{margin:0}svg{display:block;width:100%;height:auto}svg text{font:11px system-ui,"Segoe UI",Roboto,"DejaVu Sans",Arial,sans-serif;fill:var(--soft);font-variant-numeric:tabular-nums}
svg .grid{stroke:var(--line);stroke-width:1}svg .band{fill:var(--band)}svg .other{fill:var(--band);fill-opacity:.45}svg .mark{font-weight:600;fill:var(--ink)}
svg .lane{font-weight:600;font-size:12px}svg polyline{fill:none;stroke-width:1.8;stroke-linejoin:round}
.pan{stroke:var(--pan)}.tilt{stroke:var(--tilt)}.zoom{stroke:var(--zoom)}svg text.pan{fill:var(--pan);stroke:none}svg text.tilt{fill:var(--tilt);stroke:none}svg text.zoom{fill:var(--zoom);stroke:none}
svg circle{stroke:none}svg circle.pan{fill:var(--pan)}svg circle.tilt{fill:var(--tilt)}svg circle.zoom{fill:var(--zoom)}.guess{stroke-dasharray:5 4}
figcaption{color:var(--soft);font-size:.87em;margin-top:6px}figcaption ol{columns:3;column-gap:24px;margin:6px 0 0;padding-left:1.6em}figcaption li{break-inside:avoid}
.sign{display:grid;grid-template-columns:repeat(3,1fr);gap:24px;margin-top:56px;break-inside:avoid}.sign div{border-top:1px solid var(--ink);padding-top:4px;color:var(--soft);font-size:.87em}
@media (max-width:560px){.finds,.no{display:none}figcaption ol{columns:1}.state{width:auto}}
)css";

/// With a capital at its beginning.
std::string Sentence(std::string text) {
  if (!text.empty() && text.front() >= 'a' && text.front() <= 'z') text.front() -= 'a' - 'A';
  return MarkupText(text);
}

const char* Sign(Verdict verdict) {
  switch (verdict) {
    case Verdict::Passed:
      return "\u2713";
    case Verdict::Failed:
      return "\u2717";
    case Verdict::NotProvable:
      return "?";
    case Verdict::Skipped:
      return "\u2013";
  }
  return "";
}

std::string Short(double value) { return Text(Round(value, 2)); }

// The picture of the track: a lane for each quantity over the same time, and a band for each motion.

constexpr double Width = 900, Left = 64, Right = 14, Top = 26, LaneHeight = 112, LaneGap = 30, Bottom = 34;

struct Point {
  double Seconds = 0, Value = 0;
  bool Told = false;
};

struct Lane {
  const char* Name;
  const char* Unit;
  std::vector<Point> Points;
  double Least = 0, Greatest = 0;
};

/// Steps of 1, 2 or 5 times a power of ten, about so many.
double TickStep(double span, int count) {
  const double raw = span / count;
  const double power = std::pow(10, std::floor(std::log10(raw)));
  for (const double factor : {1.0, 2.0, 5.0})
    if (raw <= factor * power) return factor * power;
  return 10 * power;
}

std::vector<Lane> LanesOf(const std::vector<Sighting>& track) {
  std::vector<Lane> lanes{{"pan", "\u00B0", {}}, {"tilt", "\u00B0", {}}, {"zoom", "", {}}};
  double pan = 0;
  for (const auto& seen : track) {
    const double seconds = std::chrono::duration<double>(seen.When - track.front().When).count();
    // Beyond half a turn the line goes on where it is.
    pan = lanes[0].Points.empty() ? seen.Pan : pan + std::remainder(seen.Pan - pan, 360);
    lanes[0].Points.push_back({seconds, pan, seen.TellsHead});
    lanes[1].Points.push_back({seconds, seen.Tilt, seen.TellsHead});
    if (seen.Zoom) lanes[2].Points.push_back({seconds, *seen.Zoom, seen.TellsZoom});
  }
  std::erase_if(lanes, [](const Lane& lane) { return lane.Points.empty(); });
  for (auto& lane : lanes) {
    const auto [least, greatest] = std::ranges::minmax(lane.Points, {}, &Point::Value);
    const double slack = std::max(0.12 * (greatest.Value - least.Value), lane.Unit[0] != 0 ? 1.0 : 0.1);
    lane.Least = least.Value - slack;
    lane.Greatest = greatest.Value + slack;
  }
  return lanes;
}

class Picture {
 public:
  explicit Picture(const CheckProtocol& protocol) : Protocol_(protocol), Lanes_(LanesOf(protocol.Track)) {
    const auto count = static_cast<double>(Lanes_.size());
    End_ = Top + count * LaneHeight + (count - 1) * LaneGap;
    Seconds_ = std::max(Lanes_.front().Points.back().Seconds, 1.0);
    for (const auto& motion : protocol.Motions) Seconds_ = std::max(Seconds_, At(motion.Ended));
  }

  std::string Draw() {
    Out_ << "<svg viewBox=\"0 0 " << Width << ' ' << End_ + Bottom
         << "\" role=\"img\" aria-label=\"Pan, tilt and zoom over time\">";
    DrawBands();
    DrawTime();
    double top = Top;
    for (const auto& lane : Lanes_) {
      DrawLane(lane, top);
      top += LaneHeight + LaneGap;
    }
    Out_ << "</svg>";
    return Out_.str();
  }

 private:
  double At(steady_clock::time_point when) const {
    return std::max(0.0, std::chrono::duration<double>(when - Protocol_.Track.front().When).count());
  }
  double X(double seconds) const { return Left + (Width - Left - Right) * seconds / Seconds_; }

  void DrawBands() {
    constexpr double narrow = 14;
    double written = 0;
    int number = 0;
    for (const auto& motion : Protocol_.Motions) {
      const double from = X(At(motion.Began)), to = std::max(X(At(motion.Ended)), from + 1.5);
      Out_ << "<rect class=\"" << (number % 2 == 0 ? "band" : "other") << "\" x=\"" << Short(from)
           << "\" y=\"" << Top << "\" width=\"" << Short(to - from) << "\" height=\"" << End_ - Top << "\"/>";
      const double middle = std::max((from + to) / 2, written + narrow);
      written = middle;
      Out_ << "<text class=\"mark\" text-anchor=\"middle\" x=\"" << Short(middle) << "\" y=\"" << Top - 8
           << "\">" << ++number << "</text>";
    }
  }
  void DrawTime() {
    const double step = TickStep(Seconds_, 8);
    for (double s = 0; s <= Seconds_; s += step) {
      const auto x = Short(X(s));
      Out_ << "<line class=\"grid\" x1=\"" << x << "\" x2=\"" << x << "\" y1=\"" << Top << "\" y2=\"" << End_
           << "\"/><text text-anchor=\"middle\" x=\"" << x << "\" y=\"" << End_ + 16 << "\">" << Short(s)
           << "</text>";
    }
    Out_ << "<text text-anchor=\"end\" x=\"" << Width - Right << "\" y=\"" << End_ + 30
         << "\">seconds</text>";
  }
  void DrawLane(const Lane& lane, double top) {
    const auto y = [&](double value) {
      return top + LaneHeight * (lane.Greatest - value) / (lane.Greatest - lane.Least);
    };
    const double step = TickStep(lane.Greatest - lane.Least, 4);
    for (double v = std::ceil(lane.Least / step) * step; v <= lane.Greatest; v += step)
      Out_ << "<line class=\"grid\" x1=\"" << Left << "\" x2=\"" << Width - Right << "\" y1=\"" << Short(y(v))
           << "\" y2=\"" << Short(y(v)) << "\"/><text text-anchor=\"end\" x=\"" << Left - 8 << "\" y=\""
           << Short(y(v) + 4) << "\">" << Short(v) << lane.Unit << "</text>";
    Out_ << "<text class=\"lane " << lane.Name << "\" x=\"" << Left + 6 << "\" y=\"" << Short(top + 12)
         << "\">" << lane.Name << "</text><polyline class=\"" << lane.Name
         << (lane.Points.front().Told ? "" : " guess") << "\" points=\"";
    for (const auto& point : lane.Points)
      Out_ << Short(X(point.Seconds)) << ',' << Short(y(point.Value)) << ' ';
    Out_ << "\"/>";
    for (const auto& point : lane.Points)
      Out_ << "<circle class=\"" << lane.Name << "\" r=\"1.8\" cx=\"" << Short(X(point.Seconds)) << "\" cy=\""
           << Short(y(point.Value)) << "\"/>";
  }

  const CheckProtocol& Protocol_;
  const std::vector<Lane> Lanes_;
  double End_ = 0, Seconds_ = 1;
  std::ostringstream Out_;
};

void WriteTrack(std::ostream& out, const CheckProtocol& protocol) {
  if (protocol.Track.empty()) return;
  out << "<section><h2>The head's track</h2><figure>" << Picture(protocol).Draw() << "<figcaption>";
  out << (protocol.Track.front().TellsHead
              ? "Each dot is a position as it was read."
              : "This camera does not tell where it is: the line is what its driver works out.");
  if (!protocol.Motions.empty()) {
    out << " A shaded band is a motion, from its sending until rest:<ol>";
    for (const auto& motion : protocol.Motions) out << "<li>" << MarkupText(motion.What) << "</li>";
    out << "</ol>";
  }
  out << "</figcaption></figure></section>";
}

void WriteResult(std::ostream& out, const CheckResult& result, int number) {
  out << "<tr><td class=\"no\">" << number << "</td><td class=\"name\">" << MarkupText(result.Name)
      << "</td><td class=\"state\"><span class=\"badge " << Identifier(Name(result.Verdict)) << "\">"
      << Sign(result.Verdict) << ' ' << Name(result.Verdict) << "</span></td><td><div class=\"text\">"
      << Sentence(result.Text) << "</div><p class=\"finds\">Finds " << MarkupText(result.Finds) << ".</p>";
  if (!result.Figures.empty()) {
    out << "<ul class=\"figures\">";
    for (const auto& figure : result.Figures)
      out << "<li><span>" << MarkupText(figure.Name) << "</span> " << MarkupText(FigureText(figure))
          << "</li>";
    out << "</ul>";
  }
  if (!result.Exchanges.empty() || result.Looks > 1) {
    out << "<ul class=\"wire\">";
    for (const auto& text : WireTexts(result.Exchanges)) out << "<li>" << MarkupText(text) << "</li>";
    if (result.Looks > 1) out << "<li>\u2026 and the position read " << result.Looks << " times</li>";
    out << "</ul>";
  }
  out << "</td></tr>";
}

void WriteRow(std::ostream& out, const char* name, const std::string& value) {
  if (!value.empty()) out << "<dt>" << name << "</dt><dd>" << MarkupText(value) << "</dd>";
}

std::string Joined(const std::vector<std::string>& words) {
  std::string text;
  for (const auto& word : words) text += (text.empty() ? "" : ", ") + word;
  std::ranges::replace(text, '_', ' ');
  return text;
}

}  // namespace

int CheckProtocol::Count(Verdict verdict) const {
  return static_cast<int>(std::ranges::count(Results, verdict, &CheckResult::Verdict));
}

std::string DateText(std::chrono::system_clock::time_point when) {
  const auto seconds = std::chrono::system_clock::to_time_t(when);
  std::ostringstream text;
  text << std::put_time(std::localtime(&seconds), "%Y-%m-%d %H:%M:%S %z");
  return text.str();
}

std::string FigureText(const Figure& figure) {
  return Short(figure.Value) + (figure.Unit.empty() ? "" : " " + figure.Unit);
}

std::vector<std::string> WireTexts(const std::vector<Exchange>& exchanges) {
  constexpr std::ptrdiff_t ofOneTry = 4;  // lines, at most
  struct Line {
    std::string Untimed, Text;
    int Times = 1;
  };
  std::vector<Line> lines;
  for (auto exchange : exchanges) {
    auto text = ExchangeText(exchange);
    exchange.Took = std::chrono::nanoseconds(1);
    const auto untimed = ExchangeText(exchange);
    const auto recent = lines.end() - std::min(std::ssize(lines), ofOneTry);
    const auto same = std::find_if(recent, lines.end(), [&](const Line& l) { return l.Untimed == untimed; });
    if (same != lines.end())
      ++same->Times;
    else
      lines.push_back({untimed, std::move(text)});
  }
  std::vector<std::string> texts;
  for (auto& line : lines)
    texts.push_back(line.Text + (line.Times > 1 ? " x" + std::to_string(line.Times) : ""));
  return texts;
}

std::string CheckPage(const CheckProtocol& protocol) {
  const int failed = protocol.Count(Verdict::Failed);
  std::ostringstream out;
  const auto camera = !protocol.Name.empty()      ? protocol.Name
                      : !protocol.Address.empty() ? protocol.Address
                                                  : protocol.Driver;
  const auto title = "Commissioning report: " + protocol.Driver +
                     (protocol.Address.empty() ? "" : " at " + protocol.Address);
  out << "<!DOCTYPE html><html lang=\"en\"><head><meta charset=\"utf-8\"><meta name=\"viewport\" "
         "content=\"width=device-width,initial-scale=1\"><meta name=\"color-scheme\" content=\"light "
         "dark\"><title>"
      << MarkupText(title) << "</title><style>" << Style << "</style></head><body><header><div><h1>Camera "
      << "commissioning report</h1><p>" << MarkupText(camera) << " \u00B7 "
      << MarkupText(DateText(protocol.When)) << "</p></div><div class=\"verdict "
      << (failed != 0
              ? "failed\">" + std::to_string(failed) + (failed == 1 ? " check failed" : " checks failed")
          : !protocol.Ending.empty() ? std::string("not_provable\">Not complete")
                                     : std::string("passed\">No check failed"))
      << "</div></header><dl>";
  WriteRow(out, "Camera", protocol.Name);
  WriteRow(out, "Address", protocol.Address);
  WriteRow(out, "Driver", protocol.Driver + ", " + protocol.About);
  WriteRow(out, "Capabilities", Joined(protocol.Capabilities));
  WriteRow(out, "Checked", DateText(protocol.When) + ", by ptzctl " PTZD_VERSION);
  WriteRow(out, "Ended", protocol.Ending);
  out << "</dl><ul class=\"sum\">";
  for (const auto verdict : {Verdict::Passed, Verdict::Failed, Verdict::NotProvable, Verdict::Skipped})
    out << "<li><b class=\"" << Identifier(Name(protocol.Count(verdict) != 0 ? verdict : Verdict::Skipped))
        << "\">" << protocol.Count(verdict) << ' ' << Name(verdict) << "</b></li>";
  out << "</ul>";
  WriteTrack(out, protocol);
  out << "<h2>Checks</h2><table><thead><tr><th class=\"no\">#</th><th>Check</th><th>Result</th><th>What was "
         "found, "
         "and what went over the wire</th></tr></thead><tbody>";
  int number = 0;
  for (const auto& result : protocol.Results) WriteResult(out, result, ++number);
  out << "</tbody></table><div class=\"sign\"><div>Place and date</div><div>Commissioned "
         "by</div><div>Accepted "
         "by</div></div></body></html>\n";
  return out.str();
}

}  // namespace ptzctl
