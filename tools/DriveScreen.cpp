#include "DriveScreen.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#define NCURSES_NOMACROS 1
#include <curses.h>

#include "Words.h"
#include "common/Numbers.h"

namespace ptzctl {

namespace {

using namespace ptzd;

enum Paint : short { Plain = 0, Good = 1, Busy = 2, Warning = 3, Bad = 4, Frame = 5, Faint = 6 };
constexpr std::size_t KeptRows = 100;

struct KeyRow {
  const char *Keys, *Meaning;
};
constexpr KeyRow Keys[] = {
    {"arrows", "move while held"},
    {"y u b n", "diagonally; so do two arrows, Home, End, the number pad"},
    {"+ -", "zoom in and out while held"},
    {"PageUp PageDown", "faster, slower; larger and smaller steps"},
    {"0 to 9", "go to this preset"},
    {"s, then 0 to 9", "save this preset; also Shift and the digit"},
    {"h", "go home"},
    {"space", "stop"},
    {"Ctrl-L", "draw the screen anew"},
    {"q, Esc, Ctrl-C", "stop the camera and quit"},
    {"", ""},
    {"left stick, cross", "move; the stick at a speed that grows with it"},
    {"right stick", "zoom"},
    {"A   B X Y", "stop   go to presets 1 2 3"},
    {"shoulders   Start", "slower, faster   go home"},
};

/// A colour where there are any.
attr_t PaintOf(Paint paint) {
  static const bool hasColours = [] {
    if (!has_colors()) return false;
    const std::pair<Paint, short> inks[] = {
        {Good, COLOR_GREEN}, {Busy, COLOR_CYAN}, {Warning, COLOR_YELLOW}, {Bad, COLOR_RED}};
    for (const auto& [number, ink] : inks) init_pair(number, ink, -1);
    return true;
  }();
  if (paint == Bad) return (hasColours ? COLOR_PAIR(Bad) : A_REVERSE) | A_BOLD;
  if (paint == Faint || paint == Frame) return A_DIM;
  return hasColours ? COLOR_PAIR(paint) : A_NORMAL;
}

Paint PaintOf(Mood mood) {
  switch (mood) {
    case Mood::Busy:
      return Busy;
    case Mood::Doubtful:
      return Warning;
    case Mood::Bad:
      return Bad;
    default:
      return Good;
  }
}

/// At most so many columns; what a camera says may hold anything.
void Put(int row, int column, int width, const std::string& text, attr_t look = A_NORMAL) {
  if (width <= 0) return;
  auto shown = Printable(text);
  // A character has one column here, but for those that few cameras use.
  std::size_t end = 0;
  int columns = 0;
  while (end < shown.size() && columns < width) {
    ++end;
    while (end < shown.size() && (static_cast<unsigned char>(shown[end]) & 0xC0) == 0x80) ++end;
    ++columns;
  }
  const bool isCut = end < shown.size();
  if (isCut) {
    while (end > 0 && (static_cast<unsigned char>(shown[--end]) & 0xC0) == 0x80) {
    }
    shown = shown.substr(0, end) + ">";
  }
  attrset(static_cast<int>(look));
  mvaddstr(row, column, shown.c_str());
  attrset(A_NORMAL);
}

/// What a request says stands at its end.
std::string Ending(const std::string& text, int width) {
  const auto room = static_cast<std::size_t>(std::max(width, 1));
  const auto blank = text.find(' ');
  if (text.size() <= room || blank > room / 2) return text;
  const auto kept = room - blank - 2;
  return text.substr(0, blank + 1) + "<" + text.substr(text.size() - kept);
}

void PutRight(int row, int end, const std::string& text, attr_t look = A_NORMAL) {
  const int width = static_cast<int>(text.size());
  Put(row, end - width, width, text, look);
}

void Box(int row, int column, int height, int width, const std::string& title) {
  attrset(static_cast<int>(PaintOf(Frame)));
  mvhline(row, column + 1, ACS_HLINE, width - 2);
  mvhline(row + height - 1, column + 1, ACS_HLINE, width - 2);
  mvvline(row + 1, column, ACS_VLINE, height - 2);
  mvvline(row + 1, column + width - 1, ACS_VLINE, height - 2);
  mvaddch(row, column, ACS_ULCORNER);
  mvaddch(row, column + width - 1, ACS_URCORNER);
  mvaddch(row + height - 1, column, ACS_LLCORNER);
  mvaddch(row + height - 1, column + width - 1, ACS_LRCORNER);
  attrset(A_NORMAL);
  Put(row, column + 2, width - 4, " " + title + " ", A_BOLD);
}

void DrawKeys(int row, std::span<const KeyRow> keys) {
  int column = 1;
  for (const auto& [key, meaning] : keys) {
    for (const auto& [text, look] :
         {std::pair<std::string, attr_t>(key, A_BOLD), {meaning, PaintOf(Faint)}}) {
      const int width = static_cast<int>(text.size());
      Put(row, column, width, text, look);
      column += width + 1;
    }
    column += 2;
  }
}

std::string Fixed(float value) {
  char text[32];
  std::snprintf(text, sizeof(text), "%9.2f", static_cast<double>(value));
  return text;
}

/// Where a value stands in its range.
void Gauge(int row, int column, int width, const std::optional<ValueRange>& range,
           std::optional<float> value) {
  if (width < 8 || !range || !std::isfinite(range->Least) || !std::isfinite(range->Greatest)) return;
  attrset(static_cast<int>(PaintOf(Faint)));
  mvhline(row, column, ACS_HLINE, width);
  mvaddch(row, column, ACS_LTEE);
  mvaddch(row, column + width - 1, ACS_RTEE);
  attrset(A_NORMAL);
  if (!value) return;
  const double part = std::clamp((*value - range->Least) / (range->Greatest - range->Least), 0.0, 1.0);
  const int at = column + static_cast<int>(std::lround(part * (width - 1)));
  attrset(static_cast<int>(PaintOf(Busy) | A_BOLD));
  mvaddch(row, at, ACS_DIAMOND);
  attrset(A_NORMAL);
}

std::string Milliseconds(std::chrono::nanoseconds time) {
  const double ms = std::chrono::duration<double, std::milli>(time).count();
  return Text(ms < 10 ? std::round(ms * 10) / 10 : std::round(ms)) + " ms";
}

std::string Age(std::chrono::steady_clock::time_point since) {
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - since).count();
  return seconds < 10    ? Text(std::floor(seconds)) + " s ago"
         : seconds < 120 ? Text(std::floor(seconds / 10) * 10) + " s ago"
                         : Text(std::floor(seconds / 60)) + " min ago";
}

std::string KindText(const CameraPosition& position) {
  switch (position.Kind) {
    case PositionKind::Read:
      return "read from the camera " + Age(position.When);
    case PositionKind::Estimated:
      return "worked out from the commands made";
    case PositionKind::Target:
      return "where it was sent";
    default:
      return "unknown; the last that was known";
  }
}

}  // namespace

void RecentExchanges::Add(const Exchange& exchange) {
  constexpr std::string_view arrow = " -> ";
  const auto text = Describe(exchange);
  const auto end = std::min(text.rfind(arrow), text.size());
  Row row{text.substr(0, end), end == text.size() ? "" : text.substr(end + arrow.size()), 1,
          exchange.ErrorNumber != 0 || exchange.StatusCode >= 400};
  // Where that is stands above.
  if (const auto where = "http://" + exchange.Where; row.Request.find(where) != std::string::npos)
    row.Request.erase(row.Request.find(where), where.size());
  if (!Rows_.empty() && row.Request == Rows_.front().Request) {
    row.Times += Rows_.front().Times;
    Rows_.pop_front();
  }
  Rows_.push_front(std::move(row));
  if (Rows_.size() > KeptRows) Rows_.pop_back();
  if (exchange.ErrorNumber != 0) return;
  Last_ = exchange.Took;
  Longest_ = std::max(Longest_, exchange.Took);
  Sum_ += exchange.Took;
  ++Answered_;
}

std::string RecentExchanges::Latency() const {
  if (Answered_ == 0) return "none answered yet";
  return "last " + Milliseconds(Last_) + ", average " + Milliseconds(Sum_ / Answered_) + ", longest " +
         Milliseconds(Longest_);
}

DriveScreen::DriveScreen(const Pilot& pilot, const DriverData& data, const RecentExchanges& exchanges)
    : Pilot_(pilot), Data_(data), Exchanges_(exchanges) {}

bool DriveScreen::Fits() { return getmaxy(stdscr) >= LeastRows && getmaxx(stdscr) >= LeastColumns; }

void DriveScreen::Draw(const DriveView& view) const {
  erase();
  const int rows = getmaxy(stdscr), columns = getmaxx(stdscr);
  if (!Fits()) {
    const auto size = [](int width, int height) {
      return std::to_string(width) + " x " + std::to_string(height);
    };
    Put(0, 0, columns, "This window is too small to drive", A_BOLD);
    Put(1, 0, columns, size(columns, rows) + ", needs " + size(LeastColumns, LeastRows));
    Put(2, 0, columns, "space stops, q quits");
    const auto motion = Pilot_.Motion();
    Put(3, 0, columns, motion.Text, PaintOf(PaintOf(motion.Mood)) | A_BOLD);
    refresh();
    return;
  }
  const int half = columns / 2;
  DrawTitle(view);
  DrawPosition(1, 0, half);
  DrawMotion(1, half, columns - half);
  DrawWish(8, columns, view);
  DrawExchanges(12, rows - 15, columns);
  DrawFoot(rows - 3, columns, view);
  if (view.ShowsHelp) DrawHelp();
  refresh();
}

void DriveScreen::DrawTitle(const DriveView& view) const {
  const int columns = getmaxx(stdscr);
  const auto& state = Pilot_.State();
  attrset(A_REVERSE);
  mvhline(0, 0, ' ', columns);
  const auto link = " link " + std::string(Name(state.Link)) + " ";
  const auto paint = state.Link == LinkHealth::Up ? Good : state.Link == LinkHealth::Lost ? Bad : Warning;
  Put(0, 1, columns - static_cast<int>(link.size()) - 2, "ptzctl drive  " + view.Camera, A_REVERSE | A_BOLD);
  PutRight(0, columns, link, PaintOf(paint) | A_REVERSE | A_BOLD);
}

void DriveScreen::DrawPosition(int row, int column, int width) const {
  Box(row, column, 7, width, "Position");
  const auto& at = Pilot_.State().Position;
  const bool isKnown = at.Kind != PositionKind::Unknown;
  const attr_t look = isKnown ? A_BOLD : PaintOf(Faint);
  const auto axis = [&](int line, const char* name, std::optional<float> value,
                        const std::optional<ValueRange>& range) {
    Put(line, column + 2, 5, name);
    Put(line, column + 7, 9, value ? Fixed(*value) : "        -", look);
    Gauge(line, column + 18, width - 20, range, isKnown ? value : std::nullopt);
  };
  const bool wasNever = !Pilot_.HasKnownPlace();
  axis(row + 1, "pan", wasNever ? std::nullopt : std::optional(at.Pan), Data_.PanRange);
  axis(row + 2, "tilt", wasNever ? std::nullopt : std::optional(at.Tilt), Data_.TiltRange);
  axis(row + 3, "zoom", wasNever ? std::nullopt : at.Zoom, Data_.ZoomRange);
  Put(row + 5, column + 2, width - 4, wasNever ? "unknown" : KindText(at),
      isKnown ? PaintOf(Faint) : PaintOf(Warning));
}

void DriveScreen::DrawMotion(int row, int column, int width) const {
  Box(row, column, 7, width, "Motion");
  const auto motion = Pilot_.Motion();
  const auto paint = PaintOf(motion.Mood);
  Put(row + 1, column + 2, width - 4, motion.Text,
      PaintOf(paint) | A_BOLD | (motion.Mood == Mood::Bad ? A_REVERSE : A_NORMAL));
  Put(row + 2, column + 2, width - 4, motion.Detail, PaintOf(motion.Mood == Mood::Bad ? Bad : Plain));
  if (const auto& state = Pilot_.State(); !state.Connected && state.Capabilities == 0)
    return;  // what it can do is not known yet
  const int count = Pilot_.LevelCount(), level = Pilot_.Level();
  Put(row + 3, column + 2, 5, Pilot_.TurnsInSteps() ? "step" : "speed");
  for (int i = 0; i < count; ++i) {
    attrset(static_cast<int>(i < level ? PaintOf(Busy) | A_REVERSE : PaintOf(Faint)));
    mvaddch(row + 3, column + 8 + i, i < level ? ' ' : ACS_CKBOARD);
  }
  attrset(A_NORMAL);
  Put(row + 3, column + 9 + count, width - 11 - count,
      std::to_string(level) + " of " + std::to_string(count));
  Put(row + 4, column + 2, width - 4, Pilot_.SpeedText());
  Put(row + 5, column + 2, width - 4, Pilot_.SpeedUnit(), PaintOf(Faint));
}

void DriveScreen::DrawWish(int row, int width, const DriveView& view) const {
  Box(row, 0, 4, width, "Last wish");
  const auto wish = Pilot_.LastWish();
  const auto paint = PaintOf(wish.Mood);
  Put(row + 1, 2, width - 4, wish.Text, PaintOf(paint == Good ? Plain : paint) | A_BOLD);
  const bool isTold = !view.Message.empty();
  Put(row + 2, 2, width - 4, isTold ? view.Message : wish.Detail,
      PaintOf(isTold                   ? Warning
              : wish.Mood == Mood::Bad ? Bad
                                       : Plain) |
          (view.IsQuestion ? A_BOLD : A_NORMAL));
}

void DriveScreen::DrawExchanges(int row, int height, int width) const {
  Box(row, 0, height, width, "Exchanges: " + Exchanges_.Latency());
  const auto& state = Pilot_.State();
  int line = row + 1;
  if (state.Link == LinkHealth::Lost && line < row + height - 1)
    Put(line++, 2, width - 4,
        "the link is lost: " + std::to_string(state.ErrorNumber) + " " + state.ErrorText, PaintOf(Bad));
  for (const auto& shown : Exchanges_.Rows()) {
    if (line >= row + height - 1) break;
    auto result = Printable(shown.Result);
    if (shown.Times > 1) result += "  x" + std::to_string(shown.Times);
    const int room = width - 4, least = room / 3;
    const int resultWidth = std::min(static_cast<int>(result.size()), room - least);
    const auto look = PaintOf(shown.Failed ? Bad : line == row + 1 ? Plain : Faint);
    Put(line, 2, room - resultWidth - 2, Ending(shown.Request, room - resultWidth - 2), look);
    Put(line++, width - 2 - resultWidth, resultWidth, result, look);
  }
}

void DriveScreen::DrawFoot(int row, int width, const DriveView& view) const {
  constexpr KeyRow first[] = {
      {"arrows y u b n", "move"}, {"+ -", "zoom"}, {"PgUp PgDn", "speed"}, {"space", "stop"}, {"?", "help"}};
  constexpr KeyRow second[] = {{"0-9", "preset"}, {"s 0-9", "save preset"}, {"h", "home"}, {"q", "quit"}};
  DrawKeys(row, first);
  DrawKeys(row + 1, second);
  Put(row + 2, 1, width - 2, view.Keyboard + "; " + view.Gamepad, PaintOf(Faint));
}

void DriveScreen::DrawHelp() const {
  const int rows = getmaxy(stdscr), columns = getmaxx(stdscr);
  const int count = static_cast<int>(std::size(Keys));
  const int height = std::min(rows, count + 3), width = std::min(columns, 88);
  const int top = (rows - height) / 2, left = (columns - width) / 2;
  for (int row = top; row < top + height; ++row) mvhline(row, left, ' ', width);
  Box(top, left, height, width, "Keys");
  for (int i = 0; i < std::min(count, height - 2); ++i) {
    Put(top + 1 + i, left + 2, 18, Keys[i].Keys, A_BOLD);
    Put(top + 1 + i, left + 21, width - 23, Keys[i].Meaning);
  }
  Put(top + height - 1, left + 2, width - 4, " any key goes back ", PaintOf(Faint));
}

}  // namespace ptzctl
