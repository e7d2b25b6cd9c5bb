#include <ptzd/TerminationSignals.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <iterator>
#include <system_error>
#include <thread>
#include <utility>

namespace ptzd {

namespace {

constexpr std::array Signals{SIGINT,    SIGTERM, SIGHUP,  SIGQUIT, SIGPIPE, SIGTSTP, SIGALRM,
                             SIGVTALRM, SIGPROF, SIGUSR1, SIGUSR2, SIGXCPU, SIGXFSZ};

// What the handler writes to; a signal's number is one byte.
std::atomic<int> WriteEnd = -1;

extern "C" void OnTerminationSignal(int number) {
  const int error = errno;
  const auto byte = static_cast<unsigned char>(number);
  // Where the pipe is full, the thread has as many of them to tell already.
  if (write(WriteEnd, &byte, 1) < 0) errno = error;
  errno = error;
}

}  // namespace

class TerminationSignals::Watch {
 public:
  explicit Watch(std::function<void(int)> told) : Told_(std::move(told)) {
    // A handler must not block.
    if (pipe2(Ends_, O_CLOEXEC) != 0 || fcntl(Ends_[1], F_SETFL, O_NONBLOCK) != 0)
      throw std::system_error(errno, std::generic_category(), "signals cannot be watched");
    WriteEnd = Ends_[1];
    Thread_ = std::thread([this] { Run(); });
    struct sigaction action {};
    action.sa_handler = OnTerminationSignal;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    for (std::size_t i = 0; i < Signals.size(); ++i) {
      sigaction(Signals[i], nullptr, &Usual_[i]);
      // One that whoever started the process had ignored, as nohup does, ends nothing. Broken pipes are told
      // all the same: nobody reads what this process has to say.
      if (Usual_[i].sa_handler != SIG_IGN || Signals[i] == SIGPIPE) sigaction(Signals[i], &action, nullptr);
    }
  }

  ~Watch() {
    for (std::size_t i = 0; i < Signals.size(); ++i) sigaction(Signals[i], &Usual_[i], nullptr);
    constexpr unsigned char end = 0;
    while (write(Ends_[1], &end, 1) < 0 && errno == EINTR) {
    }
    Thread_.join();
    close(Ends_[0]);
    close(Ends_[1]);
  }

 private:
  void Run() {
    pollfd watched[] = {{Ends_[0], POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
    while (true) {
      if (poll(watched, std::size(watched), -1) < 0) {
        if (errno == EINTR) continue;
        return;
      }
      unsigned char number = 0;
      if (watched[0].revents != 0 && (read(Ends_[0], &number, 1) <= 0 || number == 0)) return;
      // A terminal that is gone is told by HUP, where whoever started the process wants it to end with that.
      if (number == 0 && watched[1].revents == POLLERR) number = SIGPIPE;
      if (watched[1].revents != 0) watched[1].fd = -1;  // once
      if (number != 0) Told_(number);
    }
  }

  const std::function<void(int)> Told_;
  int Ends_[2] = {-1, -1};
  std::array<struct sigaction, Signals.size()> Usual_{};
  std::thread Thread_;
};

TerminationSignals::TerminationSignals(std::function<void(int signal)> told)
    : Watch_(std::make_unique<Watch>(std::move(told))) {}

TerminationSignals::~TerminationSignals() = default;

}  // namespace ptzd
