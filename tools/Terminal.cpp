#include "Terminal.h"

#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>

#define NCURSES_NOMACROS 1
#include <curses.h>
#include <term.h>
#undef lines
#undef columns

#include "platform/StandardInput.h"
#include "platform/StandardOutput.h"

namespace ptzctl {

namespace {

// What curses has no words for. Terminals that do not know them leave them alone.
constexpr char AskForProtocol[] = "\x1B[?u";
/// All keys as sequences, with their presses, repeats and releases, and what they type.
constexpr char UseProtocol[] = "\x1B[>27u";
constexpr char LeaveProtocol[] = "\x1B[<u";
constexpr char TellFocus[] = "\x1B[?1004h";
constexpr char TellNoFocus[] = "\x1B[?1004l";

constexpr int SequencePause = 50;  // milliseconds within which the rest of a sequence comes
constexpr std::size_t LongestSequence = 64;

void Send(const char* sequence) {
  std::fputs(sequence, stdout);
  std::fflush(stdout);
}

char32_t KeyOf(int code) {
  switch (code) {
    case KEY_UP:
      return KeyUp;
    case KEY_DOWN:
      return KeyDown;
    case KEY_LEFT:
      return KeyLeft;
    case KEY_RIGHT:
      return KeyRight;
    case KEY_HOME:
    case KEY_A1:
      return KeyUpLeft;
    case KEY_END:
    case KEY_LL:
    case KEY_C1:
      return KeyDownLeft;
    case KEY_A3:
      return KeyUpRight;
    case KEY_C3:
      return KeyDownRight;
    case KEY_B2:
      return KeyMiddle;
    case KEY_PPAGE:
      return KeyPageUp;
    case KEY_NPAGE:
      return KeyPageDown;
    default:
      return static_cast<char32_t>(code < KEY_MIN ? code : 0);
  }
}

}  // namespace

Terminal::Terminal() {
  if (!ptzd::InputIsTerminal() || !ptzd::OutputIsTerminal())
    throw NoTerminal("drive needs a terminal for its input and its output; use shell or run without one");
  std::setlocale(LC_CTYPE, "");
  const char* name = std::getenv("TERM");
  const auto named = std::string("the terminal (TERM=") + (name == nullptr ? "" : name) + ")";
  int problem = 0;
  if (name == nullptr || setupterm(name, 1, &problem) != OK) throw NoTerminal(named + " is unknown here");
  if (cursor_address == nullptr || clear_screen == nullptr)
    throw NoTerminal(named + " cannot show a full screen");
  set_escdelay(SequencePause);
  if (newterm(name, stdout, stdin) == nullptr) throw NoTerminal(named + " cannot show a full screen");
  cbreak();
  noecho();
  nonl();
  keypad(stdscr, TRUE);
  curs_set(0);
  if (has_colors()) {
    start_color();
    use_default_colors();
  }
  refresh();
  Send(TellFocus);
  Send(AskForProtocol);
}

Terminal::~Terminal() { Restore(); }

void Terminal::Restore() {
  if (std::exchange(TellsReleases_, false)) Send(LeaveProtocol);
  Send(TellNoFocus);
  flushinp();
  endwin();
}

bool Terminal::IsThere() const { return ptzd::InputIsTerminal(); }

void Terminal::Redraw() { clearok(curscr, TRUE); }

std::optional<KeyEvent> Terminal::Read(std::chrono::milliseconds longest) {
  wtimeout(stdscr, static_cast<int>(longest.count()));
  const int code = wgetch(stdscr);
  if (code == ERR || code == KEY_RESIZE) return std::nullopt;
  auto event = code == KeyEscape ? ReadSequence() : KeyEvent{.Code = KeyOf(code), .Plain = KeyOf(code)};
  if (!event || event->Code == KeyNone) return std::nullopt;
  if (event->Code == KeyOffersProtocol && !TellsReleases_) {
    Send(UseProtocol);
    TellsReleases_ = true;
  }
  if (event->Code < ' ' && event->Code != KeyEscape) {
    event->Control = true;
    event->Code += 'a' - 1;
  }
  event->Told = TellsReleases_;
  return event;
}

/// What curses knows no key for.
std::optional<KeyEvent> Terminal::ReadSequence() {
  wtimeout(stdscr, SequencePause);
  std::string sequence;
  while (sequence.size() < LongestSequence) {
    const int code = wgetch(stdscr);
    if (code == ERR || code >= KEY_MIN) break;
    sequence += static_cast<char>(code);
    const char first = sequence.front();
    if (first != '[' && first != 'O') return std::nullopt;  // a key with Alt
    if (sequence.size() > 1 && code >= '@' && code <= '~') return ReadControlSequence(sequence);
  }
  if (sequence.empty()) return KeyEvent{.Code = KeyEscape, .Plain = KeyEscape};
  return std::nullopt;
}

}  // namespace ptzctl
