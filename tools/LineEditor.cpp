#include "LineEditor.h"

#include <histedit.h>

#include <algorithm>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cwchar>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/StandardInput.h"

namespace ptzctl {

namespace {

constexpr int HistoryLines = 1000;
/// How often it is looked whether ptzctl is to end while nobody types.
constexpr std::chrono::milliseconds Look(50);

std::string CommonBeginning(const std::vector<Completion::Candidate>& candidates) {
  std::string common = candidates.front().Word;
  for (const auto& candidate : candidates) {
    const auto end = std::ranges::mismatch(common, candidate.Word).in1;
    common.erase(end, common.end());
  }
  return common;
}

class Editor final : public LineEditor {
 public:
  Editor(Settings settings, Interruption& interruption)
      : Settings_(std::move(settings)),
        Interruption_(interruption),
        Line_(el_init("ptzctl", stdin, stderr, stderr)),
        History_(history_init()) {
    std::setlocale(LC_CTYPE, "");             // as which it is decided what a character is
    std::setvbuf(stdin, nullptr, _IONBF, 0);  // what is not read yet is to be seen in the descriptor
    HistEvent event;
    history(History_, &event, H_SETSIZE, HistoryLines);
    history(History_, &event, H_SETUNIQUE, 1);
    if (!Settings_.History.empty()) history(History_, &event, H_LOAD, Settings_.History.c_str());

    el_set(Line_, EL_CLIENTDATA, this);
    el_set(Line_, EL_PROMPT, &Prompt);
    el_set(Line_, EL_EDITOR, "emacs");
    el_set(Line_, EL_HIST, history, History_);
    el_set(Line_, EL_GETCFN, &Read);
    el_source(Line_, nullptr);  // the user's own keys
    // Ctrl-C is a key here, so that it ends a line and a motion but not the shell.
    el_set(Line_, EL_SETTY, "-d", "-isig", nullptr);
    Bind(L"ptzctl-complete", L"Complete a word", &CompleteWord, L"^I");
    Bind(L"ptzctl-give-up", L"Give up the line", &GiveUp, L"^C");
    Bind(L"ptzctl-suspend", L"Suspend", &Suspend, L"^Z");
    Bind(L"ptzctl-quit", L"Quit at once", &QuitAtOnce, L"^\\");
  }

  ~Editor() override {
    el_end(Line_);
    history_end(History_);
  }

  std::optional<Line> Next() override {
    IsGivenUp_ = false;
    el_resize(Line_);
    int length = 0;
    const char* read = el_gets(Line_, &length);
    if (IsGivenUp_) return Line{{}, true};
    if (read == nullptr || length <= 0 || Interruption_.Came()) {
      std::fputc('\n', stderr);  // behind the prompt
      return std::nullopt;
    }
    std::string text(read, static_cast<std::size_t>(length));
    while (text.ends_with('\n') || text.ends_with('\r')) text.pop_back();
    Remember(text);
    return Line{std::move(text)};
  }

 private:
  static Editor& Of(EditLine* line) {
    void* editor = nullptr;
    el_get(line, EL_CLIENTDATA, &editor);
    return *static_cast<Editor*>(editor);
  }

  /// Wide, since the library never frees its copies of other names.
  void Bind(const wchar_t* name, const wchar_t* help, unsigned char (*function)(EditLine*, int),
            const wchar_t* key) {
    el_wset(Line_, EL_ADDFN, name, help, function);
    el_wset(Line_, EL_BIND, key, name, nullptr);
  }

  static const char* Prompt(EditLine* line) { return Of(line).Settings_.Prompt.c_str(); }

  /// A character; 0 at the end.
  static int Read(EditLine* line, wchar_t* character) {
    const auto& self = Of(line);
    while (!self.Interruption_.Came()) {
      if (!ptzd::AwaitInput(Look)) continue;
      const auto read = std::fgetwc(stdin);
      if (read != WEOF) {
        *character = static_cast<wchar_t>(read);
        return 1;
      }
      if (std::feof(stdin) != 0) return 0;
      std::clearerr(stdin);  // bytes that are no character
    }
    return 0;
  }

  static unsigned char GiveUp(EditLine* line, int) {
    auto& self = Of(line);
    std::fputs("^C\n", stderr);
    const auto* typed = el_line(line);
    el_cursor(line, static_cast<int>(typed->lastchar - typed->cursor));
    el_deletestr(line, static_cast<int>(typed->lastchar - typed->buffer));
    self.IsGivenUp_ = true;
    return CC_EOF;
  }
  static unsigned char Suspend(EditLine*, int) {
    std::raise(SIGTSTP);
    return CC_NORM;
  }
  static unsigned char QuitAtOnce(EditLine*, int) {
    std::raise(SIGQUIT);
    return CC_NORM;
  }

  static unsigned char CompleteWord(EditLine* line, int) {
    const auto* typed = el_line(line);
    const auto found = Of(line).Settings_.Complete(std::string(typed->buffer, typed->cursor));
    if (found.Candidates.empty()) return CC_REFRESH_BEEP;
    auto word = CommonBeginning(found.Candidates);
    if (found.Candidates.size() == 1 && !word.ends_with('=')) word += ' ';
    if (word.size() > found.Begun.size())
      return el_insertstr(line, word.c_str() + found.Begun.size()) == 0 ? CC_REFRESH : CC_REFRESH_BEEP;
    List(found);
    return CC_REDISPLAY;
  }

  static void List(const Completion& found) {
    std::size_t widest = 0;
    for (const auto& candidate : found.Candidates) widest = std::max(widest, candidate.Word.size());
    std::fputc('\n', stderr);
    for (const auto& [word, about] : found.Candidates)
      std::fprintf(stderr, "  %-*s  %s\n", static_cast<int>(widest), word.c_str(), about.c_str());
  }

  void Remember(const std::string& text) {
    if (text.find_first_not_of(" \t") == std::string::npos) return;
    HistEvent event;
    history(History_, &event, H_ENTER, text.c_str());
    if (Settings_.History.empty()) return;
    std::error_code problem;  // a history that cannot be kept is no reason not to steer
    std::filesystem::create_directories(Settings_.History.parent_path(), problem);
    history(History_, &event, H_SAVE, Settings_.History.c_str());
    using std::filesystem::perms;
    std::filesystem::permissions(Settings_.History, perms::owner_read | perms::owner_write, problem);
  }

  const Settings Settings_;
  Interruption& Interruption_;
  EditLine* const Line_;
  History* const History_;
  bool IsGivenUp_ = false;
};

}  // namespace

std::unique_ptr<LineEditor> LineEditor::Make(Settings settings, Interruption& interruption) {
  if (!ptzd::InputIsTerminal()) return nullptr;
  return std::make_unique<Editor>(std::move(settings), interruption);
}

}  // namespace ptzctl
