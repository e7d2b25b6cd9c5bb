#include "platform/Terminal.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <string_view>
#include <thread>

namespace ptzd {

namespace {

using namespace std::chrono_literals;

constexpr int Look = 50;  // ms

/// The terminal that the process belongs to; -1 where it has none.
class Terminal {
 public:
  Terminal() : File_(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY)) {}
  ~Terminal() {
    Restore();
    if (File_ >= 0) close(File_);
  }
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  bool IsThere() const { return File_ >= 0; }

  /// From here on every key is read as it comes, and none is shown.
  bool Hide() {
    if (tcgetattr(File_, &Before_) != 0) return false;
    auto hidden = Before_;
    hidden.c_lflag &= ~static_cast<tcflag_t>(ECHO | ECHONL | ICANON | ISIG);
    hidden.c_cc[VMIN] = 1;
    hidden.c_cc[VTIME] = 0;
    IsHidden_ = tcsetattr(File_, TCSAFLUSH, &hidden) == 0;
    return IsHidden_;
  }
  void Restore() {
    if (IsHidden_) tcsetattr(File_, TCSAFLUSH, &Before_);
    IsHidden_ = false;
  }
  /// The signal that a key stands for; 0 for none.
  int SignalOf(char key) const {
    const auto code = static_cast<cc_t>(key);
    if (code == 0) return 0;
    if (code == Before_.c_cc[VINTR]) return SIGINT;
    if (code == Before_.c_cc[VQUIT]) return SIGQUIT;
    return code == Before_.c_cc[VSUSP] ? SIGTSTP : 0;
  }
  bool IsErase(char key) const { return key == '\b' || key == '\x7F' || Is(key, VERASE); }
  bool IsKill(char key) const { return Is(key, VKILL); }
  bool IsEnd(char key) const { return Is(key, VEOF); }

  void Write(std::string_view text) const {
    if (write(File_, text.data(), text.size()) < 0) return;  // then nobody sees the question
  }
  /// The next character; nothing at the end, or when it is over.
  std::optional<char> Read(const std::function<bool()>& isOver) const {
    while (!isOver || !isOver()) {
      pollfd waiting{File_, POLLIN, 0};
      if (poll(&waiting, 1, Look) <= 0) continue;
      char key = 0;
      const auto count = read(File_, &key, 1);
      if (count < 0 && errno == EINTR) continue;
      if (count != 1) return std::nullopt;
      return key;
    }
    return std::nullopt;
  }

 private:
  bool Is(char key, std::size_t which) const {
    return key != 0 && static_cast<cc_t>(key) == Before_.c_cc[which];
  }

  const int File_;
  termios Before_{};
  bool IsHidden_ = false;
};

void EraseLast(std::string& text) {
  while (!text.empty()) {
    const auto byte = static_cast<unsigned char>(text.back());
    text.pop_back();
    if ((byte & 0xC0) != 0x80) return;  // it began a character
  }
}

std::optional<std::string> ReadShown(const Terminal& terminal, const std::function<bool()>& isOver) {
  std::string line;
  while (const auto key = terminal.Read(isOver)) {
    if (*key == '\n') return line;
    line += *key;
  }
  return std::nullopt;
}

std::optional<std::string> ReadHidden(Terminal& terminal, const std::function<bool()>& isOver) {
  std::string line;
  while (const auto key = terminal.Read(isOver)) {
    if (*key == '\n' || *key == '\r') return line;
    if (const int signal = terminal.SignalOf(*key); signal != 0) {
      terminal.Restore();
      terminal.Write("\n");
      kill(getpid(), signal);
      // Whoever handles it notes it soon; otherwise the process has ended, or goes on after a pause.
      for (int i = 0; isOver && !isOver() && i < 20; ++i) std::this_thread::sleep_for(50ms);
      return std::nullopt;
    }
    if (terminal.IsEnd(*key)) {
      if (line.empty()) return std::nullopt;
    } else if (terminal.IsErase(*key)) {
      EraseLast(line);
    } else if (terminal.IsKill(*key)) {
      line.clear();
    } else {
      line += *key;
    }
  }
  return std::nullopt;
}

}  // namespace

bool HasTerminal() { return Terminal().IsThere(); }

std::optional<std::string> AskAtTerminal(const std::string& question, bool echo,
                                         const std::function<bool()>& isOver) {
  Terminal terminal;
  if (!terminal.IsThere() || (!echo && !terminal.Hide())) return std::nullopt;
  terminal.Write(question);
  auto line = echo ? ReadShown(terminal, isOver) : ReadHidden(terminal, isOver);
  if (!echo) terminal.Write("\n");
  return line;
}

}  // namespace ptzd
