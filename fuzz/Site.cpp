#include "Site.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "FakeControl.h"
#include "Scratch.h"
#include "Target.h"
#include "gateway/access/HTTPAccess.h"
#include "gateway/api/API.h"
#include "gateway/onvif/ONVIF.h"
#include "gateway/remote/Remote.h"
#include "gateway/web/ServerState.h"
#include "gateway/web/Session.h"

// A hash of a password is slow on purpose. Here one is its password, behind what hashes begin with.
extern "C" int __wrap_crypto_pwhash_str_verify(const char* hash, const char* password,
                                               unsigned long long size) {
  const std::string_view known = hash;
  errno = EINVAL;
  return known.substr(known.rfind('$') + 1) == std::string_view(password, size) ? 0 : -1;
}

namespace ptzd::fuzz {

using namespace ptzgate;

namespace {

constexpr char CamerasText[] = R"([camera.door]
driver = "Axis"
address = "192.0.2.1"
user = "root"
password = "c4mera"
[camera.yard]
driver = "Pelco"
line = "/dev/null"
presets = { gate = 3 }
)";

}  // namespace

struct Site::State {
  explicit State(GateSettings settings)
      : Journal_(Journal::Level::Error),
        Gate_(Context, std::move(settings), "", Journal_),
        Access(Gate_),
        API_(Gate_, Access),
        Remote_(Gate_, Access),
        ONVIF_(Gate_, Access),
        Server(std::make_shared<ServerState>(
            Context,
            ServerSettings{.Listen = {},
                           .Log =
                               [](const std::string& line) {
                                 Demand(false,
                                        "the server finds nothing that should not have happened: " + line);
                               }},
            [this](const std::shared_ptr<Call>& call) { Handle(call); })) {}

  void Handle(const std::shared_ptr<Call>& call) {
    const auto& path = call->Asked().Path;
    if (API::Has(path)) return API_.Handle(call);
    if (Remote::Has(path)) return Remote_.Handle(call);
    if (ONVIF::Has(path)) return ONVIF_.Handle(call);
    call->Answer(Problem(404, "there is nothing at " + path));
  }

  boost::asio::io_context Context;
  Journal Journal_;
  ptzgate::Gate Gate_;
  HTTPAccess Access;
  API API_;
  Remote Remote_;
  ONVIF ONVIF_;
  std::shared_ptr<ServerState> Server;
  int Peer = -1;
  std::uint64_t Connections = 0;
};

GateSettings Site::SettingsOf(const std::string& text) {
  auto settings = ReadGate(text, "gate.toml");
  settings.AuditFile = "/dev/null";
  settings.CameraFile = (Scratch::Folder() / "site.toml").string();
  return settings;
}

Site::Site(const GateSettings& settings) {
  // A wish may have changed it.
  chmod(Scratch::Write("site.toml", CamerasText).c_str(), S_IRUSR | S_IWUSR);
  State_ = std::make_unique<State>(settings);
  Poll();
}

Site::~Site() {
  Leave();
  State_->Server->Stop();
  Poll();
}

ptzgate::Gate& Site::Gate() { return State_->Gate_; }

void Site::Poll() {
  while (State_->Context.poll() != 0) {
  }
}

std::string Site::Send(std::string_view bytes, bool isLogin) {
  if (State_->Peer < 0) {
    std::array<int, 2> ends{};
    Demand(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends.data()) == 0,
           "there is a pair of sockets");
    State_->Peer = ends[0];
    const auto& server = State_->Server;
    const auto number = ++State_->Connections;
    const auto connection =
        std::make_shared<Connection>(Connection::Socket(State_->Context, boost::asio::ip::tcp::v4(), ends[1]),
                                     nullptr, server->Settings.Limits, number);
    connection->WhenGone = [this, number] { State_->Remote_.Forget(number); };
    connection->WhenReleased = [server, number] { server->Connections.erase(number); };
    server->Connections.emplace(number, connection);
    connection->Start(std::make_shared<Session>(server, connection, true));
  }
  std::string answer;
  std::array<char, 65536> buffer{};
  const auto read = [&] {
    Poll();
    const auto size = ::read(State_->Peer, buffer.data(), buffer.size());
    if (size > 0) answer.append(buffer.data(), static_cast<std::size_t>(size));
    return size > 0;
  };
  while (!bytes.empty()) {
    const auto sent = ::send(State_->Peer, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent > 0) bytes.remove_prefix(static_cast<std::size_t>(sent));
    if (!read() && sent < 0 && errno != EAGAIN) break;
  }
  while (read()) {
  }
  // Passwords are looked at on a thread of their own, which may have to answer first.
  if (isLogin && answer.empty() && State_->Context.run_one_for(std::chrono::milliseconds(20)) > 0)
    while (read()) {
    }
  return answer;
}

void Site::Leave() {
  if (State_->Peer < 0) return;
  close(std::exchange(State_->Peer, -1));
  Poll();
}

}  // namespace ptzd::fuzz
