#include "GateProcess.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <thread>

namespace {

using namespace std::chrono_literals;

constexpr char Broker[] = "/usr/sbin/mosquitto";

void WriteFile(const std::string& name, const std::string& text) {
  std::ofstream file(name);
  file << text;
  if (!file.flush()) throw std::runtime_error(name + " cannot be written");
}

/// Waits for what another process does.
void Await(const char* what, const std::function<bool()>& isThere) {
  const auto limit = std::chrono::steady_clock::now() + 60s;
  while (!isThere()) {
    if (std::chrono::steady_clock::now() > limit) throw std::runtime_error(std::string(what) + " in vain");
    std::this_thread::sleep_for(1ms);
  }
}

sockaddr_in Loopback(std::uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

/// One that nobody has at the moment.
std::uint16_t FreePort() {
  auto address = Loopback(0);
  socklen_t size = sizeof address;
  const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const bool isBound = bind(probe, reinterpret_cast<sockaddr*>(&address), size) == 0 &&
                       getsockname(probe, reinterpret_cast<sockaddr*>(&address), &size) == 0;
  close(probe);
  if (!isBound) throw std::runtime_error("there is no free port");
  return ntohs(address.sin_port);
}

bool Listens(std::uint16_t port) {
  const auto address = Loopback(port);
  const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const bool listens = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
  close(probe);
  return listens;
}

}  // namespace

ChildProcess::ChildProcess(const std::vector<std::string>& command, const std::string& output) {
  std::vector<char*> words;
  for (const auto& word : command) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  Child_ = fork();
  if (Child_ < 0) throw std::runtime_error("no process can be begun");
  if (Child_ != 0) return;
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  const int file = open(output.c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_APPEND, 0600);
  dup2(file, STDOUT_FILENO);
  dup2(file, STDERR_FILENO);
  execvp(words.front(), words.data());
  _exit(127);
}

ChildProcess::~ChildProcess() { End(); }

bool ChildProcess::Runs() const {
  siginfo_t ended{};
  return Child_ > 0 && waitid(P_PID, static_cast<id_t>(Child_), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
         ended.si_pid == 0;
}

int ChildProcess::End() {
  if (Child_ <= 0) return Code_;
  kill(Child_, SIGTERM);
  int status = 0;
  waitpid(Child_, &status, 0);
  Child_ = -1;
  return Code_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

OwnFolder::OwnFolder() : Path_((std::filesystem::temp_directory_path() / "gate-load-XXXXXX").string()) {
  if (mkdtemp(Path_.data()) == nullptr) throw std::runtime_error("no folder can be made: " + Path_);
}

OwnFolder::~OwnFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(Path_, ignored);
}

std::string GateProcess::NameOf(std::size_t camera) {
  char text[32];
  std::snprintf(text, sizeof text, "c%04zu", camera);
  return text;
}

std::size_t GateProcess::IndexOf(const std::string& name) { return std::stoul(name.substr(1)); }

GateProcess::GateProcess(const std::string& program, const OwnFolder& folder, const SimulatedSite& site,
                         std::uint16_t brokerPort) {
  std::string cameras;
  for (std::size_t i = 0; i < site.Cameras().size(); ++i) {
    const auto& camera = site.Cameras()[i];
    cameras += "[camera." + NameOf(i) + "]\ndriver = \"" + camera.Driver + "\"\n";
    cameras += (camera.Address.starts_with('/') ? "line = \"" : "address = \"") + camera.Address + "\"\n";
    // A remote system has several.
    if (camera.Driver == "QVPTZ.Quorvane") cameras += "options = { Feed = \"3\" }\n";
  }
  WriteFile(folder / "cameras.toml", cameras);
  WriteFile(folder / "gate.toml",
            "cameras = \"cameras.toml\"\nconnect = true\n[http]\nlisten = [\"127.0.0.1:0\"]\n[limits]\n"
            // All clients of this run come from one address.
            "connections = 2000\nconnections_per_address = 2000\nrequests_per_second = 100000\n"
            "[audit]\nfile = \"audit.log\"\n" +
                (brokerPort == 0 ? ""
                                 : "[mqtt]\nbroker = \"localhost:" + std::to_string(brokerPort) +
                                       "\"\nhome_assistant = false\n"));
  const auto log = folder / "gate.log";
  Process_ = std::make_unique<ChildProcess>(
      std::vector<std::string>{program, "--config", folder / "gate.toml", "--state", folder / "state"}, log);
  Await("ptzgate listens", [&] {
    std::ifstream lines(log);
    for (std::string line; std::getline(lines, line);) {
      const auto said = nlohmann::json::parse(line, nullptr, false);
      if (!said.is_object() || !said.contains("address")) continue;
      const std::string address = said["address"];
      Port_ = static_cast<std::uint16_t>(std::stoul(address.substr(address.rfind(':') + 1)));
      return true;
    }
    if (!Runs()) throw std::runtime_error("ptzgate has ended: " + program);
    return false;
  });
}

BrokerProcess::BrokerProcess(const OwnFolder& folder) {
  if (!std::filesystem::exists(Broker)) return;
  Port_ = FreePort();
  WriteFile(folder / "broker.conf", "listener " + std::to_string(Port_) +
                                        " 127.0.0.1\npersistence false\nallow_anonymous true\n"
                                        "max_queued_messages 0\nset_tcp_nodelay true\n");
  Process_ = std::make_unique<ChildProcess>(std::vector<std::string>{Broker, "-c", folder / "broker.conf"},
                                            folder / "broker.log");
  Await("the broker listens", [this] { return Listens(Port_); });
}
