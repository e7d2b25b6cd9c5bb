#include "simulators/engine/Terminal.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/inotify.h>
#include <termios.h>
#include <unistd.h>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "simulators/engine/Loop.h"
#include "simulators/engine/Session.h"

namespace ptzsim {
namespace {

namespace asio = boost::asio;
namespace fs = std::filesystem;
using Stream = asio::posix::stream_descriptor;
using boost::system::error_code;

constexpr std::pair<speed_t, int> Speeds[] = {
    {B300, 300},   {B600, 600},     {B1200, 1200},   {B2400, 2400},   {B4800, 4800},
    {B9600, 9600}, {B19200, 19200}, {B38400, 38400}, {B57600, 57600}, {B115200, 115200},
};

/// The system hands the last bytes over behind the writer's back, so they may come after the closing.
constexpr std::chrono::milliseconds Settling{20};

int Check(int result, const char* what) {
  if (result < 0) throw std::runtime_error(std::string(what) + ": " + std::strerror(errno));
  return result;
}

Terminal::Settings ReadSettings(int handle) {
  termios mode{};
  Check(::tcgetattr(handle, &mode), "the settings of the terminal cannot be read");
  const auto speed = std::find_if(std::begin(Speeds), std::end(Speeds),
                                  [&](const auto& s) { return s.first == ::cfgetospeed(&mode); });
  return {.Baud = speed == std::end(Speeds) ? 0 : speed->second,
          .StopBits = mode.c_cflag & CSTOPB ? 2 : 1,
          .Raw = !(mode.c_oflag & OPOST) && !(mode.c_lflag & (ECHO | ICANON))};
}

void MakeRaw(int handle) {
  termios mode{};
  Check(::tcgetattr(handle, &mode), "the settings of the terminal cannot be read");
  ::cfmakeraw(&mode);
  Check(::tcsetattr(handle, TCSANOW, &mode), "the terminal cannot be set");
}

}  // namespace

class Terminal::Implementation {
 public:
  Implementation(MessageHandler handler, Options options, RequestLog& log, FaultSwitches& faults)
      : Handler_(std::move(handler)), Options_(std::move(options)), Log_(log), Faults_(faults) {
    Faults_.Serve(Line::Terminal);
    if (Options_.Path.empty()) {
      Folder_ = (fs::temp_directory_path() / "ptzsim-XXXXXX").string();
      if (!::mkdtemp(Folder_.data()))
        throw std::runtime_error("no folder " + Folder_ + " can be made: " + std::strerror(errno));
      Options_.Path = Folder_ + "/line";
    }
    Loop_.Run([this] { Appear(); });
    Watcher_ = Faults_.Watch([this] { Loop_.Run([this] { Apply(); }); });
  }

  ~Implementation() {
    Faults_.Forget(Watcher_);
    Loop_.Run([this] { Vanish(); });
    Loop_.Stop();
    std::error_code ignored;
    if (!Folder_.empty()) fs::remove(Folder_, ignored);
  }

  const std::string& Path() const { return Options_.Path; }

  /// The device's end, nothing while the line has vanished. On the loop's thread.
  std::optional<int> Handle() {
    return Session_ ? std::optional(Session_->Line().native_handle()) : std::nullopt;
  }
  template <class Action>
  void Run(Action action) {
    Loop_.Run(action);
  }

 private:
  using Session = ptzsim::Session<Stream>;

  void Apply() {
    const bool gone = Faults_.IsSet(FaultKind::Refuse);
    if (gone && Session_) Vanish();
    if (!gone && !Session_) Appear();
    if (Session_) Session_->Pause(Faults_.IsSet(FaultKind::NeverRead));
  }

  void Appear() {
    Stream master(Loop_.Context(),
                  Check(::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC), "no pseudo-terminal"));
    master.native_non_blocking(true);  // for `Push`, which writes past Asio
    char name[64];
    if (::grantpt(master.native_handle()) != 0 || ::unlockpt(master.native_handle()) != 0 ||
        ::ptsname_r(master.native_handle(), name, sizeof name) != 0)
      throw std::runtime_error(std::string("no pseudo-terminal: ") + std::strerror(errno));
    // The driver's end is held open here too: the line keeps its settings while nobody has it open.
    Holder_.emplace(Loop_.Context(), Check(::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC), name));
    if (Options_.Raw) MakeRaw(Holder_->native_handle());

    Openings_.emplace(Loop_.Context(), Check(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC), "no inotify"));
    Check(::inotify_add_watch(Openings_->native_handle(), name, IN_OPEN | IN_CLOSE), name);
    Link(name);

    Session::Settings settings{.Admit = [this](const std::string& bytes) { return Admit(bytes); },
                               .Ended = [this](Ending) { HangUp(); }};
    if (Options_.PacedBaud > 0)
      settings.ByteTime = std::chrono::nanoseconds(10'000'000'000 / Options_.PacedBaud);
    Session_ = std::make_shared<Session>(std::move(master), 0, Handler_, Log_, Faults_, std::move(settings));
    Session_->Start(Faults_.IsSet(FaultKind::NeverRead));
    WatchOpenings();
  }

  void Link(const char* target) {
    // What is left over from a run that was killed points nowhere; anything else is somebody's.
    std::error_code error;
    if (fs::is_symlink(Path(), error) && !fs::exists(Path(), error)) fs::remove(Path(), error);
    if (::symlink(target, Path().c_str()) != 0)
      throw std::runtime_error(Path() + " cannot be made: " + std::strerror(errno));
  }

  void Vanish() {
    if (!Session_) return;
    ::unlink(Path().c_str());
    for (; Open_ > 0; --Open_) Log_.CloseConnection();
    std::exchange(Session_, nullptr)->Close();
    Openings_.reset();
    Holder_.reset();
  }

  void HangUp() {
    Vanish();
    try {
      if (!Faults_.IsSet(FaultKind::Refuse)) Appear();
    } catch (const std::runtime_error& error) {
      Log_.AddViolation(std::string("the line did not come back: ") + error.what());
    }
  }

  bool Admit(const std::string& bytes) {
    if (Faults_.Take(FaultKind::Vanish)) {
      HangUp();
      return false;
    }
    if (Options_.Baud == 0) return true;
    const Settings port = ReadSettings(Holder_->native_handle());
    if (port.Baud == Options_.Baud && port.StopBits == 1) return true;
    Log_.AddViolation(std::to_string(bytes.size()) + " bytes came at " + std::to_string(port.Baud) +
                      " baud with " + std::to_string(port.StopBits) + " stop bits, expected are " +
                      std::to_string(Options_.Baud) + " and 1: " + Hex(bytes));
    return false;
  }

  void WatchOpenings() {
    Openings_->async_read_some(asio::buffer(Events_), [this, line = std::weak_ptr(Session_)](
                                                          const error_code& error, std::size_t count) {
      if (error || line.expired() || line.lock() != Session_) return;
      for (std::size_t at = 0; at < count;) {
        inotify_event event;
        std::memcpy(&event, Events_.data() + at, sizeof event);
        at += sizeof event + event.len;
        if (event.mask & IN_OPEN) Opened();
        if (event.mask & IN_CLOSE) Closed();
      }
      WatchOpenings();
    });
  }

  void Opened() {
    ++Open_;
    Session_->SetNumber(Log_.OpenConnection());
  }

  void Closed() {
    const auto timer = std::make_shared<asio::steady_timer>(Loop_.Context(), Settling);
    timer->async_wait([this, timer, line = std::weak_ptr(Session_)](const error_code&) {
      if (line.expired() || line.lock() != Session_ || Open_ == 0) return;
      if (--Open_ == 0) Session_->ReportUnfinished();
      Log_.CloseConnection();
    });
  }

  MessageHandler Handler_;
  Options Options_;
  RequestLog& Log_;
  FaultSwitches& Faults_;
  std::string Folder_;
  int Watcher_ = 0;
  int Open_ = 0;  ///< how often the port is open at the moment
  std::array<char, 4096> Events_{};
  std::shared_ptr<Session> Session_;  ///< none while the line has vanished
  // The loop ends before all that its handlers reach, and the descriptors before the loop.
  Loop Loop_;
  std::optional<Stream> Holder_;
  std::optional<Stream> Openings_;
};

Terminal::Terminal(MessageHandler handler, Options options, RequestLog& log, FaultSwitches& faults)
    : Implementation_(std::make_unique<Implementation>(std::move(handler), std::move(options), log, faults)) {
}
Terminal::~Terminal() = default;

std::string Terminal::Path() const { return Implementation_->Path(); }

std::optional<Terminal::Settings> Terminal::Port() const {
  std::optional<Settings> settings;
  Implementation_->Run([&] {
    if (const auto line = Implementation_->Handle()) settings = ReadSettings(*line);
  });
  return settings;
}

std::size_t Terminal::Push(const std::string& bytes) {
  std::optional<int> line;
  std::size_t pushed = 0;
  int error = 0;
  Implementation_->Run([&] {
    line = Implementation_->Handle();
    while (line && pushed < bytes.size()) {
      const auto count = ::write(*line, bytes.data() + pushed, bytes.size() - pushed);
      if (count < 0) error = errno;
      if (count <= 0) break;
      pushed += static_cast<std::size_t>(count);
    }
  });
  if (!line) throw std::runtime_error(Path() + " has vanished");
  if (error != 0 && error != EAGAIN) throw std::runtime_error(Path() + ": " + std::strerror(error));
  return pushed;
}

nlohmann::json Terminal::State() const {
  const auto port = Port();
  if (!port) return {{"path", Path()}, {"present", false}};
  return {{"path", Path()},
          {"present", true},
          {"baud", port->Baud},
          {"stopbits", port->StopBits},
          {"raw", port->Raw}};
}

}  // namespace ptzsim
