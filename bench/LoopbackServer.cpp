#include "LoopbackServer.h"

#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>

#include "Process.h"

namespace {

constexpr const char* Parameters =
    "root.PTZ.Support.S1.AbsolutePan=true\nroot.PTZ.Support.S1.AbsoluteTilt=true\n"
    "root.PTZ.Support.S1.AbsoluteZoom=true\n";
constexpr const char* Position = "pan=0\r\ntilt=0\r\nzoom=1\r\n";
constexpr const char* SonySystem = "CGIVersion=3.05&PanTiltFunc=1&ZoomFunc=1&ContinuousPanTiltZoomFunc=1\r\n";
constexpr const char* SonyModel = "PanTiltMaxVelocity=24&ModelName=SNC-RZ50P\r\n";

void Check(bool ok, const char* what) {
  if (!ok) throw std::system_error(errno, std::generic_category(), what);
}

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

std::chrono::steady_clock::rep Now() { return std::chrono::steady_clock::now().time_since_epoch().count(); }

/// With the body that it announces.
bool IsWhole(const std::string& request) {
  constexpr std::string_view length = "\r\nContent-Length: ";
  const auto end = request.find("\r\n\r\n");
  if (end == std::string::npos) return false;
  const auto announced = request.find(length);
  const auto body = announced < end ? std::stoul(request.substr(announced + length.size())) : 0;
  return request.size() == end + 4 + body;
}

bool IsStop(const std::string& request) {
  return request.find("continuouspantiltmove=0,0") != std::string::npos ||
         request.find("ContinuousPanTiltZoom=0,0,0") != std::string::npos;
}

std::string ReplyTo(const std::string& request) {
  std::string body;
  if (request.find("/param.cgi?") != std::string::npos)
    body = Parameters;
  else if (request.find("query=position") != std::string::npos)
    body = Position;
  else if (request.find("inq=system ") != std::string::npos)
    body = SonySystem;
  else if (request.find("inq=sysinfo ") != std::string::npos)
    body = SonyModel;
  return "HTTP/1.1 200 OK\r\nServer: loopback\r\nContent-Type: text/plain\r\nContent-Length: " +
         std::to_string(body.size()) + "\r\n\r\n" + body;
}

}  // namespace

void LoopbackServer::Serve(const std::vector<int>& listeners, Manner manner) {
  const int poll = epoll_create1(0);
  bool wasStop = false;
  std::map<int, std::string> requests;  // what has come so far, by connection
  for (const int listener : listeners) {
    epoll_event event{.events = EPOLLIN, .data = {.fd = listener}};
    epoll_ctl(poll, EPOLL_CTL_ADD, listener, &event);
  }
  while (true) {
    epoll_event event{};
    if (epoll_wait(poll, &event, 1, -1) != 1) continue;
    const int ready = event.data.fd;
    const auto found = requests.find(ready);
    if (found == requests.end()) {
      const int peer = accept(ready, nullptr, nullptr);
      if (peer < 0) continue;
      const int on = 1;
      setsockopt(peer, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
      epoll_event added{.events = EPOLLIN, .data = {.fd = peer}};
      epoll_ctl(poll, EPOLL_CTL_ADD, peer, &added);
      requests.emplace(peer, "");
      ++Seen_->connections;
      continue;
    }
    char buffer[4096];
    const auto count = recv(ready, buffer, sizeof buffer, 0);
    if (count <= 0) {
      close(ready);
      requests.erase(found);
      continue;
    }
    auto& request = found->second;
    request.append(buffer, static_cast<std::size_t>(count));
    if (!IsWhole(request)) continue;
    const auto reply = ReplyTo(request);
    const bool isStop = IsStop(request);
    if (isStop && !wasStop) Seen_->stop = Now();
    wasStop = isStop;
    const bool isSlow = manner == Manner::FocusesSlowly && request.find("focus=") != std::string::npos;
    request.clear();
    ++Seen_->requests;
    if (manner == Manner::Silent) continue;
    if (isSlow) std::this_thread::sleep_for(SlowReply);
    if (send(ready, reply.data(), reply.size(), MSG_NOSIGNAL) < 0) close(ready), requests.erase(ready);
    if (isSlow) Seen_->slowReply = Now();
  }
}

LoopbackServer::LoopbackServer(int ports, Manner manner) {
  void* shared = mmap(nullptr, sizeof(Seen), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  Check(shared != MAP_FAILED, "mmap");
  Seen_ = new (shared) Seen{};

  RaiseDescriptorLimit();
  std::vector<int> listeners;
  for (int i = 0; i < ports; ++i) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    auto address = Loopback(0);
    socklen_t size = sizeof address;
    Check(listener >= 0 && bind(listener, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
              listen(listener, SOMAXCONN) == 0 &&
              getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) == 0,
          "listen");
    listeners.push_back(listener);
    Ports_.push_back(ntohs(address.sin_port));
  }
  Child_ = fork();
  Check(Child_ >= 0, "fork");
  if (Child_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    Serve(listeners, manner);
  }
  for (const int listener : listeners) close(listener);
}

LoopbackServer::~LoopbackServer() {
  kill(Child_, SIGKILL);
  waitpid(Child_, nullptr, 0);
  munmap(Seen_, sizeof(Seen));
}
